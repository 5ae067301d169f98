// Numbers as the data tree reads them from text.
#pragma once

#include "core/CXString.h"

#include <absl/strings/string_view.h>

#include <cstdint>
#include <vector>

/// Readers of whole texts: decimal digits with an optional minus, no exponent, no hexadecimal, no
/// "inf" or "nan", and the same in every locale. Blanks (and, for integers and lists, tabs) may
/// stand on either side. False leaves the output unspecified.
namespace DNNumberText {

bool ReadInt(absl::string_view text, int32_t& out);
bool ReadInt64(absl::string_view text, int64_t& out);
/// Digits with at most one point; a number beyond the range of a float is refused, one too small
/// for it becomes 0.
bool ReadFloat(absl::string_view text, float& out);
/// Numbers separated by commas; at least one, and none may be missing.
bool ReadInts(absl::string_view text, std::vector<int32_t>& out);
bool ReadFloats(absl::string_view text, std::vector<float>& out);

} // namespace DNNumberText
