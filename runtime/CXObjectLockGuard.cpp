#include "runtime/CXObjectLockGuard.h"

#include <map>
#include <memory>
#include <vector>

namespace {

constexpr uint32_t kBuckets = 32;

struct Entry {
    uint32_t references = 0;
    std::unique_ptr<CXReadWriteLock> lock;
};

struct Bucket {
    CXCriticalSection section;
    std::map<uint64_t, Entry> entries;
    std::vector<std::unique_ptr<CXReadWriteLock>> freeLocks;
};

Bucket* GetBuckets() {
    // Destructors of static objects may lock, so the table is never destroyed.
    static Bucket* buckets = new Bucket[kBuckets];
    return buckets;
}

} // namespace

uint32_t CXObjectLockGuard::GetBucket(uint64_t address) {
    uint32_t hash = 0x84222325;
    for (int shift = 0; shift < 64; shift += 8) {
        hash = (hash * 0x1B3) ^ static_cast<uint32_t>((address >> shift) & 0xFF);
    }
    return hash % kBuckets;
}

CXObjectLockGuard::CXObjectLockGuard(const void* address, CXLockMode mode)
    : m_address(reinterpret_cast<uintptr_t>(address)), m_mode(mode) {
    Bucket& bucket = GetBuckets()[GetBucket(m_address)];
    {
        const CXCriticalSectionGuard guard(bucket.section);
        Entry& entry = bucket.entries[m_address];
        if (entry.references++ == 0) {
            if (bucket.freeLocks.empty()) {
                entry.lock = std::make_unique<CXReadWriteLock>();
            } else {
                entry.lock = std::move(bucket.freeLocks.back());
                bucket.freeLocks.pop_back();
            }
        }
        m_lock = entry.lock.get();
    }
    m_lock->Lock(m_mode);
}

CXObjectLockGuard::~CXObjectLockGuard() {
    m_lock->Unlock(m_mode);
    Bucket& bucket = GetBuckets()[GetBucket(m_address)];
    const CXCriticalSectionGuard guard(bucket.section);
    const auto found = bucket.entries.find(m_address);
    if (--found->second.references == 0) {
        bucket.freeLocks.push_back(std::move(found->second.lock));
        bucket.entries.erase(found);
    }
}

size_t CXObjectLockGuard::CountLockedAddresses() {
    size_t count = 0;
    for (uint32_t index = 0; index < kBuckets; ++index) {
        const CXCriticalSectionGuard guard(GetBuckets()[index].section);
        count += GetBuckets()[index].entries.size();
    }
    return count;
}
