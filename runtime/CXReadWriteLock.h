// Lock with three shared modes and one exclusive mode.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXEvent.h"

#include <cstddef>
#include <cstdint>
#include <map>

/// Modes of a CXReadWriteLock.
enum class CXLockMode : uint32_t {
    Share = 1,       ///< waits behind pending exclusive requests
    ShareWithin = 2, ///< passes them while somebody holds ShareOpen
    ShareOpen = 3,   ///< waits like Share; lets ShareWithin pass
    Exclusive = 4,   ///< alone; taken again by its owner at will
};

/// Shares run side by side; an exclusive request waits until no share is held, and new shares wait
/// until no exclusive request is left. Who holds the lock exclusively, or holds a share already,
/// gets (further) shares at once. A thread that holds a share and asks for the exclusive mode waits
/// for itself for ever. Each thread gives back what it took, in the mode in which it took it.
class CXReadWriteLock : public CXNonCopyable {
public:
    CXReadWriteLock() = default;

    void Lock(CXLockMode mode);
    void Unlock(CXLockMode mode);

private:
    struct Hold {
        CXThreadId thread = kCXNoThread;
        uint32_t count = 0;
    };
    static constexpr size_t kFastHolds = 4;

    void LockShare(CXLockMode mode);
    void LockExclusive();
    void UnlockShare(CXLockMode mode);
    void UnlockExclusive();
    bool HoldsShare(CXThreadId thread) const;
    void AddHold(CXThreadId thread);
    void DropHold(CXThreadId thread);

    CXEvent m_noReaders;
    CXEvent m_writerDone;
    CXCriticalSection m_state; // over everything below, m_exclusive apart
    uint32_t m_shares = 0;
    uint32_t m_openShares = 0;        // of them in mode ShareOpen
    uint32_t m_exclusiveRequests = 0; // waiting and granted
    uint32_t m_exclusiveHolds = 0;
    CXThreadId m_owner = kCXNoThread;
    CXRecursiveLock m_exclusive;
    Hold m_holds[kFastHolds];
    std::map<CXThreadId, uint32_t> m_moreHolds; // when the table is full
};

/// Scope guard of a CXReadWriteLock.
class CXReadWriteLockGuard : public CXNonCopyable {
public:
    CXReadWriteLockGuard(CXReadWriteLock& lock, CXLockMode mode) : m_lock(lock), m_mode(mode) {
        m_lock.Lock(m_mode);
    }
    ~CXReadWriteLockGuard() { m_lock.Unlock(m_mode); }

private:
    CXReadWriteLock& m_lock;
    const CXLockMode m_mode;
};
