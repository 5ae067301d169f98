#include "runtime/CXTimerManager.h"

#include "core/CXLog.h"
#include "core/CXTime.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace {

constexpr int64_t kUnitsPerMs = 10000;
constexpr int64_t kLongestWaitMs = 10000; // so that a clock that was set is noticed
constexpr uint32_t kCancelPauseMs = 10;

CXCriticalSection g_singletonSection;
CXTimerManager* g_singleton = nullptr;

} // namespace

CXTimer::~CXTimer() {
    CancelShots();
}

void CXTimer::CancelShots() {
    CXTimerManager* manager = m_manager.load(std::memory_order_acquire);
    if (manager != nullptr) {
        manager->Cancel(*this);
    }
}

bool CXTimerManager::Earlier::operator()(const CXTimer* a, const CXTimer* b) const {
    return a->m_due != b->m_due ? a->m_due < b->m_due : std::less<const CXTimer*>()(a, b);
}

CXTimerManager::CXTimerManager() : CXThread("CXTimerManager") {}

CXTimerManager::~CXTimerManager() {
    CXTimerManager::Stop();
    const CXConditionGuard guard(m_wake.GetLock());
    for (CXTimer* timer : m_timers) {
        CXLogFormat("~CXTimerManager> '%s' still attached", timer->GetTimerName().GetData());
        timer->m_shots.clear();
        timer->m_manager.store(nullptr, std::memory_order_release);
    }
}

void CXTimerManager::Stop() {
    RequestStop();
    {
        const CXConditionGuard guard(m_wake.GetLock());
        m_wake.WakeAll();
    }
    CXThread::Stop();
}

void CXTimerManager::AddShot(CXTimer& timer, int64_t due, void* a, void* b) {
    Start();
    const CXConditionGuard guard(m_wake.GetLock());
    if (m_freeShots.empty()) {
        m_freeShots.emplace_back();
    }
    m_freeShots.front() = {.due = due, .a = a, .b = b};
    const auto behind = std::find_if(timer.m_shots.begin(), timer.m_shots.end(),
                                     [due](const CXTimer::Shot& shot) { return shot.due > due; });
    timer.m_shots.splice(behind, m_freeShots, m_freeShots.begin());
    timer.m_manager.store(this, std::memory_order_release);
    if (timer.m_firing == kCXNoThread) { // else it is entered again when the firing ends
        m_timers.erase(&timer);
        timer.m_due = timer.m_shots.front().due;
        m_timers.insert(&timer);
        m_wake.Signal();
    }
}

void CXTimerManager::AddShotAfter(CXTimer& timer, uint32_t milliseconds, void* a, void* b) {
    AddShot(timer, GetTime() + kUnitsPerMs * milliseconds, a, b);
}

void CXTimerManager::Cancel(CXTimer& timer) {
    CXConditionGuard guard(m_wake.GetLock());
    DropShots(timer);
    if (timer.m_firing == CXCurrentThreadId()) {
        return;
    }
    ++timer.m_nesting;
    while (timer.m_firing != kCXNoThread) {
        guard.unlock();
        CXSleep(kCancelPauseMs);
        guard.lock();
    }
    --timer.m_nesting;
    timer.m_manager.store(nullptr, std::memory_order_release);
}

bool CXTimerManager::IsPending(const CXTimer& timer) {
    const CXConditionGuard guard(m_wake.GetLock());
    return !timer.m_shots.empty();
}

void CXTimerManager::DropShots(CXTimer& timer) {
    m_timers.erase(&timer);
    m_freeShots.splice(m_freeShots.end(), timer.m_shots);
}

void CXTimerManager::Proc() {
    CXConditionGuard guard(m_wake.GetLock());
    while (!IsStopRequested()) {
        if (m_timers.empty()) {
            m_wake.Wait(guard);
            continue;
        }
        CXTimer& timer = **m_timers.begin();
        const int64_t now = GetTime();
        if (timer.m_due > now) {
            const int64_t remainingMs = (timer.m_due - now + kUnitsPerMs - 1) / kUnitsPerMs;
            m_wake.WaitFor(guard, static_cast<uint32_t>(std::min(remainingMs, kLongestWaitMs)));
            continue;
        }
        FireFirst(guard, timer);
    }
}

void CXTimerManager::FireFirst(CXConditionGuard& guard, CXTimer& timer) {
    m_timers.erase(&timer);
    std::list<CXTimer::Shot> shot;
    shot.splice(shot.end(), timer.m_shots, timer.m_shots.begin());
    timer.m_firing = CXCurrentThreadId();
    guard.unlock();
    timer.Fire(shot.front().a, shot.front().b);
    guard.lock();
    m_freeShots.splice(m_freeShots.end(), shot);
    timer.m_firing = kCXNoThread;
    if (timer.m_nesting > 0) {
        DropShots(timer); // somebody waits to cancel it for good
    }
    if (!timer.m_shots.empty()) {
        timer.m_due = timer.m_shots.front().due;
        m_timers.insert(&timer);
        return;
    }
    const bool isOurs = timer.m_deleteWhenEmpty && timer.m_nesting == 0;
    // The last touch: an owner who sees null may destroy the timer without taking the lock.
    timer.m_manager.store(nullptr, std::memory_order_release);
    if (isOurs) {
        guard.unlock();
        delete &timer;
        guard.lock();
    }
}

int64_t CXTimerManager::GetTime() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, 10000000>>>(
               sinceEpoch)
        .count();
}

CXTimerManager* CXTimerManager::GetSingleton() {
    const CXCriticalSectionGuard guard(g_singletonSection);
    if (g_singleton == nullptr) {
        g_singleton = new CXTimerManager;
    }
    return g_singleton;
}

void CXTimerManager::DeleteSingleton() {
    CXTimerManager* manager = nullptr;
    {
        const CXCriticalSectionGuard guard(g_singletonSection);
        manager = std::exchange(g_singleton, nullptr);
    }
    delete manager;
}
