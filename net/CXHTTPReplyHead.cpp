#include "net/CXHTTPReplyHead.h"

#include "core/CXText.h"

#include <algorithm>
#include <limits>

namespace {

constexpr absl::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr absl::string_view kBlanks = " \t";
constexpr size_t kRangeUnitLength = 5; // "bytes"

/// Takes the first token off `rest`, with the blanks on both sides of it.
absl::string_view TakeToken(absl::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    const absl::string_view token = rest.substr(0, rest.find_first_of(kBlanks));
    rest.remove_prefix(token.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    return token;
}

/// The digits at the front of `token`, minus signs left out, as a number of at most 63 bits. False
/// without a digit.
bool ReadLength(absl::string_view token, int64_t& out) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    bool found = false;
    bool canSign = true;
    int64_t value = 0;
    for (const char byte : token) {
        if (byte == '-') {
            continue;
        }
        if (canSign && byte == '+') {
            canSign = false;
            continue;
        }
        if (byte < '0' || byte > '9') {
            break;
        }
        canSign = false;
        found = true;
        const int digit = byte - '0';
        value = value > (kMax - digit) / 10 ? kMax : value * 10 + digit;
    }
    if (found) {
        out = value;
    }
    return found;
}

/// The whole of `text` as a decimal number.
bool ReadWhole(absl::string_view text, int64_t& out) {
    int64_t value = 0;
    if (!ParseInt64(text, value) || !text.empty()) {
        return false;
    }
    out = value;
    return true;
}

bool IsPartOrWhole(int32_t status) {
    return status == 200 || status == 206;
}

} // namespace

void CXHTTPReplyHead::TakeLine(absl::string_view line, CXHTTPReply& reply) {
    absl::string_view rest = line;
    absl::string_view token = TakeToken(rest);
    if (token == kByteOrderMark) {
        token = TakeToken(rest);
    }
    if (token.empty()) {
        return;
    }
    if (EqualsNoCase(token, "http/1.1") || EqualsNoCase(token, "http/1.0")) {
        reply.status = ToInt32(TakeToken(rest));
    } else if (EqualsNoCase(token, "content-length:")) {
        ReadLength(TakeToken(rest), length);
    } else if (EqualsNoCase(token, "transfer-encoding:")) {
        transferEncoding = rest;
        transferEncoding.ToLower();
    } else if (EqualsNoCase(token, "content-range:")) {
        TakeContentRange(rest, reply.status);
    } else {
        CXString name = token.substr(0, token.size() - 1);
        name.ToLower();
        reply.headers.emplace(std::move(name), CXString(rest));
    }
}

void CXHTTPReplyHead::TakeContentRange(absl::string_view rest, int32_t status) {
    if (TakeToken(rest).size() != kRangeUnitLength) {
        return;
    }
    const size_t slash = std::min(rest.find('/'), rest.size());
    const absl::string_view range = rest.substr(0, slash);
    // Only here is the total the length of what follows: a refusal states the size of the whole,
    // and sends something else.
    if (slash < rest.size() && IsPartOrWhole(status)) {
        ReadWhole(rest.substr(slash + 1), length);
    }
    if (range != "*") {
        ReadWhole(range.substr(0, range.find('-')), rangeStart);
    }
}
