// The data pair: typed bytes, the payload of every leaf and every key of the
// data tree.
#pragma once

#include "core/CXString.h"

#include <absl/strings/string_view.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// Type codes of a data pair. The geometry types exist for the window's values
/// only.
enum DNType : uint32_t {
    kDNTypeNone = 0,
    kDNTypeFolder = 1,
    kDNTypeInt = 2,
    kDNTypeFloat = 3,
    kDNTypeString = 4,
    kDNTypeRaw = 5,
    kDNTypeCompressed = 6,
    kDNTypeFloats = 7,
    kDNTypeBool = 8,
    kDNTypeInts = 9,
    kDNTypeInt64 = 10,
    kDNTypeWhiteout = 11, ///< marks a key as removed
    kDNTypeBox2i = 12,    ///< CXBox2i
    kDNTypeVector2i = 13, ///< CXVector2i
    kDNTypeVector2 = 14,  ///< CXVector2
    kDNTypeColor = 15,    ///< CXColor
};

/// "folder", "int", ... for the codes 1 to 9; the empty text for every other.
const char* DNTypeName(uint32_t type);

/// A type code and the encoded bytes, a plain value. Numbers are in the
/// machine's order without header or padding; int, float and bool live in the
/// string's word and cost no allocation. Two pairs are equal if type and bytes
/// are, so an int key 1 and a string key "1" differ.
struct DNData {
    CXString data;
    uint32_t type = kDNTypeNone;

    DNData() = default;
    DNData(CXString bytes, uint32_t typeCode)
        : data(static_cast<CXString&&>(bytes)), type(typeCode) {}

    static DNData Folder() { return {CXString(), kDNTypeFolder}; }
    static DNData Int(int32_t value);
    static DNData Int64(int64_t value);
    static DNData Float(float value);
    static DNData Bool(bool value);
    static DNData String(const CXString& text) { return {text, kDNTypeString}; }
    static DNData String(absl::string_view text) { return {CXString(text), kDNTypeString}; }
    static DNData String(const char* text) { return {CXString(text), kDNTypeString}; }
    static DNData Raw(const void* bytes, size_t count);
    static DNData Ints(const int32_t* values, size_t count);
    static DNData Floats(const float* values, size_t count);
    static DNData Whiteout() { return {CXString(), kDNTypeWhiteout}; }

    /// Neither type nor bytes.
    bool IsNone() const { return type == kDNTypeNone && data.IsEmpty(); }

    // Typed reads: whatever is stored is translated (dn/DNTranslator.h); when
    // that fails, or when there is nothing to translate, the default is returned.
    bool GetBool(bool defaultValue = false) const;
    /// A number that doesn't fit 32 bits gives the default.
    int32_t GetInt(int32_t defaultValue = 0) const;
    int64_t GetInt64(int64_t defaultValue = 0) const;
    float GetFloat(float defaultValue = 0) const;
    CXString GetString(const CXString& defaultValue = CXString()) const;
    std::vector<float> GetFloats(const std::vector<float>& defaultValue = {}) const;
    std::vector<int32_t> GetInts(const std::vector<int32_t>& defaultValue = {}) const;

    // Raw reads of the bytes, whatever the type says: missing bytes read as zero,
    // extra ones are left alone.
    int32_t ReadRawInt() const;
    int64_t ReadRawInt64() const;
    float ReadRawFloat() const;
    bool ReadRawBool() const;
    /// Number of whole 4-byte elements.
    size_t GetElementCount() const { return data.GetLength() / 4; }
};

inline bool operator==(const DNData& a, const DNData& b) {
    return a.type == b.type && a.data == b.data;
}
inline bool operator!=(const DNData& a, const DNData& b) {
    return !(a == b);
}
