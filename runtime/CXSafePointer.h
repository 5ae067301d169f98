// Weak pointers that clear themselves when their target dies.
#pragma once

#include "core/CXLock.h"

#include <atomic>

class CXSafePointerBase;

/// Base of everything that a CXSafePointer can point to. Copying a target doesn't copy who points
/// to it.
class CXSafePointerTarget {
public:
    CXSafePointerTarget() = default;
    CXSafePointerTarget(const CXSafePointerTarget&) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is assigned
    CXSafePointerTarget& operator=(const CXSafePointerTarget&) { return *this; }
    virtual ~CXSafePointerTarget();

protected:
    /// Clears every pointer to this object early. Call it first in the destructor of a class whose
    /// pointers other threads look at.
    void ClearSafePointers();

private:
    friend class CXSafePointerBase;
    CXSafePointerBase* m_head = nullptr; // first of a circular list
};

/// The untyped part of a safe pointer. Links change under one process-wide critical section, so
/// pointers may be made, copied and destroyed on any thread. That a target isn't destroyed while
/// it is being used is up to the threads concerned: usually all of it happens on one.
class CXSafePointerBase {
public:
    CXSafePointerBase() = default;
    explicit CXSafePointerBase(CXSafePointerTarget* target) { Set(target); }
    CXSafePointerBase(const CXSafePointerBase& other) { SetFrom(other); }
    CXSafePointerBase& operator=(const CXSafePointerBase& other) {
        if (this != &other) {
            SetFrom(other);
        }
        return *this;
    }
    ~CXSafePointerBase() { Set(nullptr); }

    bool IsSet() const { return GetTarget() != nullptr; }
    CXSafePointerTarget* GetTarget() const { return m_target.load(std::memory_order_acquire); }

protected:
    void Set(CXSafePointerTarget* target);

private:
    friend class CXSafePointerTarget;
    void SetFrom(const CXSafePointerBase& other);
    void Link(CXSafePointerTarget* target); // both under the section
    void Unlink();

    std::atomic<CXSafePointerTarget*> m_target{nullptr};
    CXSafePointerBase* m_previous = nullptr;
    CXSafePointerBase* m_next = nullptr;
};

/// Weak pointer to a T, which derives from CXSafePointerTarget; null once the target is gone.
template <typename T> class CXSafePointer : public CXSafePointerBase {
public:
    CXSafePointer() = default;
    CXSafePointer(T* target) : CXSafePointerBase(target) {}
    CXSafePointer& operator=(T* target) {
        Set(target);
        return *this;
    }

    T* Get() const { return static_cast<T*>(GetTarget()); }
    T* operator->() const { return Get(); }
    explicit operator bool() const { return IsSet(); }
};
