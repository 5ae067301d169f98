// Writes the data file of a patch: one zlib stream, compressed on several threads.
#pragma once

#include "core/CXMD5.h"
#include "core/CXResult.h"
#include "core/CXString.h"
#include "stream/CXStreamFile.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// The stream is cut into pieces of one size, which are compressed apart, each with the 32 KiB in
/// front of it as its window, and joined on byte boundaries: the same bytes give the same file
/// whatever the number of threads. Level 9 takes VelPatchDeflater, the lower ones zlib's own
/// deflate. Memory: some 5 MiB plus 20 MiB per thread. One thread may call it.
class VelPatchDataWriter {
public:
    VelPatchDataWriter();
    ~VelPatchDataWriter();
    /// Begins the file. `level` is 1 to 9, `workers` at least 1.
    CXResult Open(const CXString& path, int level, unsigned workers);
    void Append(std::span<const uint8_t> bytes);
    void AppendU64(uint64_t number);
    /// Appends a text with its length in front, as the readers of records expect it.
    void AppendString(const CXString& text);
    /// The first failure since Open; nothing more reaches the file then.
    CXResult GetLastError() const { return m_file.GetLastError(); }
    /// Ends the stream and the file; the first failure since Open.
    CXResult Close();

    /// Size and MD5 of the file; for a closed one.
    uint64_t GetSize() const { return m_size; }
    const CXString& GetChecksum() const { return m_checksum; }
    /// Bytes appended so far.
    uint64_t GetRawSize() const { return m_rawSize; }

private:
    class Pool;

    void Compress(bool isLast);
    void WriteOut(std::span<const uint8_t> bytes);

    std::unique_ptr<Pool> m_pool;
    CXStreamFile m_file;
    CXMD5 m_digest;
    int m_level = 9;
    unsigned m_workers = 1;
    size_t m_windowSize = 0;        ///< bytes at the start of m_pending that are compressed already
    std::vector<uint8_t> m_pending; ///< the window, then what waits
    uint32_t m_adler = 1;
    uint64_t m_rawSize = 0;
    uint64_t m_size = 0;
    CXString m_checksum;
};
