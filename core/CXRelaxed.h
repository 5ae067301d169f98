// A plain field that other threads may look at.
#pragma once

#include <atomic>

/// Reads and writes like a T, each load and store whole but without any order among them. The
/// compound operators (for integers) change the value in one step, so that threads which set
/// different bits don't lose each other's.
template <typename T> class CXRelaxed {
public:
    CXRelaxed(T value) : m_value(value) {}
    CXRelaxed(const CXRelaxed& other) : m_value(static_cast<T>(other)) {}
    CXRelaxed& operator=(const CXRelaxed& other) { return *this = static_cast<T>(other); }
    CXRelaxed& operator=(T value) {
        m_value.store(value, std::memory_order_relaxed);
        return *this;
    }
    operator T() const { return m_value.load(std::memory_order_relaxed); }
    CXRelaxed& operator|=(T bits) {
        m_value.fetch_or(bits, std::memory_order_relaxed);
        return *this;
    }
    CXRelaxed& operator&=(T bits) {
        m_value.fetch_and(bits, std::memory_order_relaxed);
        return *this;
    }

private:
    std::atomic<T> m_value;
};
