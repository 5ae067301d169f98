// Number parsing, ASCII comparison and UTF-8 helpers on views.
#pragma once

#include <absl/strings/string_view.h>

#include <cstdint>

class CXStringEdit;

/// Reads an optional minus and ASCII digits at the front of `cursor` and moves it behind them.
/// False without a digit or on overflow; then the cursor stays put and out is 0.
bool ParseInt64(absl::string_view& cursor, int64_t& out);
/// The same for 32 bits.
bool ParseInt32(absl::string_view& cursor, int32_t& out);
/// The whole view as a number, else the default (overflow too).
int64_t ToInt64(absl::string_view view, int64_t defaultValue);
/// The whole view as a number, else 0.
int32_t ToInt32(absl::string_view view);
/// No sign accepted; empty, a non-digit or overflow give the default.
uint64_t ToUInt64(absl::string_view view, uint64_t defaultValue);

/// Lower-cases one ASCII byte.
constexpr unsigned char AsciiLower(unsigned char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + 32) : byte;
}

/// Decodes the first code point. On any fault false, code 0x3F, size 0. Codes of 0x10FFFF and
/// surrogates are faults; overlong forms behind a legal lead byte are not.
bool DecodeCodePoint(absl::string_view view, uint32_t& code, uint32_t& size);
/// Appends the UTF-8 form with thresholds one lower than usual (0x7F takes two bytes); false above
/// 0x10FFFF.
bool AppendCodePoint(CXStringEdit& edit, uint32_t code);
/// Whether every code point of the text can be decoded.
bool IsUTF8(absl::string_view view);
/// Number of code points; an invalid sequence counts as one of one byte.
uint64_t CountCodePoints(absl::string_view view);
/// Bytes of the first code point, 1 if invalid, 0 for an empty view.
uint32_t CodePointSize(absl::string_view view);

/// ASCII-only equality without regard to case.
bool EqualsNoCase(absl::string_view a, absl::string_view b);
/// Order without regard to case: below 0, 0 or above 0. Beyond ASCII both rests are folded by the
/// Unicode 8.0.0 CaseFolding table (statuses C and F) unless asciiOnly.
int CompareNoCase(absl::string_view a, absl::string_view b, bool asciiOnly);
/// Appends the case-folded form of `text`; bytes that don't decode are copied.
void AppendCaseFolded(CXStringEdit& edit, absl::string_view text);
