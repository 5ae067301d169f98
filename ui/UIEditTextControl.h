// A line of text that the user edits.
#pragma once

#include "ui/UIControl.h"

/// Sends `kTextChanged`, with itself as the source, after each change by the user; not when the
/// program sets the text.
class UIEditTextControl : public UIControl {
public:
    static constexpr const char* kType = "edit";
    static const CXString kTextChanged;
    explicit UIEditTextControl(const CXString& name) : UIControl(UIKind::Edit, name) {}
    const char* GetType() const override { return kType; }

    /// A password.
    void SetMasked(bool masked);
    /// To be read and copied only.
    void SetReadOnly(bool readOnly);

    void PeerTextChanged() override { ProcessMessage(CXMessage(kTextChanged, this)); }

protected:
    UIPeerState GetPeerState() const override;

private:
    bool m_masked = false;
    bool m_readOnly = false;
};
