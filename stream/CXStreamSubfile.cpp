#include "stream/CXStreamSubfile.h"

#include "core/CXLog.h"

#include <algorithm>

CXStreamSubfile::CXStreamSubfile() {
    m_flags = kCXStreamSizeKnown;
}

CXStreamSubfile::~CXStreamSubfile() {
    CXStreamSubfile::Close();
}

bool CXStreamSubfile::Open(CXStream& parent, uint64_t offset, uint64_t size) {
    if (m_parent != nullptr) {
        SetError(kCXResultAlreadyOpen);
        return false;
    }
    const uint32_t flags = parent.GetFlags();
    if ((flags & kCXStreamSizeKnown) != 0 && (flags & kCXStreamSizeIsRest) == 0) {
        const uint64_t parentSize = parent.GetSize();
        if (offset > parentSize || size > parentSize - offset) {
            CXLogFormat("CXStreamSubfile::Open> parent smaller than subfile (%lld, %lld, %lld)",
                        static_cast<int64_t>(parentSize), static_cast<int64_t>(offset),
                        static_cast<int64_t>(size));
            return false;
        }
    }
    m_parent = &parent;
    m_offset = offset;
    m_size = size;
    m_position = 0;
    m_windowOffset = 0;
    constexpr uint32_t kTaken =
        kCXStreamReadable | kCXStreamWritable | kCXStreamCanSkip | kCXStreamSeekable;
    m_flags = (flags & kTaken) | kCXStreamSizeKnown | kCXStreamIsOpen;
    return true;
}

void CXStreamSubfile::Close() {
    if (m_parent == nullptr) {
        return;
    }
    m_parent->Skip(GetRoom());
    m_parent = nullptr;
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

uint64_t CXStreamSubfile::GetSize() {
    return m_size;
}

void CXStreamSubfile::Flush(uint32_t options) {
    if (m_parent == nullptr) {
        SetError(kCXResultAlreadyOpen);
        return;
    }
    m_parent->Flush(options);
}

uint64_t CXStreamSubfile::GetRoom() const {
    if ((m_flags & kCXStreamSeekable) == 0) {
        return m_size - std::min(m_size, m_position);
    }
    // The size may come from outside data and a parent of unknown size can't refute it.
    const uint64_t end = m_size > UINT64_MAX - m_offset ? UINT64_MAX : m_offset + m_size;
    return end - std::min(end, m_parent->GetPosition());
}

uint64_t CXStreamSubfile::CutToRoom(uint64_t count) {
    const uint64_t room = GetRoom();
    if (count <= room) {
        return count;
    }
    MarkEnd();
    return room;
}

void CXStreamSubfile::TakeParentError() {
    SetError(m_parent->GetLastError());
    m_parent->ResetError();
}

void CXStreamSubfile::Follow(uint64_t moved, uint64_t wanted) {
    m_position = (m_flags & kCXStreamSeekable) != 0 ? m_parent->GetPosition() - m_offset
                                                    : m_position + moved;
    m_windowOffset = m_position;
    if (moved < wanted) {
        if (m_parent->IsAtEnd()) {
            m_flags |= kCXStreamEnd;
        }
        TakeParentError();
    }
}

uint64_t CXStreamSubfile::BufferedWrite(const void* data, uint64_t count) {
    if (m_parent == nullptr) {
        SetError(kCXResultAlreadyOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    const uint64_t wanted = CutToRoom(count);
    if (wanted == 0) {
        // Some parents count even an empty write behind their end as data up to there.
        return 0;
    }
    const uint64_t moved = m_parent->Write(data, wanted);
    Follow(moved, wanted);
    return moved;
}

uint64_t CXStreamSubfile::BufferedRead(void* data, uint64_t count) {
    if (m_parent == nullptr) {
        SetError(kCXResultAlreadyOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    const uint64_t wanted = CutToRoom(count);
    const uint64_t moved = m_parent->Read(data, wanted);
    Follow(moved, wanted);
    return moved;
}

uint64_t CXStreamSubfile::BufferedSeek(int64_t position) {
    if (m_parent == nullptr) {
        SetError(kCXResultAlreadyOpen);
        return 0;
    }
    if ((m_flags & kCXStreamSeekable) == 0) {
        SetError(kCXResultNotSupported);
        return m_position;
    }
    if (position < 0) {
        // The parent isn't moved to a place outside of the window.
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    const uint64_t target = m_offset + static_cast<uint64_t>(position);
    const uint64_t reached = m_parent->Seek(static_cast<int64_t>(target), kCXSeekStart);
    if (reached != target) {
        TakeParentError();
    }
    if (reached < m_offset) {
        return 0;
    }
    m_position = m_windowOffset = reached - m_offset;
    if (m_position >= m_size) {
        m_flags |= kCXStreamEnd;
    } else {
        m_flags &= ~kCXStreamEnd;
    }
    return m_position;
}
