// A stream over memory that someone else owns.
#pragma once

#include "stream/CXStream.h"

/// Open from construction. The memory must outlive the stream.
class CXStreamStaticBuffer : public CXStream {
public:
    /// `size` bytes are in use; writes go as far as the larger of `size` and `capacity`.
    CXStreamStaticBuffer(void* data, uint64_t size, bool readOnly, uint64_t capacity = 0);
    /// Read-only.
    CXStreamStaticBuffer(const void* data, uint64_t size);

    uint64_t GetSize() override;
    /// The stream is not open afterwards; `GetSize` still tells what is in use.
    void Close() override;
    /// A write is cut at the capacity.
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    /// Clamped to the size in use.
    uint64_t BufferedSeek(int64_t position) override;

private:
    void RaiseSize();

    uint8_t* m_start;
    uint64_t m_sizeInUse;
    uint64_t m_capacity;
    bool m_readOnly;
};
