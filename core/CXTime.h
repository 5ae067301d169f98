// The clock and the calendar.
#pragma once

#include "core/CXString.h"

#include <cstdint>

/// Milliseconds since the Unix epoch.
class CXTime {
public:
    /// The system's clock, now.
    static int64_t GetCurrentTime();
    /// Midnight of the local day that holds `timestamp` (ms); out of range it logs and answers 0.
    static int64_t GetStartOfDay(int64_t timestamp);
    /// Takes the process's first time sample, once, under the time lock.
    static void TakeFirstSample();
};

/// Local calendar breakdown of a time stamp.
struct CXTimeNatural {
    CXTimeNatural() = default;
    /// `timestamp` in ms; beyond the platform's range it is replaced by the limit, logged once.
    explicit CXTimeNatural(int64_t timestamp);

    int32_t year = 0; ///< full year
    int32_t month = 0;
    int32_t day = 0;
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    CXString timeZoneName;
};

/// Lets the calling thread sleep for `milliseconds`.
void CXSleep(uint32_t milliseconds);
