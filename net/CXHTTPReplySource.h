// Reads a reply off a connection: lines first, then the body.
#pragma once

#include "core/CXStringEdit.h"
#include "stream/CXStream.h"

/// A stream without a window over a connection that it doesn't own. A line ends at a carriage
/// return, a line feed, or a pair of them in either order. Nothing is read ahead: on a kept
/// connection a byte too many would wait for a reply that never comes. Failures of the connection
/// show here and there alike.
class CXHTTPReplySource : public CXStream {
public:
    /// Longest line, and most bytes of a whole head.
    static constexpr uint64_t kMaxLine = 65536;
    static constexpr uint64_t kMaxHead = 1048576;

    /// `openLineEnd`: the second byte of a line end whose first byte an earlier reply ended with;
    /// it is dropped if it comes now. 0: none.
    explicit CXHTTPReplySource(CXStream& connection, uint8_t openLineEnd = 0);

    /// Gives the next line without its end. False on failure, with kCXResultBadData for a line or a
    /// head that is too long.
    bool ReadLine(CXStringEdit& line);

    /// Passed on to the connection.
    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;

    /// Forgets a failure here and on the connection.
    void ForgetError();
    /// Stores a failure here, and on the connection unless it has one.
    void Fail(CXResult result);

private:
    /// The next byte of the head.
    bool ReadByte(uint8_t& byte);

    CXStream& m_connection;
    uint8_t m_openLineEnd;
    bool m_hasPushedBack = false;
    uint8_t m_pushedBack = 0;
    uint64_t m_headBytes = 0;
};
