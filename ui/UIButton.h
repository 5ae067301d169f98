// A push button.
#pragma once

#include "ui/UIControl.h"

/// Which key presses a button besides its own. The numbers are those of descriptions.
enum class UIButtonRole : uint8_t { None = 0, Default = 1, Cancel = 2 };

/// Sends `action-event`, with itself as the source, when it is pressed.
class UIButton : public UIControl {
public:
    static constexpr const char* kType = "button";
    explicit UIButton(const CXString& name, UIButtonRole role = UIButtonRole::None)
        : UIControl(UIKind::Button, name), m_role(role) {}
    const char* GetType() const override { return kType; }

    /// Default: Enter presses it, and it looks like it. Cancel: Escape.
    void SetRole(UIButtonRole role);
    UIButtonRole GetRole() const { return m_role; }
    /// As if the user pressed it: nothing while it is hidden or disabled.
    void Press();

    void PeerAction(UIPeerEvent event, int32_t value) override;

protected:
    void FillPeer(UIPeer& peer) override { peer.SetDefaultLook(m_role == UIButtonRole::Default); }

private:
    UIButtonRole m_role;
};

/// Sent by buttons and check boxes.
extern const CXString kUIActionEvent;
