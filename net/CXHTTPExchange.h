// One request and its reply on an open connection.
#pragma once

#include "net/CXHTTPMessages.h"
#include "net/CXHTTPReplyHead.h"
#include "net/CXHTTPReplySource.h"

/// Made for one exchange; the connection and the reply are not owned. Blocks as long as the
/// connection does.
class CXHTTPExchange {
public:
    /// Largest body of known length that is kept in memory, in bytes.
    static constexpr int64_t kMaxBodyInMemory = 0x4000000;

    /// `openLineEnd`: what GetOpenLineEnd said of the connection's reply before this one; 0: none.
    CXHTTPExchange(CXStream& connection, CXHTTPReply& reply, uint8_t openLineEnd = 0);

    /// Sends the request and reads the whole reply. A failing connection gives its error;
    /// kCXResultBadData: chunks that are none, a head that is too long, a part that begins behind
    /// the start; kCXResultNoResources: a body too long to keep; kCXResultInvalidArgument: status
    /// 416, whose body is left unread; kCXResultCancelled: the progress function said so. A failure
    /// within the body is stored in the connection and the output too, unless they have one.
    CXResult Run(const CXHTTPRequest& request);

    /// The byte that would complete the line end behind this reply, or 0.
    uint8_t GetOpenLineEnd() const { return m_openLineEnd; }

    /// The request's head as it is sent.
    static void WriteHead(const CXHTTPRequest& request, CXStringEdit& out);

private:
    CXResult ReadHead();
    CXResult ApplyRangeStart();
    CXResult ReadBody();
    CXResult ReadKnownLength();
    CXResult ReadToEnd();
    CXResult ReadChunkedData();
    CXResult ReportProgress(CXStreamProgressCallbackData& data, uint64_t bytesDone);

    CXStream& m_connection;
    CXHTTPReply& m_reply;
    CXHTTPReplySource m_source;
    CXHTTPReplyHead m_head;
    uint8_t m_openLineEnd = 0;
};
