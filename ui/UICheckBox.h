// A check box.
#pragma once

#include "runtime/CXMessageParams.h"
#include "ui/UIButton.h"

/// Sends `action-event` (a CXMessageIntParam, 0 or 1) when the user toggles it.
class UICheckBox : public UIControl {
public:
    static constexpr const char* kType = "check";
    explicit UICheckBox(const CXString& name) : UIControl(UIKind::Check, name) {}
    const char* GetType() const override { return kType; }

    void SetChecked(bool checked) { SetPeerValue(checked ? 1 : 0); }
    bool IsChecked() const { return GetPeerValue() == 1; }

    void PeerAction(UIPeerEvent, int32_t value) override {
        ProcessMessage(CXMessageIntParam(kUIActionEvent, this, value));
    }
};
