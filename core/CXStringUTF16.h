// UTF-16 text in a CXString, the form passed to wide platform calls.
#pragma once

#include "core/CXString.h"

/// A CXString that holds little-endian UTF-16 units followed by one zero byte (units * 2 + 1 bytes;
/// the block's own NUL completes the two-byte terminator), and a 16-byte scratch area that makes
/// the units of an inline string aligned. Used on locals only.
class CXStringUTF16 : public CXString {
public:
    CXStringUTF16() = default;
    /// Copies `count` units.
    CXStringUTF16(const char16_t* units, size_t count);

    /// Units without the terminator.
    size_t CountUnits() const { return GetLength() / 2; }
    /// Zero-terminated units; valid while the object lives and isn't changed.
    const char16_t* GetUnits() const;
    operator const char16_t*() const { return GetUnits(); }

private:
    mutable char16_t m_scratch[8] = {};
};

/// UTF-8 to UTF-16; what can't be decoded or written becomes '?'.
CXStringUTF16 ToUTF16(absl::string_view view);
/// NUL-terminated units to UTF-8; stops at a lone low surrogate.
CXString FromUTF16(const char16_t* units);
/// All units to UTF-8; lone surrogates become '?'.
CXString FromUTF16(const CXStringUTF16& text);
