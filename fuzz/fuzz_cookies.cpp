// Cookies: any header value is taken apart, and what is sent back reads as the same name and value.
#include "net/CXHTTPCookie.h"

#include <cstdlib>

namespace {

void Check(bool holds) {
    if (!holds) {
        abort();
    }
}

bool IsPlain(const CXString& text) {
    return text.View().find_first_of("=;") == absl::string_view::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Each line is a header of its own.
    CXHTTPHeaders headers;
    absl::string_view rest(reinterpret_cast<const char*>(data), size);
    size_t lines = 0;
    while (!rest.empty()) {
        const absl::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : line.size());
        headers.emplace("set-cookie", CXString(line));
        ++lines;
    }
    std::vector<CXHTTPCookie> cookies(1);
    CXHTTPCookie::ReadAll(headers, cookies);
    Check(cookies.size() == lines);
    for (const CXHTTPCookie& cookie : cookies) {
        Check(IsPlain(cookie.name) && cookie.value.FindChar(';') < 0);
        Check(cookie.path.FindChar(';') < 0 && cookie.domain.FindChar(';') < 0);
        const CXHTTPCookie again = CXHTTPCookie::FromHeader(CXHTTPCookie::Join({cookie}));
        Check(again.name == cookie.name && again.value == cookie.value);
    }
    Check(CXHTTPCookie::Join(cookies).IsEmpty() == cookies.empty());
    return 0;
}
