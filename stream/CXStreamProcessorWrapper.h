// A stream around a stream processor.
#pragma once

#include "stream/StreamProcessor.h"

/// Reads the transformed bytes of a source, or transforms what is written into a destination.
/// Forward only, of unknown size; a seek to where it stands succeeds. Processor, source and
/// destination are not owned and must outlive the open wrapper. Bytes behind the end of the
/// transformed data are left alone when reading and swallowed when writing.
class CXStreamProcessorWrapper : public CXStream {
public:
    /// Either stream may be null: without a source reads, without a destination writes are refused
    /// with kCXResultNotSupported.
    CXStreamProcessorWrapper(StreamProcessor& processor, CXStream* source, CXStream* destination);
    /// Closes.
    ~CXStreamProcessorWrapper() override;

    /// When writing, finishes the transformation and moves the rest to the destination; look at the
    /// last error. Does not close the other stream.
    void Close() override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;

private:
    CXResult FillFromSource();
    bool MoveOutput();

    StreamProcessor* m_processor;
    CXStream* m_source;
    CXStream* m_destination;
    CXResult m_state = kCXResultOK; ///< end or failure of the processor, for good
};
