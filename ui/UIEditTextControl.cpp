#include "ui/UIEditTextControl.h"

const CXString UIEditTextControl::kTextChanged("UIEditTextControl::text-changed");

void UIEditTextControl::SetMasked(bool masked) {
    m_masked = masked;
    StateChanged();
}

void UIEditTextControl::SetReadOnly(bool readOnly) {
    m_readOnly = readOnly;
    StateChanged();
}

UIPeerState UIEditTextControl::GetPeerState() const {
    UIPeerState state = UIControl::GetPeerState();
    state.masked = m_masked;
    state.readOnly = m_readOnly;
    return state;
}
