#include "ui/UIListSheet.h"

#include "runtime/CXMessageParams.h"
#include "ui/UILabel.h"
#include "ui/UIListControl.h"

#include <utility>

UIListSheet::UIListSheet(UIElement* attachedTo, const CXString& heading, std::vector<Entry> entries,
                         const CXString& selected, const CXString& message)
    : UISheet("list", attachedTo,
              {{"OK", message, UIButtonRole::Default}, {"Cancel", "", UIButtonRole::Cancel}}),
      m_heading(heading), m_entries(std::move(entries)), m_selected(selected) {}

void UIListSheet::MakeContent() {
    m_label = AddNew<UILabel>("heading");
    m_label->SetText(m_heading);
    m_list = AddNew<UIListControl>("choices");
    m_list->SetAccessibleName(m_heading);
    std::vector<CXString> lines;
    int32_t selected = -1;
    for (const Entry& entry : m_entries) {
        if (selected < 0 && entry.id == m_selected) {
            selected = static_cast<int32_t>(lines.size());
        }
        lines.push_back(entry.text);
    }
    m_list->SetItems(std::move(lines));
    m_list->SetSelected(selected);
}

int32_t UIListSheet::PlaceContent(int32_t left, int32_t top, int32_t width) {
    const int32_t middle = top + m_label->Measure(width).natural.height;
    m_label->SetRect({left, top, left + width, middle});
    const int32_t bottom = middle + kGap + kListHeight;
    m_list->SetRect({left, middle + kGap, left + width, bottom});
    ShowOkayState();
    return bottom;
}

void UIListSheet::ShowOkayState() {
    GetButton(kOkay)->SetEnabled(m_list->GetSelected() >= 0);
}

UIControl* UIListSheet::PickFocus() const {
    return m_list; // the arrows choose, Enter takes
}

std::unique_ptr<CXMessage> UIListSheet::MakeReply(size_t index) {
    const int32_t selected = m_list->GetSelected();
    if (index != kOkay || selected < 0 || static_cast<size_t>(selected) >= m_entries.size()) {
        return nullptr;
    }
    return std::make_unique<CXMessageStringParam>(
        GetButtons()[kOkay].message, nullptr,
        std::vector<CXString>{m_entries[static_cast<size_t>(selected)].id});
}

CXResult UIListSheet::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == UIListControl::kSelectionChanged) {
        ShowOkayState();
        return kCXResultOK;
    }
    if (message.GetName() == UIListControl::kChosen) {
        if (m_list->GetSelected() >= 0) {
            Answer(kOkay);
        }
        return kCXResultOK;
    }
    return UISheet::ProcessMessage(message);
}
