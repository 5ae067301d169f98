// Manual-reset event: stays set until it is reset.
#pragma once

#include "runtime/CXGenericEvent.h"

#include <cstdint>
#include <memory>

/// Wakes every waiter while it is set. Made unset and unnamed. All operations from any thread; must
/// not be destroyed while a thread waits on it.
class CXEvent : public CXGenericEvent {
public:
    static constexpr uint32_t kForever = 0xFFFFFFFF;

    CXEvent();
    ~CXEvent() override;

    /// True if the event is set.
    bool Test() override;

    void Set();
    void Reset();
    /// Waits until the event is set, at most `milliseconds`; true if it was set in time.
    bool Wait(uint32_t milliseconds = kForever);

private:
    struct Platform;
    const std::unique_ptr<Platform> m_platform;
};
