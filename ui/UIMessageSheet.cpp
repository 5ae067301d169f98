#include "ui/UIMessageSheet.h"

#include "ui/UILabel.h"
#include "ui/UIRichTextView.h"

#include <memory>
#include <utility>

void UIMessageSheet::Tell(UIElement* attachedTo, const CXString& text, const CXString& message) {
    Ask(attachedTo, text, {{"OK", message, UIButtonRole::Default}});
}

void UIMessageSheet::Ask(UIElement* attachedTo, const CXString& text,
                         std::vector<UISheetButton> buttons) {
    Show(std::make_unique<UIMessageSheet>(attachedTo, text, std::move(buttons)));
}

void UIMessageSheet::MakeContent() {
    m_label = AddNew<UILabel>("text");
    m_label->SetText(m_text);
    if (m_label->Measure(GetContentWidth()).natural.height > kMaxHeight) {
        m_label->SetShown(false);
        m_view = AddNew<UIRichTextView>("long-text");
        m_view->SetAccessibleName(GetTitle());
        m_view->SetRichText(UIRichText::Read(m_text));
    }
}

int32_t UIMessageSheet::PlaceContent(int32_t left, int32_t top, int32_t width) {
    if (m_view != nullptr) {
        m_view->SetRect({left, top, left + width, top + kMaxHeight});
        return top + kMaxHeight;
    }
    const int32_t bottom = top + m_label->Measure(width).natural.height;
    m_label->SetRect({left, top, left + width, bottom});
    return bottom;
}
