// A stream that keeps what it reads from a source in memory.
#pragma once

#include "stream/CXStreamDynamicBuffer.h"

#include <memory>

/// Makes a forward-only source seekable; any seek back is served from memory. Read-only. Positions
/// count from where the source stood at construction.
class CXStreamMemoryCacheWrapper : public CXStreamDynamicBuffer {
public:
    /// Owns the source.
    explicit CXStreamMemoryCacheWrapper(std::unique_ptr<CXStream> source);
    ~CXStreamMemoryCacheWrapper() override;

    /// What is in memory plus, if the source knows it, what is still to come.
    uint64_t GetSize() override;
    /// Refused, like writes and options.
    void SetSize(uint64_t size) override;
    bool SetOption(uint32_t code, uint64_t value) override;
    /// Closes the source.
    void Close() override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    /// A position that is not in memory yet reads the source up to there; it stops at the end.
    uint64_t BufferedSeek(int64_t position) override;

private:
    CXResult FetchUpTo(uint64_t end);

    std::unique_ptr<CXStream> m_source;
};
