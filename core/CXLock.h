// Plain and recursive critical sections with their scope guards.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

/// Identifier of a thread, unique among live threads; kCXNoThread stands for none.
using CXThreadId = uint64_t;
inline constexpr CXThreadId kCXNoThread = ~static_cast<CXThreadId>(0);

/// Identifier of the calling thread (cached in thread-local storage).
CXThreadId CXCurrentThreadId();

/// A plain critical section. Not recursive.
using CXCriticalSection = std::mutex;
/// Scope guard of a critical section.
using CXCriticalSectionGuard = std::lock_guard<CXCriticalSection>;

/// A critical section that its owner may take again. Taking it: if the owner is the calling
/// thread only the count rises, else the section is entered and the owner recorded.
class CXRecursiveLock {
public:
    CXRecursiveLock() = default;
    CXRecursiveLock(const CXRecursiveLock&) = delete;
    CXRecursiveLock& operator=(const CXRecursiveLock&) = delete;

    void Lock() {
        const CXThreadId self = CXCurrentThreadId();
        if (m_owner.load(std::memory_order_relaxed) != self) {
            m_section.lock();
            m_owner.store(self, std::memory_order_relaxed);
        }
        ++m_count;
    }
    void Unlock() {
        if (--m_count == 0) {
            m_owner.store(kCXNoThread, std::memory_order_relaxed);
            m_section.unlock();
        }
    }
    /// True if the calling thread holds the lock.
    bool IsHeld() const { return m_owner.load(std::memory_order_relaxed) == CXCurrentThreadId(); }

private:
    CXCriticalSection m_section;
    uint32_t m_count = 0;
    std::atomic<CXThreadId> m_owner{kCXNoThread};
};

/// Scope guard of a CXRecursiveLock.
class CXRecursiveLockGuard {
public:
    explicit CXRecursiveLockGuard(CXRecursiveLock& lock) : m_lock(lock) { m_lock.Lock(); }
    ~CXRecursiveLockGuard() { m_lock.Unlock(); }
    CXRecursiveLockGuard(const CXRecursiveLockGuard&) = delete;
    CXRecursiveLockGuard& operator=(const CXRecursiveLockGuard&) = delete;

private:
    CXRecursiveLock& m_lock;
};

/// Base of objects that have an identity and can't be copied.
class CXNonCopyable {
protected:
    CXNonCopyable() = default;
    ~CXNonCopyable() = default;

public:
    CXNonCopyable(const CXNonCopyable&) = delete;
    CXNonCopyable& operator=(const CXNonCopyable&) = delete;
};

/// Holds an object that is never destroyed. As a function-local static it serves destructors of
/// other static objects, and what runs before the first static initialiser.
template <typename T> class CXImmortal {
public:
    CXImmortal() { ::new (static_cast<void*>(m_storage)) T(); }
    CXImmortal(const CXImmortal&) = delete;
    CXImmortal& operator=(const CXImmortal&) = delete;

    T& Get() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};
