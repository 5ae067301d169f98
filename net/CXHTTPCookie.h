// A cookie, as a reply sets it and a request sends it back.
#pragma once

#include "core/CXString.h"
#include "net/CXHTTPMessages.h"

#include <vector>

/// `path` and `domain` are kept and never compared: every cookie goes to every host.
struct CXHTTPCookie {
    CXString name;
    CXString value;
    CXString path;
    CXString domain;

    /// Reads one "set-cookie" value; attributes other than path and domain are dropped.
    static CXHTTPCookie FromHeader(absl::string_view value);
    /// Replaces `out` by what the "set-cookie" headers say, in their order. Equal names stay apart.
    static void ReadAll(const CXHTTPHeaders& headers, std::vector<CXHTTPCookie>& out);
    /// The value of a "cookie" header: "a=1; b=2".
    static CXString Join(const std::vector<CXHTTPCookie>& cookies);
};
