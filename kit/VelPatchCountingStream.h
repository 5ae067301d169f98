// A stream that keeps nothing but the count of what was written to it.
#pragma once

#include "stream/CXStream.h"

/// Tells how large something would become. Writes always succeed; its position and size are the
/// bytes written. Nothing can be read back.
class VelPatchCountingStream : public CXStream {
public:
    VelPatchCountingStream() { m_flags = kCXStreamWritable | kCXStreamIsOpen | kCXStreamSizeKnown; }
    uint64_t GetSize() override { return m_windowOffset; }
    uint64_t BufferedWrite(const void*, uint64_t count) override {
        m_windowOffset += count;
        return count;
    }
};
