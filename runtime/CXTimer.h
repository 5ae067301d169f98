// A deadline, or several, at which something happens on the timer thread.
#pragma once

#include "core/CXLock.h"
#include "core/CXString.h"

#include <atomic>
#include <cstdint>
#include <list>

class CXTimerManager;

/// Fires once per pending shot. Shots are given to a CXTimerManager; the timer belongs to its
/// owner, unless it asks to be deleted when its last shot has been fired.
///
/// A class whose `Fire` uses its own members cancels the timer first in its destructor. A timer
/// must not be destroyed from within its own `Fire`.
class CXTimer {
public:
    explicit CXTimer(const CXString& name, bool deleteWhenEmpty = false)
        : m_name(name), m_deleteWhenEmpty(deleteWhenEmpty) {}
    CXTimer(const CXTimer&) = delete;
    CXTimer& operator=(const CXTimer&) = delete;
    /// Cancels what is pending and waits for the end of a running `Fire`.
    virtual ~CXTimer();

    /// Runs on the timer thread with the two arguments of the shot, without any lock held.
    virtual void Fire(void* a, void* b) = 0;

    const CXString& GetTimerName() const { return m_name; }

protected:
    /// The destructor's work.
    void CancelShots();

private:
    friend class CXTimerManager;
    struct Shot {
        int64_t due; // 100 ns since 1970
        void* a;
        void* b;
    };

    std::list<Shot> m_shots; // by due time; guarded by the manager's lock, as all below
    int64_t m_due = 0;
    uint32_t m_nesting = 0; // callers that wait for the end of a firing
    CXThreadId m_firing = kCXNoThread;
    std::atomic<CXTimerManager*> m_manager{nullptr}; // while shots are pending or firing
    const CXString m_name;
    const bool m_deleteWhenEmpty;
};
