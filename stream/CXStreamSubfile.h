// A window onto part of another stream.
#pragma once

#include "stream/CXStream.h"

/// The parent is not owned and must outlive the open subfile. Reads and writes go through the
/// parent from where it stands, so nobody else should move a parent meanwhile. Closed: reads,
/// writes, seeks and flushes store kCXResultAlreadyOpen.
class CXStreamSubfile : public CXStream {
public:
    CXStreamSubfile();
    /// Closes.
    ~CXStreamSubfile() override;

    /// Covers `size` bytes of the parent from `offset`, which should be the parent's position. If
    /// the parent's size is known and too small, a line is logged, the stream stays closed and the
    /// answer is false.
    bool Open(CXStream& parent, uint64_t offset, uint64_t size);

    /// Skips the parent forward over what is left of the window, then lets go of it.
    void Close() override;
    uint64_t GetSize() override;
    void Flush(uint32_t options = 0) override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    uint64_t BufferedSeek(int64_t position) override;

private:
    uint64_t GetRoom() const;
    uint64_t CutToRoom(uint64_t count);
    void Follow(uint64_t moved, uint64_t wanted);
    void TakeParentError();

    uint64_t m_position = 0;
    CXStream* m_parent = nullptr;
    uint64_t m_offset = 0;
    uint64_t m_size = 0;
};
