#include "core/CXEncoding.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Value of a Base64 character, or -1.
int ValueOf(char character) {
    if (character >= 'A' && character <= 'Z') {
        return character - 'A';
    }
    if (character >= 'a' && character <= 'z') {
        return character - 'a' + 26;
    }
    if (character >= '0' && character <= '9') {
        return character - '0' + 52;
    }
    return character == '+' ? 62 : character == '/' ? 63 : -1;
}

} // namespace

void Base64Encode(const void* data, size_t count, CXStringEdit& out) {
    // Built beside `out`, which may hold the source and moves when it grows.
    CXStringEdit text;
    text.Reserve(0, count / 3 * 4 + 4);
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t at = 0; at < count; at += 3) {
        const size_t left = count - at;
        const uint32_t group = static_cast<uint32_t>(bytes[at]) << 16 |
                               (left > 1 ? static_cast<uint32_t>(bytes[at + 1]) << 8 : 0) |
                               (left > 2 ? bytes[at + 2] : 0u);
        const char quad[4] = {kAlphabet[group >> 18], kAlphabet[(group >> 12) & 63],
                              left > 1 ? kAlphabet[(group >> 6) & 63] : '=',
                              left > 2 ? kAlphabet[group & 63] : '='};
        text.Append(absl::string_view(quad, sizeof(quad)));
    }
    out.Append(text.View());
}

CXResult Base64Decode(absl::string_view text, CXStringEdit& out) {
    CXStringEdit bytes;
    uint32_t group = 0;
    size_t place = 0;
    size_t padding = 0;
    for (const char character : text) {
        if (character == ' ' || character == '\t' || character == '\r' || character == '\n') {
            continue;
        }
        const int value = ValueOf(character);
        if (character == '=' ? place < 2 : value < 0 || padding != 0) {
            return kCXResultBadData;
        }
        padding += character == '=' ? 1 : 0;
        group = group << 6 | (character == '=' ? 0u : static_cast<uint32_t>(value));
        if (++place == 4) {
            const char decoded[3] = {static_cast<char>(group >> 16), static_cast<char>(group >> 8),
                                     static_cast<char>(group)};
            bytes.Append(absl::string_view(decoded, 3 - padding));
            group = 0;
            place = 0;
        }
    }
    if (place != 0) {
        return kCXResultBadData;
    }
    out.Append(bytes.View());
    return kCXResultOK;
}
