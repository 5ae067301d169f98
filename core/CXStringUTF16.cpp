#include "core/CXStringUTF16.h"

#include "core/CXLog.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

#include <cstring>

namespace {

constexpr char16_t kReplacement = u'?';
constexpr char16_t kNoUnits[1] = {0};

bool IsHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Only the low ten bits of the second unit count; it is not examined.
uint32_t JoinSurrogates(char16_t high, char16_t low) {
    return 0x10000u + ((high & 0x3FFu) << 10) + (low & 0x3FFu);
}

// The text that a CXStringUTF16 holds: the units, then one zero byte.
CXString UnitText(const char* bytes, size_t count) {
    CXStringEdit text(absl::string_view(bytes, count * 2));
    if (!text.IsEmpty()) {
        text.AppendByte(0);
    }
    return CXString(text);
}

} // namespace

CXStringUTF16::CXStringUTF16(const char16_t* units, size_t count)
    : CXString(UnitText(reinterpret_cast<const char*>(units), units == nullptr ? 0 : count)) {}

const char16_t* CXStringUTF16::GetUnits() const {
    const char* data = GetData();
    const size_t length = GetLength();
    if (length == 0) {
        return kNoUnits;
    }
    if (reinterpret_cast<uintptr_t>(data) % alignof(char16_t) == 0) {
        return reinterpret_cast<const char16_t*>(data);
    }
    if (length + 1 > sizeof(m_scratch)) {
        CXLog("CXStringUTF16::operator const uint16* > overlong unaligned data");
        return kNoUnits;
    }
    std::memcpy(m_scratch, data, length + 1);
    return m_scratch;
}

CXStringUTF16 ToUTF16(absl::string_view view) {
    CXStringEdit units;
    units.Reserve(0, view.size() * 2);
    const auto append = [&units](uint32_t unit) {
        units.AppendByte(static_cast<char>(unit & 0xFF));
        units.AppendByte(static_cast<char>(unit >> 8));
    };
    while (!view.empty()) {
        uint32_t code = 0;
        uint32_t size = 0;
        if (!DecodeCodePoint(view, code, size)) {
            append(kReplacement);
            size = 1;
        } else if (code <= 0xFFFF) {
            append(code);
        } else {
            append(0xD800 + ((code - 0x10000) >> 10));
            append(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
        view.remove_prefix(size);
    }
    return CXStringUTF16(reinterpret_cast<const char16_t*>(units.GetData()), units.GetLength() / 2);
}

CXString FromUTF16(const char16_t* units) {
    CXStringEdit text;
    if (units == nullptr) {
        return CXString();
    }
    for (; *units != 0; ++units) {
        if (IsLowSurrogate(*units)) {
            break;
        }
        if (!IsHighSurrogate(*units)) {
            AppendCodePoint(text, *units);
        } else if (units[1] != 0) {
            AppendCodePoint(text, JoinSurrogates(units[0], units[1]));
            ++units;
        } else {
            text.AppendByte('?');
        }
    }
    return CXString(text);
}

CXString FromUTF16(const CXStringUTF16& source) {
    CXStringEdit text;
    const char* data = source.GetData();
    const size_t count = source.CountUnits();
    const auto unitAt = [data](size_t index) {
        char16_t unit = 0;
        std::memcpy(&unit, data + index * 2, sizeof(unit));
        return unit;
    };
    for (size_t index = 0; index < count; ++index) {
        const char16_t unit = unitAt(index);
        if (!IsHighSurrogate(unit) && !IsLowSurrogate(unit)) {
            AppendCodePoint(text, unit);
        } else if (IsHighSurrogate(unit) && index + 1 < count) {
            ++index;
            AppendCodePoint(text, JoinSurrogates(unit, unitAt(index)));
        } else {
            text.AppendByte('?');
        }
    }
    return CXString(text);
}
