#include "ui/UISheet.h"

#include "runtime/CXMessageParams.h"
#include "runtime/CXMessagePostTask.h"
#include "ui/UIService.h"

#include <algorithm>
#include <utility>

UISheet::UISheet(const CXString& name, UIElement* attachedTo, std::vector<UISheetButton> buttons)
    : CXUIWindow(name, UIKind::Sheet), m_attachedTo(attachedTo), m_buttons(std::move(buttons)) {}

void UISheet::Show(std::unique_ptr<UISheet> sheet) {
    UIElement* attachedTo = sheet->m_attachedTo.Get();
    CXUIWindow* over = attachedTo != nullptr ? attachedTo->GetWindow() : nullptr;
    if (sheet->GetTitle().IsEmpty()) {
        CXUIWindow* named = over != nullptr ? over : UIService::Get()->GetFrontWindow();
        sheet->SetTitle(named != nullptr ? named->GetTitle() : CXString());
    }
    UIService::Get()->Open(std::move(sheet), over);
}

void UISheet::Activate() {
    CXUIWindow::Activate();
    MakeContent();
    for (const UISheetButton& button : m_buttons) {
        UIButton* control = AddNew<UIButton>(button.text, button.role);
        control->SetText(button.text);
        m_controls.push_back(control);
    }
}

void UISheet::Layout() {
    CXUIWindow::Layout();
    std::vector<UISize> sizes;
    int32_t row = -kGap;
    int32_t rowHeight = 0;
    for (UIButton* control : m_controls) {
        sizes.push_back(control->Measure(-1).natural);
        row += sizes.back().width + kGap;
        rowHeight = std::max(rowHeight, sizes.back().height);
    }
    const int32_t width = std::max(GetContentWidth(), row);
    const int32_t top = PlaceContent(kMargin, kMargin, width) + kMargin;
    int32_t left = kMargin + width - row;
    for (size_t index = 0; index < m_controls.size(); ++index) {
        m_controls[index]->SetRect({left, top, left + sizes[index].width, top + rowHeight});
        left += sizes[index].width + kGap;
    }
    SetRect({0, 0, width + 2 * kMargin, top + rowHeight + kMargin});
}

std::unique_ptr<CXMessage> UISheet::MakeReply(size_t index) {
    const CXString& name = m_buttons[index].message;
    return name.IsEmpty()
               ? nullptr
               : std::make_unique<CXMessageIntParam>(name, nullptr, static_cast<int64_t>(index));
}

void UISheet::Answer(size_t index) {
    if (IsClosed()) {
        return;
    }
    std::unique_ptr<CXMessage> reply = MakeReply(index);
    if (reply != nullptr && m_attachedTo) {
        CXMessagePostTask::GetMainThreadSingleton()->Post(m_attachedTo.Get(), std::move(reply));
    }
    Close();
}

void UISheet::Dismiss() {
    for (size_t index = 0; index < m_buttons.size(); ++index) {
        if (m_buttons[index].role == UIButtonRole::Cancel || m_buttons.size() == 1) {
            Answer(index);
            return;
        }
    }
    Close();
}

CXResult UISheet::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == kUIActionEvent) {
        const auto found = std::find(m_controls.begin(), m_controls.end(), message.GetSource());
        if (found != m_controls.end()) {
            Answer(static_cast<size_t>(found - m_controls.begin()));
            return kCXResultOK;
        }
    }
    if (message.GetName() == kClose) {
        Dismiss();
        return kCXResultOK;
    }
    return CXUIWindow::ProcessMessage(message);
}

bool UISheet::FilterMessage(const UIMessage& message) {
    if (message.isKeyDown && message.key.code == kUIKeyEscape) {
        Dismiss();
        return true;
    }
    return false;
}
