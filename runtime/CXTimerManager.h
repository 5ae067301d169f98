// The thread that fires timers.
#pragma once

#include "runtime/CXCondition.h"
#include "runtime/CXThread.h"
#include "runtime/CXTimer.h"

#include <cstdint>
#include <list>
#include <set>

/// Fires the shots of all its timers in order of their due times. Times are in units of 100 ns of
/// the system clock, since 1970. All operations from any thread.
class CXTimerManager : public CXThread {
public:
    CXTimerManager();
    /// Stops the thread; logs each timer that still has shots and lets go of it.
    ~CXTimerManager() override;

    void Proc() override;
    void Stop() override;

    /// Adds a shot at an absolute time; one in the past fires at once. Starts the thread.
    void AddShot(CXTimer& timer, int64_t due, void* a = nullptr, void* b = nullptr);
    /// Adds a shot `milliseconds` from now.
    void AddShotAfter(CXTimer& timer, uint32_t milliseconds, void* a = nullptr, void* b = nullptr);
    /// Drops all pending shots. When another thread is firing the timer, waits until that ends; a
    /// timer that is being cancelled is not deleted by the manager.
    void Cancel(CXTimer& timer);

    /// True while the timer has shots that have not been fired.
    bool IsPending(const CXTimer& timer);

    /// The clock of the due times.
    static int64_t GetTime();
    /// Made on first use.
    static CXTimerManager* GetSingleton();
    /// Part of shut-down; does nothing when there is none.
    static void DeleteSingleton();

private:
    struct Earlier {
        bool operator()(const CXTimer* a, const CXTimer* b) const;
    };

    void DropShots(CXTimer& timer);
    void FireFirst(CXConditionGuard& guard, CXTimer& timer);

    CXCondition m_wake; // guards all timers and the two members below
    std::set<CXTimer*, Earlier> m_timers;
    std::list<CXTimer::Shot> m_freeShots;
};
