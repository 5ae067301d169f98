// A dialog over a window: something to look at, and a row of buttons that end it.
#pragma once

#include "runtime/CXMessage.h"
#include "runtime/CXSafePointer.h"
#include "ui/CXUIWindow.h"
#include "ui/UIButton.h"

#include <memory>
#include <vector>

/// One button of a sheet.
struct UISheetButton {
    CXString text;
    CXString message; ///< posted to what the sheet is attached to; empty: it only closes the sheet
    UIButtonRole role = UIButtonRole::None;
};

/// Blocks nothing but the windows below it: tasks go on, and the answer comes as a posted message.
/// The one that the sheet is attached to gets it, if it still lives. Escape and the close button
/// press the cancel button, or the only one; without either they just close the sheet.
class UISheet : public CXUIWindow {
public:
    static constexpr const char* kType = "sheet";
    /// `attachedTo` may be null: then the sheet hangs on nothing and nobody gets an answer.
    UISheet(const CXString& name, UIElement* attachedTo, std::vector<UISheetButton> buttons);
    const char* GetType() const override { return kType; }

    /// Opens a sheet over the window of what it is attached to.
    static void Show(std::unique_ptr<UISheet> sheet);

    void Activate() override;
    void Layout() override;
    CXResult ProcessMessage(const CXMessage& message) override;
    bool FilterMessage(const UIMessage& message) override;

protected:
    /// Makes the children above the buttons.
    virtual void MakeContent() = 0;
    /// Places them within the width, from `top` on; returns where the last of them ends.
    virtual int32_t PlaceContent(int32_t left, int32_t top, int32_t width) = 0;
    /// Width that the content likes to have.
    virtual int32_t GetContentWidth() const { return 380; }
    /// The message that answers by button `index`; null: none. The base makes a CXMessageIntParam
    /// with the index, of the button's name.
    virtual std::unique_ptr<CXMessage> MakeReply(size_t index);
    CXMessageTarget* GetAttachedTo() const override { return m_attachedTo.Get(); }
    const std::vector<UISheetButton>& GetButtons() const { return m_buttons; }
    /// As if button `index` was pressed.
    void Answer(size_t index);
    UIButton* GetButton(size_t index) const { return m_controls[index]; }

    static constexpr int32_t kMargin = 13;
    static constexpr int32_t kGap = 8;

private:
    void Dismiss();

    CXSafePointer<UIElement> m_attachedTo;
    std::vector<UISheetButton> m_buttons;
    std::vector<UIButton*> m_controls;
};
