#include "net/CXHTTPChunkParser.h"

#include "core/CXLog.h"

#include <algorithm>
#include <limits>

namespace {

constexpr uint64_t kMaxSize = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

bool IsLineEnd(char byte) {
    return byte == '\r' || byte == '\n';
}

int HexDigit(char byte) {
    if (byte >= '0' && byte <= '9') {
        return byte - '0';
    }
    const int lower = byte | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

CXResult Refuse(const char* reason) {
    CXLogFormat("CXHTTPConnection::ReadChunkedData> %s", reason);
    return kCXResultBadData;
}

} // namespace

CXResult CXHTTPChunkParser::Feed(absl::string_view block, CXHTTPBodySink& sink) {
    CXResult result = kCXResultOK;
    size_t at = 0;
    while (at < block.size() && m_state != State::Done && result == kCXResultOK) {
        const char byte = block[at];
        bool taken = true;
        switch (m_state) {
        case State::Size:
        case State::Extension:
            taken = !IsLineEnd(byte);
            if (taken) {
                result = TakeHeaderByte(byte);
            } else {
                m_state = State::AfterSize;
            }
            break;
        case State::AfterSize:
        case State::AfterData:
        case State::TrailerEnd:
            result = TakeLineEnd(byte, taken);
            break;
        case State::Data: {
            const uint64_t count = std::min<uint64_t>(m_size, block.size() - at);
            result = sink.Write(block.data() + at, count);
            at += static_cast<size_t>(count) - 1;
            m_bytes += count;
            m_size -= count;
            if (m_size == 0) {
                m_state = State::AfterData;
            }
            break;
        }
        case State::Trailer:
            taken = !IsLineEnd(byte);
            if (!taken) {
                m_state = State::TrailerEnd;
            } else if (++m_lineBytes > kMaxLine || ++m_trailerBytes > kMaxTrailer) {
                result = kCXResultBadData;
            }
            break;
        case State::Done:
            break;
        }
        at += taken ? 1 : 0;
    }
    return result;
}

CXResult CXHTTPChunkParser::TakeHeaderByte(char byte) {
    if (++m_lineBytes > kMaxLine) {
        return kCXResultBadData;
    }
    if (m_state == State::Extension || byte == ' ') {
        return kCXResultOK;
    }
    if (byte == ';') {
        m_state = State::Extension;
        return kCXResultOK;
    }
    const int digit = HexDigit(byte);
    if (digit < 0 || m_size > kMaxSize / 16) {
        return Refuse("bad character in chunk header");
    }
    m_size = m_size * 16 + static_cast<uint64_t>(digit);
    return kCXResultOK;
}

CXResult CXHTTPChunkParser::TakeLineEnd(char byte, bool& taken) {
    if (m_state == State::TrailerEnd && ++m_trailerBytes > kMaxTrailer) {
        return kCXResultBadData;
    }
    if (m_lineEnd == 0) {
        if (!IsLineEnd(byte)) {
            return Refuse(m_state == State::AfterSize   ? "error in chunk CRLF"
                          : m_state == State::AfterData ? "error in chunk end CRLF"
                                                        : "error in trailer CRLF");
        }
        m_lineEnd = byte;
        return kCXResultOK;
    }
    taken = IsLineEnd(byte) && byte != m_lineEnd;
    EndLine();
    return kCXResultOK;
}

void CXHTTPChunkParser::EndLine() {
    m_lineEnd = 0;
    const uint64_t lineBytes = m_lineBytes;
    m_lineBytes = 0;
    switch (m_state) {
    case State::AfterSize:
        m_state = m_size == 0 ? State::Trailer : State::Data;
        break;
    case State::AfterData:
        m_state = State::Size;
        break;
    default:
        m_state = lineBytes == 0 ? State::Done : State::Trailer;
        break;
    }
}

bool CXHTTPChunkParser::IsDone() const {
    return m_state == State::Done ||
           (m_state == State::TrailerEnd && m_lineEnd != 0 && m_lineBytes == 0);
}

uint8_t CXHTTPChunkParser::GetOpenLineEnd() const {
    if (m_state != State::TrailerEnd || m_lineEnd == 0) {
        return 0;
    }
    return m_lineEnd == '\r' ? '\n' : '\r';
}
