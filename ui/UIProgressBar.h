// How far something has come.
#pragma once

#include "ui/UIControl.h"

#include <algorithm>

/// Shows a part of `kRange`, or that something moves without a measure.
class UIProgressBar : public UIControl {
public:
    static constexpr const char* kType = "progress";
    static constexpr int32_t kRange = 16384;
    explicit UIProgressBar(const CXString& name) : UIControl(UIKind::Progress, name) {}
    const char* GetType() const override { return kType; }

    /// 0 to kRange.
    void SetProgress(int32_t progress) { SetPeerValue(std::clamp(progress, 0, kRange)); }
    void SetMoving() { SetPeerValue(-1); }
};
