// A sign that something is going on.
#pragma once

#include "ui/UIControl.h"

/// Turns as long as it is shown.
class UIProgressSpinner : public UIControl {
public:
    static constexpr const char* kType = "spinner";
    explicit UIProgressSpinner(const CXString& name) : UIControl(UIKind::Spinner, name) {}
    const char* GetType() const override { return kType; }
};
