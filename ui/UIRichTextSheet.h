// Shows a long styled text, such as a licence, above its buttons.
#pragma once

#include "ui/UIRichText.h"
#include "ui/UISheet.h"

class UIRichTextView;

/// The text is to be read only; it scrolls.
class UIRichTextSheet : public UISheet {
public:
    static constexpr const char* kType = "rich-text-sheet";
    UIRichTextSheet(const CXString& name, UIElement* attachedTo, std::vector<UISheetButton> buttons)
        : UISheet(name, attachedTo, std::move(buttons)) {}
    const char* GetType() const override { return kType; }

    /// Before it is shown.
    void SetRichText(UIRichText text) { m_text = std::move(text); }

protected:
    void MakeContent() override;
    int32_t PlaceContent(int32_t left, int32_t top, int32_t width) override;
    int32_t GetContentWidth() const override { return 520; }

private:
    static constexpr int32_t kTextHeight = 300;

    UIRichText m_text;
    UIRichTextView* m_view = nullptr;
};
