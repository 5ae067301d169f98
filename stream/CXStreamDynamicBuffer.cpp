#include "stream/CXStreamDynamicBuffer.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr uint64_t kGrowStep = 4096;
/// Hints above this many bytes aren't followed: they may have come from outside data.
constexpr uint64_t kLargestHint = 64 * 1024 * 1024;

} // namespace

CXStreamDynamicBuffer::CXStreamDynamicBuffer() {
    m_flags = kCXStreamReadable | kCXStreamWritable | kCXStreamSizeKnown | kCXStreamCanSkip |
              kCXStreamSeekable | kCXStreamSeekWritten | kCXStreamIsOpen;
}

CXStreamDynamicBuffer::~CXStreamDynamicBuffer() {
    std::free(m_start);
}

void CXStreamDynamicBuffer::RaiseSize() {
    if (m_windowBase == nullptr) {
        return;
    }
    const uint64_t written = static_cast<uint64_t>(m_writtenEnd - m_windowBase);
    if (written > m_size) {
        m_size = written;
    }
    m_readLimit = m_windowBase + m_size;
}

void CXStreamDynamicBuffer::PublishWindow(uint64_t position) {
    if (m_start == nullptr || position > m_capacity) {
        // A cursor can't point outside of the buffer: the position waits without a window.
        ClearWindow(position);
        return;
    }
    m_windowBase = m_start;
    m_windowOffset = 0;
    m_cursor = m_start + position;
    m_writeLimit = (m_flags & kCXStreamWritable) != 0 ? m_start + m_capacity : m_start;
    m_writtenEnd = m_readLimit = m_start + m_size;
}

bool CXStreamDynamicBuffer::Grow(uint64_t wanted) {
    if (wanted <= m_capacity) {
        return true;
    }
    if (wanted > UINT64_MAX / 2) {
        return false;
    }
    const uint64_t capacity =
        std::max(kGrowStep, (wanted + wanted / 2 + kGrowStep - 1) / kGrowStep * kGrowStep);
    // Zeroed by the system without a pass over the memory when the block is large.
    uint8_t* start = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(capacity), 1));
    if (start == nullptr) {
        return false;
    }
    RaiseSize();
    const uint64_t position = GetPosition();
    if (m_start != nullptr) {
        std::memcpy(start, m_start, static_cast<size_t>(m_capacity));
        std::free(m_start);
    }
    m_start = start;
    m_capacity = capacity;
    PublishWindow(position);
    return true;
}

bool CXStreamDynamicBuffer::Reserve(uint64_t capacity) {
    if (Grow(capacity)) {
        return true;
    }
    SetError(kCXResultNoResources);
    return false;
}

uint8_t* CXStreamDynamicBuffer::GetData() {
    RaiseSize();
    return m_start;
}

uint64_t CXStreamDynamicBuffer::GetSize() {
    RaiseSize();
    return m_size;
}

void CXStreamDynamicBuffer::SetSize(uint64_t size) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return;
    }
    if (!Reserve(size)) {
        return;
    }
    const uint64_t position = std::min(GetPosition(), size);
    m_size = size;
    PublishWindow(position);
}

bool CXStreamDynamicBuffer::SetOption(uint32_t code, uint64_t value) {
    if (code != kCXStreamOptionReserve) {
        return false;
    }
    const uint64_t position = GetPosition();
    if (IsOpen() && value <= kLargestHint && position <= m_capacity) {
        Grow(position + value);
    }
    return true;
}

void CXStreamDynamicBuffer::Close() {
    RaiseSize();
    ClearWindow(0);
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

uint64_t CXStreamDynamicBuffer::BufferedWrite(const void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    if (count == 0) {
        return 0;
    }
    RaiseSize();
    const uint64_t position = GetPosition();
    if (count > UINT64_MAX - position || !Reserve(position + count)) {
        SetError(kCXResultNoResources);
        return 0;
    }
    PublishWindow(position);
    std::memcpy(m_cursor, data, static_cast<size_t>(count));
    m_cursor += count;
    m_writtenEnd = std::max(m_writtenEnd, m_cursor);
    RaiseSize();
    return count;
}

uint64_t CXStreamDynamicBuffer::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    RaiseSize();
    const uint64_t amount = CopyOut(data, count);
    if (amount < count) {
        MarkEnd();
    }
    return amount;
}

uint64_t CXStreamDynamicBuffer::CopyOut(void* data, uint64_t count) {
    const uint64_t position = GetPosition();
    const uint64_t amount = std::min(count, m_size - std::min(m_size, position));
    if (amount != 0) {
        std::memcpy(data, m_start + position, static_cast<size_t>(amount));
    }
    PublishWindow(position + amount);
    return amount;
}

uint64_t CXStreamDynamicBuffer::BufferedSeek(int64_t position) {
    if (!IsOpen() || position < 0) {
        SetError(IsOpen() ? kCXResultInvalidArgument : kCXResultNotOpen);
        return 0;
    }
    RaiseSize();
    PublishWindow(static_cast<uint64_t>(position));
    return static_cast<uint64_t>(position);
}
