#include "kit/VelPatchInflateStream.h"

#include <algorithm>
#include <cstring>
#include <limits>

VelPatchInflateStream::VelPatchInflateStream(CXStream& source)
    : m_source(source), m_input(std::make_unique<uint8_t[]>(CXMD5Ahead::kPieceSize)) {
    m_flags = kCXStreamReadable | kCXStreamIsOpen;
    if (inflateInit(&m_zlib) != Z_OK) {
        m_state = State::Unreadable;
        SetError(kCXResultNoResources);
    }
}

VelPatchInflateStream::~VelPatchInflateStream() {
    inflateEnd(&m_zlib);
}

bool VelPatchInflateStream::Refill() {
    const uint64_t got = m_source.Read(m_input.get(), CXMD5Ahead::kPieceSize);
    if (got == 0) {
        return false;
    }
    std::memcpy(m_digest.GetPiece(), m_input.get(), static_cast<size_t>(got));
    m_digest.PutPiece(got);
    m_inputRead += got;
    m_zlib.next_in = m_input.get();
    m_zlib.avail_in = static_cast<uInt>(got);
    return true;
}

uint64_t VelPatchInflateStream::BufferedRead(void* data, uint64_t count) {
    uint64_t done = 0;
    while (m_state == State::Reading && done < count) {
        const uInt room =
            static_cast<uInt>(std::min<uint64_t>(count - done, std::numeric_limits<uInt>::max()));
        m_zlib.next_out = static_cast<Bytef*>(data) + done;
        m_zlib.avail_out = room;
        // Without input too: zlib may hold output that had no room before.
        const int result = inflate(&m_zlib, Z_NO_FLUSH);
        done += room - m_zlib.avail_out;
        if (result == Z_STREAM_END) {
            m_state = State::Ended;
        } else if (result == Z_BUF_ERROR && m_zlib.avail_in == 0) {
            if (!Refill()) {
                const CXResult error = m_source.GetLastError();
                const bool isEnd = error == kCXResultOK || error == kCXResultEndOfStream;
                m_state = isEnd ? State::CutShort : State::Unreadable;
            }
        } else if (result != Z_OK) {
            m_state = State::Damaged;
        }
    }
    m_windowOffset += done;
    if (done < count) {
        if (m_state == State::Ended || m_state == State::CutShort) {
            MarkEnd();
        } else {
            SetError(m_state == State::Damaged ? kCXResultBadData
                                               : CXResultCertainFailure(m_source.GetLastError()));
        }
    }
    return done;
}

uint64_t VelPatchInflateStream::Drain() {
    uint64_t behind = m_zlib.avail_in;
    m_zlib.avail_in = 0;
    while (Refill()) {
        behind += m_zlib.avail_in;
        m_zlib.avail_in = 0;
    }
    return behind;
}
