// Writes the data file of a patch: one zlib stream, compressed on several threads.
#pragma once

#include "core/CXLock.h"
#include "core/CXMD5.h"
#include "core/CXResult.h"
#include "core/CXString.h"
#include "stream/CXStreamFile.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <vector>

class VelPatchDeflater;

/// The stream is cut into pieces of one size, which are compressed apart, each with the 32 KiB in
/// front of it as its window, and joined on byte boundaries: the same bytes give the same file
/// whatever the number of threads. Level 9 takes VelPatchDeflater, the lower ones zlib's own
/// deflate. Memory: some 5 MiB plus 20 MiB per thread. One thread at a time appends; any number
/// may compress beside it.
class VelPatchDataWriter {
public:
    VelPatchDataWriter();
    ~VelPatchDataWriter();
    /// Begins the file. `level` is 1 to 9.
    CXResult Open(const CXString& path, int level);
    /// Queues the bytes; compresses by itself where too much waits.
    void Append(std::span<const uint8_t> bytes);
    void AppendU64(uint64_t number);
    /// Appends a text with its length in front, as the readers of records expect it.
    void AppendString(const CXString& text);
    /// Compresses the piece that has waited longest, and writes what has its turn; false if none
    /// waits. From any thread.
    bool CompressPiece();
    /// The first failure since Open; nothing more reaches the file then. From any thread.
    CXResult GetLastError() const;
    /// Ends the stream and the file, when nobody else is at work on it any more; the first failure
    /// since Open. Up to `workers` threads compress what is left.
    CXResult Close(unsigned workers);

    /// Size and MD5 of the file; for a closed one.
    uint64_t GetSize() const { return m_size; }
    const CXString& GetChecksum() const { return m_checksum; }
    /// Bytes appended so far.
    uint64_t GetRawSize() const { return m_rawSize; }

private:
    struct Piece {
        size_t number = 0;
        size_t windowSize = 0; ///< bytes in front that only help
        bool isLast = false;
        std::vector<uint8_t> bytes;
    };

    void CutPiece(bool isLast);
    size_t CountWaiting() const;
    std::vector<uint8_t> Compress(const Piece& piece);
    void WriteOut(std::span<const uint8_t> bytes);

    int m_level = 9;
    std::vector<uint8_t> m_pending; ///< the window, then what makes up the next piece
    size_t m_windowSize = 0;        ///< of m_pending
    size_t m_pieces = 0;            ///< cut so far
    uint32_t m_adler = 1;
    uint64_t m_rawSize = 0;

    mutable CXCriticalSection m_lock; ///< over these:
    std::deque<Piece> m_waiting;
    std::map<size_t, std::vector<uint8_t>> m_packed; ///< by number: done before their turn
    std::vector<std::unique_ptr<VelPatchDeflater>> m_idle;
    size_t m_written = 0;     ///< pieces
    bool m_isWriting = false; ///< one thread at a time, without the lock, has these:
    CXStreamFile m_file;
    CXMD5 m_digest;
    uint64_t m_size = 0;
    CXResult m_error = kCXResultOK; ///< under the lock

    CXString m_checksum;
};
