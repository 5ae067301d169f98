// Reads the lines of a reply's head.
#pragma once

#include "core/CXString.h"
#include "net/CXHTTPMessages.h"

#include <cstdint>

/// What a head says about its body; status and headers go into the reply.
struct CXHTTPReplyHead {
    static constexpr int64_t kUnknownLength = -1;

    int64_t length = kUnknownLength; ///< bytes
    int64_t rangeStart = 0;          ///< bytes; where a part of the whole says that it begins
    CXString transferEncoding;       ///< lower case

    /// Takes one line, without its end. Tokens are separated by blanks and tabs, also the header's
    /// name from its value: "Content-Length:5" is a header without a value.
    void TakeLine(absl::string_view line, CXHTTPReply& reply);

private:
    void TakeContentRange(absl::string_view rest, int32_t status);
};
