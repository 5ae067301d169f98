#include "ui/UIButton.h"

const CXString kUIActionEvent("action-event");

void UIButton::SetRole(UIButtonRole role) {
    m_role = role;
    if (UIPeer* peer = GetPeer()) {
        peer->SetDefaultLook(role == UIButtonRole::Default);
    }
}

void UIButton::Press() {
    if (IsUsable()) {
        ProcessMessage(CXMessage(kUIActionEvent, this));
    }
}

void UIButton::PeerAction(UIPeerEvent, int32_t) {
    Press();
}
