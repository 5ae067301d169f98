// A request and a reply of HTTP as plain records, and what one exchange does with them.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "net/CXURI.h"
#include "stream/CXStream.h"

#include <functional>
#include <map>

/// Values by lower-case name, ordered by name; equal names keep the order in which they came.
using CXHTTPHeaders = std::multimap<CXString, CXString>;

/// Told after each piece of a body; false ends the transfer with kCXResultCancelled. A
/// `sizeUnknown` of 1 says that the fraction means nothing.
using CXHTTPProgress = std::function<bool(const CXStreamProgressCallbackData&)>;

struct CXHTTPRequest {
    CXHTTPHeaders headers;
    CXURI uri; ///< its path and query are asked for
    CXString method = "GET";
    CXStream* body = nullptr; ///< what remains in it is sent; null: nothing

    /// Adds a header under its lower-case name.
    void Add(const CXString& name, const CXString& value);
};

struct CXHTTPReply {
    CXHTTPHeaders headers;            ///< without those that say how long the body is
    int32_t status = 0;               ///< 0 until a status line came
    CXStringEdit bodyText;            ///< the body when there is no output
    CXStream* output = nullptr;       ///< takes the body
    CXHTTPProgress progress;          ///< may be empty
    CXStringEdit* headText = nullptr; ///< gets the head's lines as read; null: not wanted

    /// The first value under a lower-case name, else empty.
    CXString Find(const char* name) const;
};
