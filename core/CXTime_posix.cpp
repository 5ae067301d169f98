#include "core/CXTime.h"
#include "core/CXTimePlatform.h"

#include <ctime>

int64_t CXTime::GetCurrentTime() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool CXTimePlatform::ToLocal(int64_t seconds, std::tm& calendar) {
    const auto time = static_cast<std::time_t>(seconds);
    return ::localtime_r(&time, &calendar) != nullptr;
}

bool CXTimePlatform::FromLocal(std::tm& calendar, int64_t& seconds) {
    // -1 is also a time; only a fault leaves the weekday alone.
    calendar.tm_wday = -1;
    seconds = std::mktime(&calendar);
    return calendar.tm_wday != -1;
}

CXString CXTimePlatform::ZoneName(const std::tm& calendar) {
    return CXString(calendar.tm_zone);
}
