#include "ui/UIControl.h"

#include "ui/CXMenuManager.h"
#include "ui/CXUIWindow.h"
#include "ui/UIService.h"

void UIControl::SetText(const CXString& text) {
    if (m_peer != nullptr) {
        if (m_peer->GetText() == text) {
            return;
        }
        m_peer->SetText(text);
        if (m_accessibleName.IsEmpty() && m_kind != UIKind::Edit) { // not what stands in it
            m_peer->SetAccessibleName(text.IsEmpty() ? GetName() : text);
        }
    }
    m_text = text;
    if (m_kind != UIKind::Edit) {
        ContentChanged(); // an edit doesn't grow with its text
    }
}

CXString UIControl::GetText() const {
    return m_peer != nullptr ? m_peer->GetText() : m_text;
}

void UIControl::SetAccessibleName(const CXString& name) {
    m_accessibleName = name;
    if (m_peer != nullptr) {
        m_peer->SetAccessibleName(name);
    }
}

void UIControl::Focus(bool selectAll) {
    if (m_peer != nullptr) {
        m_peer->Focus(selectAll);
    }
}

UIIntrinsic UIControl::Measure(int32_t forWidth) {
    return m_peer != nullptr ? m_peer->Measure(forWidth) : UIIntrinsic();
}

UIPeerState UIControl::GetPeerState() const {
    UIPeerState state;
    state.shown = IsVisible();
    state.enabled = IsUsable() || !state.shown;
    return state;
}

void UIControl::Attach(CXUIWindow* window) {
    UIElement::Attach(window);
    m_peer = UIService::Get()->GetBackend().Make(m_kind, window->GetPeer(), this, GetName());
    m_peer->SetText(m_text);
    const bool readsText = m_kind != UIKind::Edit && !m_text.IsEmpty();
    if (!m_accessibleName.IsEmpty()) {
        m_peer->SetAccessibleName(m_accessibleName);
    } else {
        m_peer->SetAccessibleName(readsText ? m_text : GetName());
    }
    FillPeer(*m_peer);
    m_peer->SetValue(m_value);
    m_peer->SetRect(GetWindowRect());
    m_peer->SetState(GetPeerState());
}

void UIControl::Detach() {
    if (m_peer != nullptr) {
        m_text = m_peer->GetText();
        m_value = m_peer->GetValue();
        m_peer.reset();
    }
    UIElement::Detach();
}

void UIControl::StateChanged() {
    if (m_peer != nullptr) {
        m_peer->SetState(GetPeerState());
    }
}

void UIControl::RectChanged() {
    if (m_peer != nullptr) {
        m_peer->SetRect(GetWindowRect());
    }
}

void UIControl::SetPeerValue(int32_t value) {
    m_value = value;
    if (m_peer != nullptr) {
        m_peer->SetValue(value);
    }
}

int32_t UIControl::GetPeerValue() const {
    return m_peer != nullptr ? m_peer->GetValue() : m_value;
}

CXResult UIControl::ProcessMessage(const CXMessage& message) {
    if (m_peer != nullptr && (m_kind == UIKind::Edit || m_kind == UIKind::RichText)) {
        UIEditCommand command;
        if (CXMenuManager::IsEditCommand(message.GetName(), command)) {
            if (m_peer->CanEdit(command)) {
                m_peer->DoEdit(command);
            }
            return kCXResultOK;
        }
        if (UICommandStatus* status = CXMenuManager::GetStatus(message)) {
            if (CXMenuManager::IsEditCommand(status->command, command)) {
                status->enabled = m_peer->CanEdit(command);
                return kCXResultOK;
            }
        }
    }
    return UIElement::ProcessMessage(message);
}
