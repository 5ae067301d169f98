#include "net/CXSocketAddress.h"

#include <cstring>
#include <limits>

namespace {

bool IsBlank(char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}
bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// One "%d": blanks, a sign, digits. A number outside 32 bits is none.
bool ScanNumber(absl::string_view text, size_t& cursor, int32_t& number) {
    while (cursor < text.size() && IsBlank(text[cursor])) {
        ++cursor;
    }
    bool negative = false;
    if (cursor < text.size() && (text[cursor] == '-' || text[cursor] == '+')) {
        negative = text[cursor++] == '-';
    }
    const size_t start = cursor;
    int64_t value = 0;
    for (; cursor < text.size() && IsDigit(text[cursor]); ++cursor) {
        value = value * 10 + (text[cursor] - '0');
        if (value > std::numeric_limits<int32_t>::max()) {
            return false;
        }
    }
    number = static_cast<int32_t>(negative ? -value : value);
    return cursor > start;
}

} // namespace

bool CXSocketAddress::ScanFourNumbers(absl::string_view text, int32_t (&numbers)[4]) {
    size_t cursor = 0;
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && (cursor >= text.size() || text[cursor++] != '.')) {
            return false;
        }
        if (!ScanNumber(text, cursor, numbers[i])) {
            return false;
        }
    }
    return true;
}

CXSocketAddress CXSocketAddress::FromText(const CXString& text, uint16_t hostPort) {
    CXSocketAddress out;
    int32_t numbers[4];
    if (!ScanFourNumbers(text, numbers)) {
        return out;
    }
    uint8_t bytes[4];
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<uint8_t>(numbers[i]);
    }
    const uint8_t portBytes[2] = {static_cast<uint8_t>(hostPort >> 8),
                                  static_cast<uint8_t>(hostPort)};
    out.family = kFamilyIPv4;
    std::memcpy(&out.address, bytes, sizeof(bytes));
    std::memcpy(&out.port, portBytes, sizeof(portBytes));
    return out;
}

CXSocketAddress CXSocketAddress::Loopback(uint16_t hostPort) {
    return FromText("127.0.0.1", hostPort);
}

CXString CXSocketAddress::ToText() const {
    uint8_t bytes[4];
    std::memcpy(bytes, &address, sizeof(bytes));
    return CXString::Format("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
}

uint16_t CXSocketAddress::GetPort() const {
    uint8_t bytes[2];
    std::memcpy(bytes, &port, sizeof(bytes));
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
