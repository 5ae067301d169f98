// Base of objects that are owned by counted references.
#pragma once

#include <atomic>
#include <cstdint>

/// Starts at 0; whoever keeps the object raises the count. When it falls back to 0 the virtual
/// `ReleaseObject` runs, which deletes the object unless a class says otherwise. Any thread.
class DynamicReferenceCount {
public:
    DynamicReferenceCount() = default;
    /// A copy is a new object with nobody referring to it.
    DynamicReferenceCount(const DynamicReferenceCount&) {}
    DynamicReferenceCount& operator=(const DynamicReferenceCount&) { return *this; }
    virtual ~DynamicReferenceCount() = default;

    void AddReference() const { m_count.fetch_add(1, std::memory_order_relaxed); }
    void RemoveReference() const {
        if (m_count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            const_cast<DynamicReferenceCount*>(this)->ReleaseObject();
        }
    }
    int64_t GetReferenceCount() const { return m_count.load(std::memory_order_relaxed); }

protected:
    /// Out of line: GCC 12 takes an inlined one for a mismatch where a class has its own allocator.
    virtual void ReleaseObject();

private:
    mutable std::atomic<int64_t> m_count{0};
};
