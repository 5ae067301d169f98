#include "core/CXTime.h"
#include "core/CXTimePlatform.h"

#include <ctime>

#include "core/win32_api.h"

int64_t CXTime::GetCurrentTime() {
    // 100-nanosecond units since 1601.
    constexpr uint64_t kUnitsPerMillisecond = 10000;
    constexpr int64_t kEpochMilliseconds = 11644473600000;
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const uint64_t units = (static_cast<uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return static_cast<int64_t>(units / kUnitsPerMillisecond) - kEpochMilliseconds;
}

bool CXTimePlatform::ToLocal(int64_t seconds, std::tm& calendar) {
    const __time64_t time = seconds;
    return ::_localtime64_s(&calendar, &time) == 0;
}

bool CXTimePlatform::FromLocal(std::tm& calendar, int64_t& seconds) {
    seconds = ::_mktime64(&calendar);
    return seconds != -1;
}

CXString CXTimePlatform::ZoneName(const std::tm&) {
    // The platform's name is a localised sentence in the process code page.
    return CXString();
}
