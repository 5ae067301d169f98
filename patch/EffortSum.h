// Sums of stated efforts, which come from outside and may be absurd.
#pragma once

#include <cstdint>
#include <limits>

/// A 64-bit sum that stops at the ends of its range instead of overflowing.
class EffortSum {
public:
    explicit EffortSum(int64_t start = 0) : m_sum(start) {}
    void Add(int64_t value) {
        if (__builtin_add_overflow(m_sum, value, &m_sum)) {
            m_sum = value > 0 ? std::numeric_limits<int64_t>::max()
                              : std::numeric_limits<int64_t>::min();
        }
    }
    int64_t Get() const { return m_sum; }

private:
    int64_t m_sum;
};
