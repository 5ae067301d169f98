#include "runtime/CXReadWriteLock.h"

void CXReadWriteLock::Lock(CXLockMode mode) {
    if (mode == CXLockMode::Exclusive) {
        LockExclusive();
    } else {
        LockShare(mode);
    }
}

void CXReadWriteLock::Unlock(CXLockMode mode) {
    if (mode == CXLockMode::Exclusive) {
        UnlockExclusive();
    } else {
        UnlockShare(mode);
    }
}

void CXReadWriteLock::LockShare(CXLockMode mode) {
    const CXThreadId self = CXCurrentThreadId();
    std::unique_lock<CXCriticalSection> state(m_state);
    while (m_exclusiveRequests > 0) {
        if ((mode == CXLockMode::ShareWithin && m_openShares > 0) || m_owner == self ||
            HoldsShare(self)) {
            break;
        }
        m_writerDone.Reset();
        state.unlock();
        m_writerDone.Wait();
        state.lock();
    }
    ++m_shares;
    if (mode == CXLockMode::ShareOpen) {
        ++m_openShares;
    }
    AddHold(self);
}

void CXReadWriteLock::UnlockShare(CXLockMode mode) {
    const CXCriticalSectionGuard state(m_state);
    DropHold(CXCurrentThreadId());
    if (mode == CXLockMode::ShareOpen) {
        --m_openShares;
    }
    if (--m_shares == 0 && m_exclusiveRequests > 0) {
        m_noReaders.Set();
    }
}

void CXReadWriteLock::LockExclusive() {
    const CXThreadId self = CXCurrentThreadId();
    std::unique_lock<CXCriticalSection> state(m_state);
    ++m_exclusiveRequests;
    if (m_owner == self) {
        ++m_exclusiveHolds;
        return;
    }
    const auto waitForReaders = [&] {
        if (m_shares == 0) {
            m_noReaders.Set();
        } else {
            m_noReaders.Reset();
        }
        state.unlock();
        m_noReaders.Wait();
    };
    waitForReaders();
    m_exclusive.Lock();
    state.lock();
    // The owner before us may have taken a share that outlives its exclusive hold.
    while (m_shares > 0) {
        waitForReaders();
        state.lock();
    }
    m_owner = self;
    m_exclusiveHolds = 1;
}

void CXReadWriteLock::UnlockExclusive() {
    const CXCriticalSectionGuard state(m_state);
    --m_exclusiveRequests;
    if (--m_exclusiveHolds > 0) {
        return;
    }
    m_owner = kCXNoThread;
    m_exclusive.Unlock();
    m_writerDone.Set();
}

bool CXReadWriteLock::HoldsShare(CXThreadId thread) const {
    for (const Hold& hold : m_holds) {
        if (hold.thread == thread) {
            return true;
        }
    }
    return m_moreHolds.find(thread) != m_moreHolds.end();
}

void CXReadWriteLock::AddHold(CXThreadId thread) {
    Hold* empty = nullptr;
    for (Hold& hold : m_holds) {
        if (hold.thread == thread) {
            ++hold.count;
            return;
        }
        if (hold.count == 0 && empty == nullptr) {
            empty = &hold;
        }
    }
    if (empty != nullptr && m_moreHolds.find(thread) == m_moreHolds.end()) {
        *empty = {.thread = thread, .count = 1};
    } else {
        ++m_moreHolds[thread];
    }
}

void CXReadWriteLock::DropHold(CXThreadId thread) {
    for (Hold& hold : m_holds) {
        if (hold.thread == thread) {
            if (--hold.count == 0) {
                hold.thread = kCXNoThread;
            }
            return;
        }
    }
    const auto found = m_moreHolds.find(thread);
    if (found != m_moreHolds.end() && --found->second == 0) {
        m_moreHolds.erase(found);
    }
}
