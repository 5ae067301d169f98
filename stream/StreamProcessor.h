// A transformation of bytes with an input and an output buffer, driven by a caller.
#pragma once

#include "stream/CXStream.h"

#include <cstdint>

/// One object is used by one thread at a time. `Process` answers kCXResultEndOfStream at the end of
/// the transformed data.
class StreamProcessor {
public:
    StreamProcessor() = default;
    virtual ~StreamProcessor();
    StreamProcessor(const StreamProcessor&) = delete;
    StreamProcessor& operator=(const StreamProcessor&) = delete;

    /// Bytes that `FillInput` can take.
    virtual uint64_t GetInputRoom() = 0;
    /// Reads `count` bytes from the stream into the input buffer. More than the room is
    /// kCXResultInvalidArgument; a short read keeps what came and gives the stream's error.
    virtual CXResult FillInput(CXStream& stream, uint64_t count) = 0;
    /// Bytes that can be taken from the output buffer.
    virtual uint64_t GetOutputAvailable() = 0;
    /// Takes `count` bytes; more than are available is kCXResultInvalidArgument.
    virtual CXResult ReadOutput(void* data, uint64_t count) = 0;
    /// Moves `count` bytes of output to a stream.
    virtual CXResult ReadOutputToStream(CXStream& stream, uint64_t count) = 0;
    /// Transforms input into output, as far as both buffers allow.
    virtual CXResult Process() = 0;
    /// No input will follow what is in the buffer.
    virtual void Finish();
    /// As `Process`, but puts the output straight into the caller's memory; `produced` tells how
    /// much. Only while no output waits in the buffer. The base knows no such way
    /// (kCXResultNotSupported).
    virtual CXResult ProcessInto(void* data, uint64_t count, uint64_t& produced);
};
