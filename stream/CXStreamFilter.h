// A search over the content of a stream.
#pragma once

#include "stream/CXStream.h"

#include <memory>

/// One search, to be made in any number of streams.
class CXStreamFilter {
public:
    /// What a search found.
    struct FilterMatch {
        FilterMatch(uint64_t where, uint64_t howLong)
            : position(where), length(howLong), self(this) {}
        FilterMatch(const FilterMatch&) = delete;
        FilterMatch& operator=(const FilterMatch&) = delete;

        uint64_t position; ///< position in the stream of the first matching byte
        uint64_t length;   ///< bytes
        FilterMatch* self; ///< the object itself, its mark of identity
    };

    virtual ~CXStreamFilter();
    /// Looks for the first match at or behind `searchStart`. Null if the stream ends (or fails)
    /// first. Behind a match the stream stands at the match's end.
    virtual std::unique_ptr<FilterMatch> Match(CXStream& stream, uint64_t searchStart) = 0;
};
