#include "stream/CXStreamCacheHelper.h"

#include <algorithm>
#include <cstdlib>

CXStreamCacheHelper::~CXStreamCacheHelper() {
    FreeWindow(0);
}

bool CXStreamCacheHelper::HasWriteWindow() const {
    return m_owner->m_windowBase < m_owner->m_writeLimit;
}

bool CXStreamCacheHelper::HasReadWindow() const {
    return m_owner->m_windowBase != nullptr && m_owner->m_writeLimit == m_owner->m_windowBase;
}

bool CXStreamCacheHelper::AllocateWindow(uint64_t size) {
    uint8_t* buffer = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(size)));
    if (buffer == nullptr) {
        return false;
    }
    CXStream& owner = *m_owner;
    owner.m_windowBase = owner.m_cursor = owner.m_writeLimit = owner.m_writtenEnd =
        owner.m_readLimit = buffer;
    m_bufferSize = size;
    return true;
}

void CXStreamCacheHelper::FreeWindow(uint64_t position) {
    CXStream& owner = *m_owner;
    std::free(owner.m_windowBase);
    owner.m_windowBase = owner.m_cursor = owner.m_writeLimit = owner.m_writtenEnd =
        owner.m_readLimit = nullptr;
    owner.m_windowOffset = position;
    m_bufferSize = 0;
}

uint64_t CXStreamCacheHelper::GetWindowEnd() const {
    if (!HasWriteWindow()) {
        return 0;
    }
    const CXStream& owner = *m_owner;
    const uint8_t* end = std::max(owner.m_cursor, owner.m_writtenEnd);
    const uint64_t length = static_cast<uint64_t>(end - owner.m_windowBase);
    return length != 0 ? owner.m_windowOffset + length : 0;
}

void CXStreamCacheHelper::RaiseCachedSize(uint64_t end) {
    if (m_cachedSize != kUnknownSize && m_cachedSize < end) {
        m_cachedSize = end;
    }
}

uint64_t CXStreamCacheHelper::CopyFromWindow(uint8_t* data, uint64_t count) {
    CXStream& owner = *m_owner;
    if (owner.m_readLimit <= owner.m_cursor) {
        return 0;
    }
    const uint64_t amount =
        std::min(count, static_cast<uint64_t>(owner.m_readLimit - owner.m_cursor));
    if (amount != 0) {
        std::memcpy(data, owner.m_cursor, static_cast<size_t>(amount));
        owner.m_cursor += amount;
    }
    return amount;
}

bool CXStreamCacheHelper::Refill() {
    CXStream& owner = *m_owner;
    const uint64_t held = static_cast<uint64_t>(owner.m_readLimit - owner.m_windowBase);
    uint64_t kept = std::min(m_readOverlap, held);
    if (kept >= m_bufferSize) {
        // An overlap as large as the buffer would leave no room to read into.
        kept = m_bufferSize / 2;
    }
    std::memmove(owner.m_windowBase, owner.m_readLimit - kept, static_cast<size_t>(kept));
    owner.m_windowOffset += held - kept;
    owner.m_cursor = owner.m_windowBase + kept;

    // The end met here is no fault as long as the caller's own count is served, so the raw layer
    // stays silent about it; an error of the platform shows by a changed last error.
    const CXResult earlier = owner.m_lastError;
    owner.m_lastError = kCXResultOK;
    const uint64_t got = RawRead(owner.m_cursor, m_bufferSize - kept, false);
    const bool failed = owner.m_lastError != kCXResultOK;
    if (!failed) {
        owner.m_lastError = earlier;
    }
    owner.m_readLimit = owner.m_cursor + got;
    owner.m_writtenEnd = owner.m_windowBase;
    if (got != 0) {
        return true;
    }
    FreeWindow(owner.GetPosition());
    if (!failed) {
        owner.SetError(kCXResultEndOfStream);
        owner.m_flags |= kCXStreamEnd;
    }
    return false;
}

uint64_t CXStreamCacheHelper::ReadStraight(uint8_t* data, uint64_t count) {
    CXStream& owner = *m_owner;
    // What the window holds lies before the position that is read from here on; a seek back must
    // not be served from it.
    owner.m_windowOffset = owner.GetPosition();
    owner.m_cursor = owner.m_readLimit = owner.m_writtenEnd = owner.m_windowBase;
    uint64_t done = 0;
    while (done < count) {
        const uint64_t wanted = std::min(count - done, m_largestTransfer);
        const uint64_t got = RawRead(data + done, wanted, true);
        done += got;
        owner.m_windowOffset += got;
        if (got < wanted) {
            break;
        }
    }
    return done;
}

uint64_t CXStreamCacheHelper::CachedRead(void* data, uint64_t count) {
    CXStream& owner = *m_owner;
    if ((owner.m_flags & kCXStreamReadable) == 0) {
        owner.SetError(kCXResultAccessDenied);
        return 0;
    }
    if (data == nullptr && count != 0) {
        owner.SetError(kCXResultInvalidArgument);
        return 0;
    }
    if (HasWriteWindow()) {
        DropWindow();
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = CopyFromWindow(to, count);
    if (done < count && count - done <= m_readBufferSize / 2 &&
        (owner.m_windowBase != nullptr || AllocateWindow(m_readBufferSize))) {
        if (!Refill()) {
            return done;
        }
        done += CopyFromWindow(to + done, count - done);
    }
    if (done < count) {
        done += ReadStraight(to + done, count - done);
    }
    return done;
}

uint64_t CXStreamCacheHelper::CachedWrite(const void* data, uint64_t count) {
    CXStream& owner = *m_owner;
    if ((owner.m_flags & kCXStreamWritable) == 0) {
        owner.SetError(kCXResultAccessDenied);
        return 0;
    }
    if (data == nullptr && count != 0) {
        owner.SetError(kCXResultInvalidArgument);
        return 0;
    }
    if (!Synchronise()) {
        return 0;
    }
    FlushWindow();
    if (m_writeBufferSize != 0 && owner.m_windowBase == nullptr &&
        AllocateWindow(m_writeBufferSize)) {
        owner.m_writeLimit = owner.m_windowBase + m_bufferSize;
    }
    const uint8_t* from = static_cast<const uint8_t*>(data);
    if (owner.m_windowBase != nullptr && count <= m_bufferSize / 2) {
        if (count != 0) {
            std::memcpy(owner.m_cursor, from, static_cast<size_t>(count));
        }
        owner.m_cursor += count;
        owner.m_writtenEnd = std::max(owner.m_writtenEnd, owner.m_cursor);
        RaiseCachedSize(GetWindowEnd());
        return count;
    }
    uint64_t done = 0;
    while (done < count) {
        const uint64_t wanted = std::min(count - done, m_largestTransfer);
        const uint64_t put = RawWrite(from + done, wanted, true);
        done += put;
        owner.m_windowOffset += put;
        if (put < wanted) {
            break;
        }
    }
    RaiseCachedSize(owner.m_windowOffset);
    return done;
}

uint64_t CXStreamCacheHelper::CachedSeek(int64_t position) {
    CXStream& owner = *m_owner;
    if (position < 0) {
        owner.SetError(kCXResultInvalidArgument);
        return 0;
    }
    FlushWindow();
    // One raw seek does for both giving up a read window and moving. If it fails, the window and
    // the raw position behind it stay as they were.
    const uint64_t target = static_cast<uint64_t>(position);
    const uint64_t raw =
        owner.m_windowOffset + static_cast<uint64_t>(owner.m_readLimit - owner.m_windowBase);
    if (!RawSeek(target)) {
        RawSeek(raw);
        return 0;
    }
    FreeWindow(target);
    return target;
}

bool CXStreamCacheHelper::CachedSetOption(uint32_t code, uint64_t value) {
    switch (code) {
    case kCXStreamOptionOverlap:
        Synchronise();
        m_readOverlap = value;
        return true;
    case kCXStreamOptionReadBuffer:
        Synchronise();
        m_readBufferSize = value;
        return true;
    case kCXStreamOptionWriteBuffer:
        // The buffer has the old size: let the next write make a new one.
        if (HasWriteWindow()) {
            DropWindow();
        }
        m_writeBufferSize = value;
        return true;
    default:
        return false;
    }
}

void CXStreamCacheHelper::FlushWindow() {
    if (!HasWriteWindow()) {
        return;
    }
    CXStream& owner = *m_owner;
    const uint64_t end = GetWindowEnd();
    const uint64_t length = end != 0 ? end - owner.m_windowOffset : 0;
    const uint64_t advance = static_cast<uint64_t>(owner.m_cursor - owner.m_windowBase);
    const uint64_t put = length != 0 ? RawWrite(owner.m_windowBase, length, true) : 0;
    if (put == length) {
        RaiseCachedSize(owner.m_windowOffset + put);
    } else {
        m_cachedSize = kUnknownSize;
    }
    owner.m_windowOffset += advance;
    owner.m_cursor = owner.m_writtenEnd = owner.m_readLimit = owner.m_windowBase;
    owner.m_writeLimit = owner.m_windowBase + m_bufferSize;
    if (put != advance) {
        RawSeek(owner.m_windowOffset);
    }
}

bool CXStreamCacheHelper::Synchronise() {
    if (!HasReadWindow()) {
        return true;
    }
    const uint64_t position = m_owner->GetPosition();
    if (m_owner->m_readLimit != m_owner->m_cursor && !RawSeek(position)) {
        return false;
    }
    FreeWindow(position);
    return true;
}

void CXStreamCacheHelper::DropWindow() {
    FlushWindow();
    if (HasWriteWindow()) {
        FreeWindow(m_owner->m_windowOffset);
    } else {
        Synchronise();
    }
}
