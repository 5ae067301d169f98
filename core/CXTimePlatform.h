// The calendar functions of the platform, behind CXTime and CXTimeNatural.
#pragma once

#include "core/CXString.h"

#include <cstdint>
#include <ctime>

/// Conversions between seconds since the Unix epoch and the local calendar. False where the
/// platform refuses the value. Any thread.
namespace CXTimePlatform {

bool ToLocal(int64_t seconds, std::tm& calendar);
/// Normalises `calendar`; an hour that a clock change skips becomes the next one that exists.
bool FromLocal(std::tm& calendar, int64_t& seconds);
/// Abbreviated name of the zone of a time from ToLocal; empty where the platform has none.
CXString ZoneName(const std::tm& calendar);

} // namespace CXTimePlatform
