// An event that is a timer as well.
#pragma once

#include "runtime/CXGenericEvent.h"
#include "runtime/CXTimer.h"

/// Can be given shots, but neither a shot nor a test of it does anything: it never holds.
class CXGenericEventTimer : public CXGenericEvent, public CXTimer {
public:
    CXGenericEventTimer() : CXTimer("CXGenericEventTimer") {}
    ~CXGenericEventTimer() override {
        DetachRefs();
        CancelShots();
    }
    bool Test() override { return false; }
    void Fire(void* /*a*/, void* /*b*/) override {}
};
