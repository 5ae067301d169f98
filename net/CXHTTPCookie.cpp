#include "net/CXHTTPCookie.h"

#include "core/CXStringEdit.h"
#include "core/CXText.h"

namespace {

absl::string_view Trim(absl::string_view text) {
    constexpr absl::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == absl::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes "key=value" off the front of `rest`, up to the next ";" or the end.
void TakePair(absl::string_view& rest, absl::string_view& key, absl::string_view& value) {
    const absl::string_view piece = rest.substr(0, rest.find(';'));
    rest.remove_prefix(piece.size() == rest.size() ? piece.size() : piece.size() + 1);
    const size_t equals = piece.find('=');
    key = Trim(piece.substr(0, equals));
    value =
        equals == absl::string_view::npos ? absl::string_view() : Trim(piece.substr(equals + 1));
}

} // namespace

CXHTTPCookie CXHTTPCookie::FromHeader(absl::string_view value) {
    CXHTTPCookie cookie;
    absl::string_view rest = value;
    absl::string_view key;
    absl::string_view text;
    TakePair(rest, key, text);
    cookie.name = key;
    cookie.value = text;
    while (!rest.empty()) {
        TakePair(rest, key, text);
        if (EqualsNoCase(key, "path")) {
            cookie.path = text;
        } else if (EqualsNoCase(key, "domain")) {
            cookie.domain = text;
        }
    }
    return cookie;
}

void CXHTTPCookie::ReadAll(const CXHTTPHeaders& headers, std::vector<CXHTTPCookie>& out) {
    out.clear();
    const auto range = headers.equal_range(CXString("set-cookie"));
    for (auto header = range.first; header != range.second; ++header) {
        out.push_back(FromHeader(header->second));
    }
}

CXString CXHTTPCookie::Join(const std::vector<CXHTTPCookie>& cookies) {
    CXStringEdit text;
    for (const CXHTTPCookie& cookie : cookies) {
        if (&cookie != &cookies.front()) {
            text.Append("; ");
        }
        text.Append(cookie.name);
        text.AppendByte('=');
        text.Append(cookie.value);
    }
    return text.ToString();
}
