// Lock and condition variable that is also an event: a signal is seen by each context once.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXGenericEvent.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>

/// Scope guard that `CXCondition::Wait` can let go of.
using CXConditionGuard = std::unique_lock<CXCriticalSection>;

/// State that several threads change is guarded by `GetLock()`; a thread that waits for a change
/// holds a CXConditionGuard and calls `Wait` in a loop around its test. As an event it answers
/// false to `Test`, and to `TestSince` whether a signal came at or after the serial.
class CXCondition : public CXGenericEvent {
public:
    CXCondition() = default;
    ~CXCondition() override;

    bool Test() override;
    bool TestSince(const int64_t* serial) override;

    CXCriticalSection& GetLock() { return m_lock; }
    /// Stamps the event with the next serial and wakes all waiters. Hold the lock when the state
    /// that waiters look at was changed; the call itself does not take it.
    void Signal();
    /// Wakes all waiters without stamping the event.
    void WakeAll() { m_variable.notify_all(); }

    /// Waits for a wake-up (may also return without one). `guard` holds `GetLock()`.
    void Wait(CXConditionGuard& guard) { m_variable.wait(guard); }
    /// The same, for at most `milliseconds`; false when the time ran out.
    bool WaitFor(CXConditionGuard& guard, uint32_t milliseconds);

private:
    std::atomic<int64_t> m_stamp{-1}; // below every serial: nothing fires before the first signal
    CXCriticalSection m_lock;
    std::condition_variable m_variable;
};
