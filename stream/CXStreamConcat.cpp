#include "stream/CXStreamConcat.h"

#include <algorithm>
#include <utility>

CXStreamConcat::CXStreamConcat() : CXStreamCacheHelper(this) {}

CXStreamConcat::~CXStreamConcat() {
    CXStreamConcat::Close();
}

void CXStreamConcat::Append(std::unique_ptr<CXStream> part) {
    if (part == nullptr) {
        SetError(kCXResultInvalidArgument);
        return;
    }
    const bool known = part->IsRemainingKnown();
    const uint64_t length = known ? part->GetRemaining() : kUnknownSize;
    if (IsRemainingKnown() && known) {
        m_totalSize += length;
    } else {
        m_flags &= ~kCXStreamSizeKnown;
    }
    const uint64_t start = part->GetPosition();
    m_parts.push_back({std::move(part), start, length});
    m_flags |= kCXStreamIsOpen;
    m_flags &= ~kCXStreamEnd;
}

uint64_t CXStreamConcat::GetSize() {
    return RawGetSize();
}

bool CXStreamConcat::SetOption(uint32_t code, uint64_t value) {
    return CachedSetOption(code, value);
}

void CXStreamConcat::Close() {
    FreeWindow(0);
    m_parts.clear();
    m_current = 0;
    m_totalSize = 0;
    m_totalPosition = 0;
    m_flags |= kCXStreamSizeKnown;
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

uint64_t CXStreamConcat::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    return CachedRead(data, count);
}

uint64_t CXStreamConcat::BufferedSeek(int64_t position) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    return CachedSeek(position);
}

uint64_t CXStreamConcat::RawTell() {
    return m_totalPosition;
}

uint64_t CXStreamConcat::RawWrite(const void* /*data*/, uint64_t /*count*/, bool /*report*/) {
    SetError(kCXResultNotSupported);
    return 0;
}

uint64_t CXStreamConcat::RawRead(void* data, uint64_t count, bool reportErrors) {
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count && m_current < m_parts.size()) {
        CXStream& part = *m_parts[m_current].stream;
        part.ResetError();
        const uint64_t got = part.Read(to + done, count - done);
        done += got;
        m_totalPosition += got;
        if (done < count) {
            const CXResult error = part.GetLastError();
            if (error != kCXResultOK && error != kCXResultEndOfStream) {
                SetError(error);
                return done;
            }
            if (got == 0 || error == kCXResultEndOfStream) {
                ++m_current;
            }
        }
    }
    if (done < count && reportErrors) {
        MarkEnd();
    }
    return done;
}

bool CXStreamConcat::RawSeek(uint64_t position) {
    if (position == m_totalPosition) {
        return true;
    }
    if (!IsRemainingKnown() || position > m_totalSize) {
        SetError(kCXResultNotSupported);
        return false;
    }
    // The part that holds the position, or the last one at the very end.
    size_t target = 0;
    uint64_t before = 0;
    while (target + 1 < m_parts.size() && position - before >= m_parts[target].length) {
        before += m_parts[target].length;
        ++target;
    }
    // Parts behind it that were read already go back to where they began.
    for (size_t i = target; i < m_parts.size(); ++i) {
        if (i > target && i > m_current) {
            break;
        }
        CXStream& part = *m_parts[i].stream;
        const uint64_t place = m_parts[i].start + (i == target ? position - before : 0);
        if (part.GetPosition() != place &&
            part.Seek(static_cast<int64_t>(place), kCXSeekStart) != place) {
            SetError(CXResultCertainFailure(part.GetLastError()));
            return false;
        }
    }
    m_current = target;
    m_totalPosition = position;
    return true;
}

uint64_t CXStreamConcat::RawGetSize() {
    return (m_flags & kCXStreamSizeKnown) != 0 ? m_totalSize : 0;
}

bool CXStreamConcat::RawSetSize(uint64_t /*size*/) {
    SetError(kCXResultNotSupported);
    return false;
}
