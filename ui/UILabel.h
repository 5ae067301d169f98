// Text on the window's background.
#pragma once

#include "ui/UIControl.h"

/// Wraps at its width.
class UILabel : public UIControl {
public:
    static constexpr const char* kType = "label";
    explicit UILabel(const CXString& name) : UIControl(UIKind::Label, name) {}
    const char* GetType() const override { return kType; }
};
