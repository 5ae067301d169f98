// A stream over a growing buffer that it owns.
#pragma once

#include "stream/CXStream.h"

/// Open from construction. Memory that can't be had stores kCXResultNoResources. A position past
/// the end is kept; bytes of a gap read as whatever the buffer holds (zeros where it was never
/// written).
class CXStreamDynamicBuffer : public CXStream {
public:
    CXStreamDynamicBuffer();
    ~CXStreamDynamicBuffer() override;

    /// The bytes from position 0 on, `GetSize` of them; null when nothing was ever reserved. Valid
    /// until the next write, reserve or size change.
    uint8_t* GetData();
    /// Makes room for `capacity` bytes in all; false with the error set if that can't be.
    bool Reserve(uint64_t capacity);

    uint64_t GetSize() override;
    void SetSize(uint64_t size) override;
    /// "RESV" makes room for that many bytes behind the position; an unreasonably large hint, which
    /// may come from outside data, is taken but not followed.
    bool SetOption(uint32_t code, uint64_t value) override;
    /// The stream is not open afterwards; `GetData` and `GetSize` still tell what was written.
    void Close() override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    uint64_t BufferedSeek(int64_t position) override;

protected:
    /// Raises the size to what fast writes have left behind.
    void RaiseSize();
    /// Publishes the buffer as window with the cursor at `position`.
    void PublishWindow(uint64_t position);
    /// Copies up to `count` bytes from the position on and moves it; silent about the end.
    uint64_t CopyOut(void* data, uint64_t count);
    /// As `Reserve`, without storing an error.
    bool Grow(uint64_t wanted);

    uint8_t* m_start = nullptr;
    uint64_t m_capacity = 0;
    uint64_t m_size = 0; ///< high-water mark of all data
};
