#include "dn/DNData.h"

#include "dn/DNTranslator.h"

#include <cstring>
#include <limits>

namespace {

template <typename Value> DNData FromScalar(Value value, uint32_t type) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    return {CXString(bytes, sizeof value), type};
}

template <typename Value> Value ReadScalar(const CXString& data) {
    Value value = 0;
    const size_t length = data.GetLength();
    std::memcpy(&value, data.GetData(), length < sizeof value ? length : sizeof value);
    return value;
}

template <typename Value> std::vector<Value> ReadElements(const DNData& pair) {
    std::vector<Value> elements(pair.GetElementCount());
    if (!elements.empty()) {
        std::memcpy(elements.data(), pair.data.GetData(), elements.size() * sizeof(Value));
    }
    return elements;
}

/// True if the pair could be brought to exactly that type.
bool Convert(const DNData& from, uint32_t type, DNData& out) {
    return Translate(from, type, out) == kCXResultOK && out.type == type;
}

} // namespace

const char* DNTypeName(uint32_t type) {
    static const char* const kNames[] = {"",    "folder",     "int",     "float",   "string",
                                         "raw", "compressed", "float[]", "boolean", "int[]"};
    return type < sizeof kNames / sizeof kNames[0] ? kNames[type] : "";
}

DNData DNData::Int(int32_t value) {
    return FromScalar(value, kDNTypeInt);
}

DNData DNData::Int64(int64_t value) {
    return FromScalar(value, kDNTypeInt64);
}

DNData DNData::Float(float value) {
    return FromScalar(value, kDNTypeFloat);
}

DNData DNData::Bool(bool value) {
    return FromScalar(static_cast<char>(value ? 1 : 0), kDNTypeBool);
}

DNData DNData::Raw(const void* bytes, size_t count) {
    return {CXString(static_cast<const char*>(bytes), count), kDNTypeRaw};
}

DNData DNData::Ints(const int32_t* values, size_t count) {
    return {CXString(reinterpret_cast<const char*>(values), count * sizeof *values), kDNTypeInts};
}

DNData DNData::Floats(const float* values, size_t count) {
    return {CXString(reinterpret_cast<const char*>(values), count * sizeof *values), kDNTypeFloats};
}

int32_t DNData::ReadRawInt() const {
    return ReadScalar<int32_t>(data);
}

int64_t DNData::ReadRawInt64() const {
    return ReadScalar<int64_t>(data);
}

float DNData::ReadRawFloat() const {
    return ReadScalar<float>(data);
}

bool DNData::ReadRawBool() const {
    return ReadScalar<char>(data) != 0;
}

bool DNData::GetBool(bool defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeBool, converted) ? converted.ReadRawBool() : defaultValue;
}

int32_t DNData::GetInt(int32_t defaultValue) const {
    if (type == kDNTypeInt && data.GetLength() == sizeof(int32_t)) {
        return ReadRawInt();
    }
    DNData converted;
    if (!Convert(*this, kDNTypeInt64, converted)) {
        return defaultValue;
    }
    const int64_t number = converted.ReadRawInt64();
    const bool fits = number >= std::numeric_limits<int32_t>::min() &&
                      number <= std::numeric_limits<int32_t>::max();
    return fits ? static_cast<int32_t>(number) : defaultValue;
}

int64_t DNData::GetInt64(int64_t defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeInt64, converted) ? converted.ReadRawInt64() : defaultValue;
}

float DNData::GetFloat(float defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeFloat, converted) ? converted.ReadRawFloat() : defaultValue;
}

CXString DNData::GetString(const CXString& defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeString, converted) ? converted.data : defaultValue;
}

std::vector<float> DNData::GetFloats(const std::vector<float>& defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeFloats, converted) ? ReadElements<float>(converted) : defaultValue;
}

std::vector<int32_t> DNData::GetInts(const std::vector<int32_t>& defaultValue) const {
    DNData converted;
    return Convert(*this, kDNTypeInts, converted) ? ReadElements<int32_t>(converted) : defaultValue;
}
