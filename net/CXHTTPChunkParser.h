// Takes the chunked form of a body apart (RFC 9112, 7.1).
#pragma once

#include "net/CXHTTPBodySink.h"

#include <absl/strings/string_view.h>

#include <cstdint>

/// A state machine over blocks of any size, cut anywhere. Line ends may be a carriage return, a
/// line feed, or a pair of them in either order.
class CXHTTPChunkParser {
public:
    /// Longest chunk header or trailer line, and most bytes of all trailer lines.
    static constexpr uint64_t kMaxLine = 65536;
    static constexpr uint64_t kMaxTrailer = 1048576;

    /// Goes on with the next block, to its end or the body's; what lies behind the body's end is
    /// not looked at. Fails with the sink's result, or with kCXResultBadData for bytes that are no
    /// chunks and lines that are too long.
    CXResult Feed(absl::string_view block, CXHTTPBodySink& sink);

    /// Whether the body is over. Between blocks only: the second byte of the last line end may
    /// still be to come, see GetOpenLineEnd.
    bool IsDone() const;
    /// The byte that would complete the last line end, or 0.
    uint8_t GetOpenLineEnd() const;
    /// Bytes of the body so far.
    uint64_t GetBytes() const { return m_bytes; }

private:
    enum class State : uint8_t {
        Size,
        Extension,
        AfterSize,
        Data,
        AfterData,
        Trailer,
        TrailerEnd,
        Done
    };

    CXResult TakeHeaderByte(char byte);
    /// Takes one byte of a line end. `taken` false: the line end was over before this byte.
    CXResult TakeLineEnd(char byte, bool& taken);
    void EndLine();

    State m_state = State::Size;
    char m_lineEnd = 0; // first byte of the line end that is being read
    uint64_t m_size = 0;
    uint64_t m_bytes = 0;
    uint64_t m_lineBytes = 0;
    uint64_t m_trailerBytes = 0;
};
