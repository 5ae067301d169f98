// One of the logical streams that a CXStreamMultiplexer carries.
#pragma once

#include "runtime/DynamicReferenceCount.h"
#include "stream/CXStreamQueued.h"

#include <atomic>
#include <cstdint>

class CXStreamMultiplexer;

/// Made by its multiplexer and kept by references. It is not open any more once the other side
/// closed the channel, the channel was opened anew, or the multiplexer's thread has ended; see
/// CXStreamQueued for what works then. The owner calls `Close` in any case, before which the
/// multiplexer holds a reference too.
class CXStreamMultiplexerStream : public CXStreamQueued, public DynamicReferenceCount {
public:
    ~CXStreamMultiplexerStream() override;

    uint32_t GetId() const { return m_id; }

    // ---- CXStream ----
    /// Tells the other side, which ignores an id that it doesn't know.
    void Close() override;
    /// Flushes the underlying stream.
    void Flush(uint32_t options = 0) override;
    /// Sends the bytes; waits for other writers and as long as the underlying stream's write does.
    uint64_t BufferedWrite(const void* data, uint64_t count) override;

private:
    friend class CXStreamMultiplexer;
    CXStreamMultiplexerStream(CXStreamMultiplexer& multiplexer, uint32_t id);

    /// Adds what the other side sent.
    void Deliver(const void* data, uint64_t count);
    /// The multiplexer, which holds its lock, lets go of the stream.
    void Detach();

    // Null once the multiplexer's map holds this stream no more. Changed under its lock.
    std::atomic<CXStreamMultiplexer*> m_multiplexer;
    const uint32_t m_id;
};
