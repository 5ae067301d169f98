// Compression and inflation of zlib streams (RFC 1950) as stream processors.
#pragma once

#include "stream/StreamProcessor.h"

#include <zlib.h>

/// What both directions share: the input and output areas, and the memory for zlib, which comes
/// from the thread's block allocator.
class StreamProcessorZLib : public StreamProcessor {
public:
    static constexpr uint32_t kAreaSize = 4096; ///< bytes of each area

    uint64_t GetInputRoom() override;
    CXResult FillInput(CXStream& stream, uint64_t count) override;
    uint64_t GetOutputAvailable() override;
    CXResult ReadOutput(void* data, uint64_t count) override;
    CXResult ReadOutputToStream(CXStream& stream, uint64_t count) override;
    void Finish() override;

    /// The allocator given to zlib: `items` times `size` bytes, or null. A small block has its size
    /// in front; a larger one is aligned to 16 bytes.
    static void* AllocateForZLib(void* context, unsigned items, unsigned size);
    static void FreeForZLib(void* context, void* block);

protected:
    StreamProcessorZLib();
    void PointAtOutputArea();
    void DropOutput(uint64_t count);
    void CompactOutput();

    uint8_t m_input[kAreaSize];
    uint8_t m_output[kAreaSize];
    z_stream m_zlib;
    uint32_t m_outputTaken = 0; ///< bytes at the start of the output area that were taken
    uint32_t m_inputPosition = 0;
    uint32_t m_inputCount = 0; ///< bytes of input not yet used
    bool m_finished = false;
    bool m_valid = false; ///< the zlib state is set up
};

/// Makes a zlib stream.
class StreamProcessorZLibCompress : public StreamProcessorZLib {
public:
    /// `level` is zlib's, 0 to 9, or Z_DEFAULT_COMPRESSION.
    explicit StreamProcessorZLibCompress(int level);
    ~StreamProcessorZLibCompress() override;
    /// An empty input buffer ends the compressed stream.
    CXResult Process() override;
};

/// Inflates a zlib stream.
class StreamProcessorZLibDecompress : public StreamProcessorZLib {
public:
    StreamProcessorZLibDecompress();
    ~StreamProcessorZLibDecompress() override;
    /// Bad data gives kCXResultUnusable. A call that can't move anything counts as the end.
    CXResult Process() override;
    CXResult ProcessInto(void* data, uint64_t count, uint64_t& produced) override;

private:
    CXResult Inflate();
};
