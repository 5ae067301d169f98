#include "dn/DNNumberText.h"

#include "core/CXText.h"

#include <charconv>

namespace {

constexpr absl::string_view kBlanks(" ");
constexpr absl::string_view kBlanksAndTabs(" \t");

absl::string_view Strip(absl::string_view text, absl::string_view bytes) {
    const size_t first = text.find_first_not_of(bytes);
    if (first == absl::string_view::npos) {
        return absl::string_view();
    }
    return text.substr(first, text.find_last_not_of(bytes) - first + 1);
}

bool ReadBareFloat(absl::string_view text, float& out) {
    const absl::string_view digits = text.substr(!text.empty() && text[0] == '-' ? 1 : 0);
    size_t points = 0;
    bool anyDigit = false;
    bool wholePart = false;
    for (const char byte : digits) {
        if (byte == '.') {
            ++points;
        } else if (byte >= '0' && byte <= '9') {
            anyDigit = true;
            wholePart = wholePart || (points == 0 && byte != '0');
        } else {
            return false;
        }
    }
    if (!anyDigit || points > 1) {
        return false;
    }
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, out, std::chars_format::fixed);
    if (read.ec == std::errc::result_out_of_range && !wholePart) {
        out = 0;
        return true;
    }
    return read.ec == std::errc() && read.ptr == end;
}

template <typename Number, typename Reader>
bool ReadList(absl::string_view text, std::vector<Number>& out, Reader reader) {
    out.clear();
    for (;;) {
        const size_t comma = text.find(',');
        Number number;
        if (!reader(Strip(text.substr(0, comma), kBlanksAndTabs), number)) {
            return false;
        }
        out.push_back(number);
        if (comma == absl::string_view::npos) {
            return true;
        }
        text.remove_prefix(comma + 1);
    }
}

bool ReadBareInt(absl::string_view text, int32_t& out) {
    return ParseInt32(text, out) && text.empty();
}

} // namespace

bool DNNumberText::ReadInt(absl::string_view text, int32_t& out) {
    return ReadBareInt(Strip(text, kBlanksAndTabs), out);
}

bool DNNumberText::ReadInt64(absl::string_view text, int64_t& out) {
    text = Strip(text, kBlanksAndTabs);
    return ParseInt64(text, out) && text.empty();
}

bool DNNumberText::ReadFloat(absl::string_view text, float& out) {
    return ReadBareFloat(Strip(text, kBlanks), out);
}

bool DNNumberText::ReadInts(absl::string_view text, std::vector<int32_t>& out) {
    return ReadList(text, out, ReadBareInt);
}

bool DNNumberText::ReadFloats(absl::string_view text, std::vector<float>& out) {
    return ReadList(text, out, ReadBareFloat);
}
