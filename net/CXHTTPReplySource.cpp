#include "net/CXHTTPReplySource.h"

CXHTTPReplySource::CXHTTPReplySource(CXStream& connection, uint8_t openLineEnd)
    : m_connection(connection), m_openLineEnd(openLineEnd) {
    m_flags = kCXStreamReadable | kCXStreamIsOpen;
    SetError(connection.GetLastError());
}

bool CXHTTPReplySource::ReadByte(uint8_t& byte) {
    if (Read(&byte, 1) != 1) {
        return false;
    }
    if (++m_headBytes > kMaxHead) {
        Fail(kCXResultBadData);
        return false;
    }
    return true;
}

bool CXHTTPReplySource::ReadLine(CXStringEdit& line) {
    line.Clear();
    uint8_t byte = 0;
    while (ReadByte(byte)) {
        const uint8_t partner = m_openLineEnd;
        m_openLineEnd = 0;
        if (partner != 0 && byte == partner) {
            continue;
        }
        if (byte == '\n') {
            // A carriage return that belongs to it is looked for only when another line is read.
            m_openLineEnd = '\r';
            return true;
        }
        if (byte == '\r') {
            if (!ReadByte(byte)) {
                return false;
            }
            if (byte != '\n') {
                m_pushedBack = byte;
                m_hasPushedBack = true;
            }
            return true;
        }
        if (line.GetLength() == kMaxLine) {
            Fail(kCXResultBadData);
            return false;
        }
        line.AppendByte(static_cast<char>(byte));
    }
    return false;
}

void CXHTTPReplySource::SetFlagsUnderMask(uint32_t value, uint32_t mask) {
    m_connection.SetFlagsUnderMask(value, mask);
}

uint64_t CXHTTPReplySource::BufferedRead(void* data, uint64_t count) {
    if (count == 0) {
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t got = 0;
    if (m_hasPushedBack) {
        m_hasPushedBack = false;
        *to = m_pushedBack;
        got = 1;
    }
    if (got < count) {
        got += m_connection.Read(to + got, count - got);
        SetError(m_connection.GetLastError());
    }
    return got;
}

void CXHTTPReplySource::ForgetError() {
    ResetError();
    m_connection.ResetError();
}

void CXHTTPReplySource::Fail(CXResult result) {
    SetError(result);
    if (m_connection.GetLastError() == kCXResultOK) {
        m_connection.SetError(result);
    }
}
