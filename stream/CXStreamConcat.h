// Several streams read as one.
#pragma once

#include "stream/CXStreamCacheHelper.h"

#include <deque>
#include <memory>

/// Reads its parts in order, each from the position it had when it was appended. Read-only.
class CXStreamConcat : public CXStream, protected CXStreamCacheHelper {
public:
    CXStreamConcat();
    ~CXStreamConcat() override;

    /// Adds a part, which the stream owns from then on. The total size stays known as long as the
    /// rest of every part is known.
    void Append(std::unique_ptr<CXStream> part);

    /// Total size of the parts; 0 when unknown.
    uint64_t GetSize() override;
    bool SetOption(uint32_t code, uint64_t value) override;
    /// Drops the parts.
    void Close() override;
    uint64_t BufferedRead(void* data, uint64_t count) override;
    /// Within the total size, if the parts up to there are seekable and of known size.
    uint64_t BufferedSeek(int64_t position) override;

protected:
    uint64_t RawTell() override;
    uint64_t RawWrite(const void* data, uint64_t count, bool reportErrors) override;
    uint64_t RawRead(void* data, uint64_t count, bool reportErrors) override;
    bool RawSeek(uint64_t position) override;
    uint64_t RawGetSize() override;
    bool RawSetSize(uint64_t size) override;

private:
    struct Part {
        std::unique_ptr<CXStream> stream;
        uint64_t start;  ///< its position when it was appended
        uint64_t length; ///< bytes from there, kUnknownSize if not known
    };
    std::deque<Part> m_parts;
    size_t m_current = 0;
    uint64_t m_totalSize = 0;
    uint64_t m_totalPosition = 0;
};
