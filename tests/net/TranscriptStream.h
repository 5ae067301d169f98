// A connection that plays a reply from memory.
#pragma once

#include "net/CXStreamTCP.h"
#include "stream/CXStream.h"

#include <algorithm>
#include <cstring>
#include <string>

/// Gives the reply as a socket stream would that receives at most `step` bytes at a time, and then
/// ends. A kept connection must not be asked for more: that would wait.
class TranscriptStream : public CXStream {
public:
    TranscriptStream(std::string reply, size_t step, bool isKept)
        : m_reply(std::move(reply)), m_step(step), m_isKept(isKept) {
        m_flags = kCXStreamReadable | kCXStreamWritable | kCXStreamIsOpen;
    }

    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override {
        const uint32_t bits = mask & kCXStreamPartialReads;
        m_flags = (m_flags & ~bits) | (value & bits);
    }
    uint64_t BufferedWrite(const void* data, uint64_t count) override {
        sent.append(static_cast<const char*>(data), count);
        return count;
    }
    uint64_t BufferedRead(void* data, uint64_t count) override {
        if (GetLastError() != kCXResultOK) {
            return 0;
        }
        uint64_t got = 0;
        while (got < count) {
            const size_t some =
                std::min({static_cast<size_t>(count - got), m_step, m_reply.size() - m_position});
            std::memcpy(static_cast<char*>(data) + got, m_reply.data() + m_position, some);
            m_position += some;
            got += some;
            if (some == 0) {
                hasWaited = hasWaited || m_isKept;
                SetError(kCXResultEndOfStream);
                break;
            }
            if ((m_flags & kCXStreamPartialReads) != 0) {
                break;
            }
        }
        return got;
    }

    std::string sent;
    bool hasWaited = false;

private:
    std::string m_reply;
    size_t m_step;
    bool m_isKept;
    size_t m_position = 0;
};
