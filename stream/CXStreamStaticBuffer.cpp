#include "stream/CXStreamStaticBuffer.h"

#include <algorithm>

namespace {

constexpr uint32_t kMemoryFlags = kCXStreamReadable | kCXStreamWritable | kCXStreamSizeKnown |
                                  kCXStreamCanSkip | kCXStreamSeekable | kCXStreamSeekWritten |
                                  kCXStreamIsOpen;

} // namespace

CXStreamStaticBuffer::CXStreamStaticBuffer(void* data, uint64_t size, bool readOnly,
                                           uint64_t capacity)
    : m_start(static_cast<uint8_t*>(data)), m_sizeInUse(data != nullptr ? size : 0),
      m_capacity(data != nullptr ? std::max(size, capacity) : 0), m_readOnly(readOnly) {
    m_flags = readOnly ? kMemoryFlags & ~kCXStreamWritable : kMemoryFlags;
    m_windowBase = m_cursor = m_start;
    m_writeLimit = readOnly ? m_start : m_start + m_capacity;
    m_writtenEnd = m_readLimit = m_start + m_sizeInUse;
}

CXStreamStaticBuffer::CXStreamStaticBuffer(const void* data, uint64_t size)
    : CXStreamStaticBuffer(const_cast<void*>(data), size, true) {}

void CXStreamStaticBuffer::RaiseSize() {
    if (m_windowBase != nullptr && m_writtenEnd > m_readLimit) {
        m_readLimit = m_writtenEnd;
        m_sizeInUse = static_cast<uint64_t>(m_readLimit - m_windowBase);
    }
}

uint64_t CXStreamStaticBuffer::GetSize() {
    RaiseSize();
    return m_sizeInUse;
}

void CXStreamStaticBuffer::Close() {
    RaiseSize();
    ClearWindow(0);
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

uint64_t CXStreamStaticBuffer::BufferedWrite(const void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (m_readOnly) {
        SetError(kCXResultAccessDenied);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    const uint64_t amount = std::min(count, m_capacity - GetPosition());
    if (amount != 0) {
        std::memcpy(m_cursor, data, static_cast<size_t>(amount));
        m_cursor += amount;
        m_writtenEnd = std::max(m_writtenEnd, m_cursor);
    }
    RaiseSize();
    if (amount < count) {
        SetError(kCXResultEndOfStream);
    }
    return amount;
}

uint64_t CXStreamStaticBuffer::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    RaiseSize();
    const uint64_t position = GetPosition();
    const uint64_t amount = std::min(count, m_sizeInUse - std::min(m_sizeInUse, position));
    if (amount != 0) {
        std::memcpy(data, m_cursor, static_cast<size_t>(amount));
        m_cursor += amount;
    }
    if (amount < count) {
        MarkEnd();
    }
    return amount;
}

uint64_t CXStreamStaticBuffer::BufferedSeek(int64_t position) {
    if (!IsOpen() || position < 0) {
        SetError(IsOpen() ? kCXResultInvalidArgument : kCXResultNotOpen);
        return 0;
    }
    RaiseSize();
    const uint64_t reached = std::min(static_cast<uint64_t>(position), m_sizeInUse);
    m_cursor = m_windowBase + reached;
    return reached;
}
