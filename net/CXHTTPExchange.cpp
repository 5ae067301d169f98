#include "net/CXHTTPExchange.h"

#include "core/CXLog.h"
#include "core/CXTime.h"
#include "net/CXHTTPBodySink.h"
#include "net/CXHTTPChunkParser.h"
#include "net/CXStreamTCP.h"

#include <algorithm>
#include <memory>

namespace {

constexpr uint64_t kPiece = 16384;  // reads of a body of unknown length
constexpr uint64_t kMinBlock = 512; // blocks of chunks
constexpr uint64_t kMaxBlock = 65536;
constexpr int32_t kRangeRefused = 416;

/// "content-type" as "Content-Type".
void AppendCapitalised(absl::string_view name, CXStringEdit& out) {
    bool atStart = true;
    for (const char byte : name) {
        out.AppendByte(atStart && byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : byte);
        atStart = byte == '-';
    }
}

} // namespace

CXHTTPExchange::CXHTTPExchange(CXStream& connection, CXHTTPReply& reply, uint8_t openLineEnd)
    : m_connection(connection), m_reply(reply), m_source(connection, openLineEnd) {}

void CXHTTPExchange::WriteHead(const CXHTTPRequest& request, CXStringEdit& out) {
    CXString method = request.method;
    method.ToUpper();
    out.Append(method);
    out.AppendByte(' ');
    out.Append(request.uri.GetPathAndQuery());
    out.Append(" HTTP/1.1\r\n");
    for (const auto& [name, value] : request.headers) {
        AppendCapitalised(name, out);
        out.Append(": ");
        out.Append(value);
        out.Append("\r\n");
    }
    out.Append("\r\n");
}

CXResult CXHTTPExchange::Run(const CXHTTPRequest& request) {
    CXStringEdit head;
    WriteHead(request, head);
    if (m_connection.Write(head.GetData(), head.GetLength()) < head.GetLength()) {
        return CXResultCertainFailure(m_connection.GetLastError());
    }
    if (request.body != nullptr) {
        const CXResult sent =
            CXStream::Copy(m_connection, *request.body, request.body->GetRemaining());
        if (sent != kCXResultOK) {
            return sent;
        }
    }
    CXResult result = ReadHead();
    if (result == kCXResultOK) {
        result = ApplyRangeStart();
    }
    if (result == kCXResultOK && m_reply.status == kRangeRefused) {
        result = kCXResultInvalidArgument;
    }
    if (result != kCXResultOK) {
        return result;
    }
    result = ReadBody();
    if (result == kCXResultOK) {
        result = m_connection.GetLastError();
    }
    if (result != kCXResultOK) {
        m_source.Fail(result);
        if (m_reply.output != nullptr && m_reply.output->GetLastError() == kCXResultOK) {
            m_reply.output->SetError(result);
        }
    }
    return result;
}

CXResult CXHTTPExchange::ReadHead() {
    CXStringEdit line;
    while (m_source.ReadLine(line)) {
        if (m_reply.headText != nullptr) {
            m_reply.headText->Append(line);
            m_reply.headText->AppendByte('\n');
        }
        if (line.IsEmpty()) {
            return kCXResultOK;
        }
        m_head.TakeLine(line, m_reply);
    }
    return CXResultCertainFailure(m_source.GetLastError());
}

CXResult CXHTTPExchange::ApplyRangeStart() {
    if (m_head.rangeStart > 0) {
        return kCXResultBadData;
    }
    if (m_head.rangeStart < 0) {
        if (m_reply.output != nullptr) {
            m_reply.output->Seek(m_head.rangeStart, kCXSeekStart);
        }
        if (m_head.length != CXHTTPReplyHead::kUnknownLength) {
            if (m_head.length < m_head.rangeStart) {
                return kCXResultBadData;
            }
            m_head.length = static_cast<int64_t>(static_cast<uint64_t>(m_head.length) -
                                                 static_cast<uint64_t>(m_head.rangeStart));
        }
    }
    return kCXResultOK;
}

CXResult CXHTTPExchange::ReadBody() {
    m_reply.bodyText.Clear();
    if (m_head.transferEncoding == "chunked") {
        return ReadChunkedData();
    }
    if (m_head.length == CXHTTPReplyHead::kUnknownLength) {
        return ReadToEnd();
    }
    return ReadKnownLength();
}

CXResult CXHTTPExchange::ReadKnownLength() {
    const int64_t length = m_head.length;
    if (length == 0) {
        return kCXResultOK;
    }
    if (m_reply.output != nullptr) {
        const CXStreamCopyOptions options = {m_reply.progress};
        return CXStream::Copy(*m_reply.output, m_source, static_cast<uint64_t>(length), &options);
    }
    if (length < 0 || length > kMaxBodyInMemory) {
        return kCXResultNoResources;
    }
    const uint64_t size = static_cast<uint64_t>(length);
    if (!m_reply.bodyText.Reserve(0, size)) {
        return kCXResultNoResources;
    }
    m_reply.bodyText.Resize(size);
    m_reply.bodyText.Resize(m_source.Read(m_reply.bodyText.GetData(), size));
    return m_source.GetLastError();
}

CXResult CXHTTPExchange::ReadToEnd() {
    CXHTTPBodySink sink = {m_reply.output, m_reply.bodyText};
    CXStreamProgressCallbackData data = {CXTime::GetCurrentTime(), 0.0F, 1, 0, 0};
    uint8_t piece[kPiece];
    uint64_t bytes = 0;
    for (;;) {
        const uint64_t got = m_source.Read(piece, kPiece);
        bytes += got;
        CXResult result = got != 0 ? sink.Write(piece, got) : kCXResultOK;
        if (result == kCXResultOK && got != 0) {
            result = ReportProgress(data, bytes);
        }
        if (result != kCXResultOK) {
            return result;
        }
        if (m_source.GetLastError() == kCXResultEndOfStream) {
            m_source.ForgetError();
            return kCXResultOK;
        }
        if (m_source.GetLastError() != kCXResultOK || got == 0) {
            return CXResultCertainFailure(m_source.GetLastError());
        }
    }
}

CXResult CXHTTPExchange::ReadChunkedData() {
    const bool isKnown = m_head.length != CXHTTPReplyHead::kUnknownLength;
    const uint64_t whole = isKnown ? static_cast<uint64_t>(m_head.length) : 0;
    const uint64_t blockSize = isKnown ? std::clamp(whole, kMinBlock, kMaxBlock) : kMaxBlock;
    const std::unique_ptr<char[]> block(new char[blockSize]);
    CXHTTPBodySink sink = {m_reply.output, m_reply.bodyText};
    CXStreamProgressCallbackData data = {CXTime::GetCurrentTime(), 0.0F,
                                         static_cast<uint8_t>(isKnown ? 0 : 1), 0, whole};
    CXHTTPChunkParser parser;
    CXResult result = kCXResultOK;
    m_source.SetFlagsUnderMask(kCXStreamPartialReads, kCXStreamPartialReads);
    while (result == kCXResultOK && !parser.IsDone()) {
        const uint64_t got = m_source.Read(block.get(), blockSize);
        if (got != 0 && m_source.GetLastError() == kCXResultEndOfStream) {
            m_source.ForgetError();
        }
        result = m_source.GetLastError();
        if (got == 0 && result == kCXResultOK) {
            CXLog("CXHTTPConnection::ReadChunkedData> unexpected eof");
            result = kCXResultEndOfStream;
        }
        if (result == kCXResultOK) {
            result = parser.Feed(absl::string_view(block.get(), static_cast<size_t>(got)), sink);
        }
        if (result == kCXResultOK) {
            result = ReportProgress(data, parser.GetBytes());
        }
    }
    // Kept on, it would cut the next reply of known length short.
    m_source.SetFlagsUnderMask(0, kCXStreamPartialReads);
    m_openLineEnd = parser.GetOpenLineEnd();
    return result;
}

CXResult CXHTTPExchange::ReportProgress(CXStreamProgressCallbackData& data, uint64_t bytesDone) {
    if (m_reply.progress == nullptr) {
        return kCXResultOK;
    }
    data.bytesDone = bytesDone;
    if (data.bytesTotal != 0) {
        const double fraction =
            static_cast<double>(bytesDone) / static_cast<double>(data.bytesTotal);
        data.fraction = static_cast<float>(std::min(fraction, 1.0));
    }
    return m_reply.progress(data) ? kCXResultOK : kCXResultCancelled;
}
