// Scoped lock for any object, found by the object's address.
#pragma once

#include "runtime/CXReadWriteLock.h"

#include <cstdint>

/// Locks "the object at this address" for a scope without a lock inside the object. Locks are made
/// on demand in a process-wide table of 32 buckets and kept for reuse. Made and destroyed on one
/// thread.
class CXObjectLockGuard : public CXNonCopyable {
public:
    CXObjectLockGuard(const void* address, CXLockMode mode);
    ~CXObjectLockGuard();

    /// Bucket of an address: the 32-bit FNV-1 form of its eight bytes, low byte first, modulo 32.
    static uint32_t GetBucket(uint64_t address);
    /// Number of addresses that somebody locks at this moment (for tests).
    static size_t CountLockedAddresses();

private:
    const uint64_t m_address;
    const CXLockMode m_mode;
    CXReadWriteLock* m_lock;
};
