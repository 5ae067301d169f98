#include "core/CXTime.h"

#include "core/CXLock.h"
#include "core/CXLog.h"
#include "core/CXTimePlatform.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr int64_t kMillisecondsPerSecond = 1000;
// The last second that every platform's calendar functions take: just before the end of the year
// 2999, UTC.
constexpr int64_t kLatestSecond = 0x7915ecbfe;

struct FirstSample {
    CXCriticalSection lock;
    int64_t time = 0;
};

// Whole seconds at or before `timestamp`, also before the epoch.
int64_t SecondsOf(int64_t timestamp) {
    const int64_t seconds = timestamp / kMillisecondsPerSecond;
    return timestamp % kMillisecondsPerSecond < 0 ? seconds - 1 : seconds;
}

} // namespace

void CXTime::TakeFirstSample() {
    static CXImmortal<FirstSample> sample;
    const CXCriticalSectionGuard guard(sample.Get().lock);
    if (sample.Get().time == 0) {
        sample.Get().time = GetCurrentTime();
    }
}

int64_t CXTime::GetStartOfDay(int64_t timestamp) {
    const int64_t seconds = SecondsOf(timestamp);
    std::tm calendar{};
    if (seconds <= kLatestSecond && CXTimePlatform::ToLocal(seconds, calendar)) {
        calendar.tm_hour = 0;
        calendar.tm_min = 0;
        calendar.tm_sec = 0;
        calendar.tm_isdst = -1;
        int64_t midnight = 0;
        if (CXTimePlatform::FromLocal(calendar, midnight)) {
            return midnight * kMillisecondsPerSecond;
        }
    }
    CXLog("CXTime::GetStartOfDay> timestamp out of range for this platform");
    return 0;
}

CXTimeNatural::CXTimeNatural(int64_t timestamp) {
    static constinit std::atomic<bool> reported{false};
    int64_t seconds = SecondsOf(timestamp);
    if (seconds > kLatestSecond) {
        seconds = kLatestSecond;
        // Marked first: the log line makes a time of its own.
        if (!reported.exchange(true)) {
            CXLog("CXTimeNatural> input timestamp out of range for this platform");
        }
    }
    std::tm calendar{};
    if (!CXTimePlatform::ToLocal(seconds, calendar)) {
        return;
    }
    year = calendar.tm_year + 1900;
    month = calendar.tm_mon + 1;
    day = calendar.tm_mday;
    hour = calendar.tm_hour;
    minute = calendar.tm_min;
    second = calendar.tm_sec;
    timeZoneName = CXTimePlatform::ZoneName(calendar);
}

void CXSleep(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
