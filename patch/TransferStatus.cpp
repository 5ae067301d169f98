#include "patch/TransferStatus.h"

#include "core/CXLocalisation.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kFirstSeconds = 5.0;
constexpr double kLargestKiBRate = 512.0;
constexpr double kSecondsPerMinute = 60.0;
constexpr double kSecondsPerHour = 3600.0;

void AppendRate(double kibPerSecond, CXStringEdit& text) {
    if (kibPerSecond > kLargestKiBRate) {
        text.Append(FormatLocalisedString("$velpatch_task_rate_mib",
                                          CXString::Format("%0.1f", kibPerSecond / 1024.0)));
    } else {
        text.Append(
            FormatLocalisedString("$velpatch_task_rate_kib", static_cast<int64_t>(kibPerSecond)));
    }
}

/// `count` of a unit, rounded, by the text for one or the text for several.
void AppendCount(double count, const char* oneKey, const char* severalKey, CXStringEdit& text) {
    // A transfer that hardly moves would take longer than a number holds.
    constexpr double kMost = 1e9;
    const auto whole = static_cast<int64_t>(std::llround(std::min(count, kMost)));
    text.Append(whole < 2 ? GetLocalisedString(oneKey) : FormatLocalisedString(severalKey, whole));
}

void AppendTimeLeft(double seconds, CXStringEdit& text) {
    if (seconds > kSecondsPerHour - kSecondsPerMinute) {
        AppendCount(seconds / kSecondsPerHour, "$velpatch_task_hour_remain",
                    "$velpatch_task_hours_remain", text);
    } else if (seconds > kSecondsPerMinute - 1.0) {
        AppendCount(seconds / kSecondsPerMinute, "$velpatch_task_minute_remain",
                    "$velpatch_task_minutes_remain", text);
    } else {
        text.Append(GetLocalisedString("$velpatch_task_seconds_remain"));
    }
}

} // namespace

void AppendTransferStatus(const CXStreamProgressCallbackData& data, int64_t nowMs,
                          CXStringEdit& text) {
    const double elapsed = static_cast<double>(nowMs - data.startTime) / 1000.0;
    if (!(elapsed > kFirstSeconds)) {
        return;
    }
    AppendRate(static_cast<double>(data.bytesDone) / 1024.0 / elapsed, text);
    if (data.sizeUnknown == 0 && data.fraction > 0.0F) {
        AppendTimeLeft(elapsed / static_cast<double>(data.fraction) - elapsed, text);
    }
}
