#include "ui/UIRichTextSheet.h"

#include "ui/UIRichTextView.h"

void UIRichTextSheet::MakeContent() {
    m_view = AddNew<UIRichTextView>("text");
    m_view->SetAccessibleName(GetTitle());
    m_view->SetRichText(m_text);
}

int32_t UIRichTextSheet::PlaceContent(int32_t left, int32_t top, int32_t width) {
    m_view->SetRect({left, top, left + width, top + kTextHeight});
    return top + kTextHeight;
}
