// Tells something, and asks at most one thing.
#pragma once

#include "ui/UISheet.h"

class UILabel;
class UIRichTextView;

/// A text and buttons. A text that is too long for the screen scrolls.
class UIMessageSheet : public UISheet {
public:
    static constexpr const char* kType = "message-sheet";
    UIMessageSheet(UIElement* attachedTo, const CXString& text, std::vector<UISheetButton> buttons)
        : UISheet("message", attachedTo, std::move(buttons)), m_text(text) {}
    const char* GetType() const override { return kType; }

    /// Shows a text with one button, "OK", whose press posts `message` unless that is empty.
    static void Tell(UIElement* attachedTo, const CXString& text,
                     const CXString& message = CXString());
    /// Shows a text with several buttons.
    static void Ask(UIElement* attachedTo, const CXString& text,
                    std::vector<UISheetButton> buttons);

protected:
    void MakeContent() override;
    int32_t PlaceContent(int32_t left, int32_t top, int32_t width) override;

private:
    static constexpr int32_t kMaxHeight = 320;

    CXString m_text;
    UILabel* m_label = nullptr;
    UIRichTextView* m_view = nullptr; // for a long text
};
