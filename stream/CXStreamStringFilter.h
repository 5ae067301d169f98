// The search for a byte string in a stream.
#pragma once

#include "core/CXString.h"
#include "stream/CXStreamFilter.h"

#include <vector>

/// Searches by the Knuth-Morris-Pratt algorithm (SIAM J. Comput. 6, 1977), so the stream is read
/// once, a byte at a time, and never backwards.
class CXStreamStringFilter : public CXStreamFilter {
public:
    /// An empty string matches at once.
    explicit CXStreamStringFilter(const CXString& text);
    std::unique_ptr<FilterMatch> Match(CXStream& stream, uint64_t searchStart) override;

private:
    CXString m_text;
    std::vector<size_t> m_failure; ///< prefix function of the text
};
