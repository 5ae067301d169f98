// Inflating on a second thread, ahead of the reader.
#pragma once

#include "runtime/CXCondition.h"
#include "stream/CXStream.h"

#include <memory>

class StreamProcessorZLibDecompress;

/// Reads the inflated bytes of a source, as a reading CXStreamProcessorWrapper does: forward only,
/// of unknown size, a seek to where it stands succeeds, and failures show at the same bytes. The
/// inflating runs ahead on a thread of its own, bounded by a ring of kChunks chunks.
///
/// The source is touched by the reader's thread alone, in pieces of kPieceSize, and when it is read
/// depends on nothing but the data and how far the reader has come: piece n + kPieces is read when
/// the reader takes the first output made after piece n was used up. So a run makes the same calls
/// in the same order every time, whichever thread is faster. The end or a failure of the inflater
/// or of the source is for good. Bytes behind the end of the zlib stream are left alone (though
/// they may have been read).
///
/// A source of less than one piece gets no thread; where none can be had the reader inflates.
/// Inflater and source are not owned and must outlive the open stream, and nobody else may use them
/// meanwhile. Memory: kChunks * kChunkSize + kPieces * kPieceSize bytes, taken as they are needed.
class CXStreamInflateAhead : public CXStream {
public:
    static constexpr uint64_t kPieceSize = 65536; ///< compressed bytes read from the source at once
    static constexpr uint64_t kPieces = 4;
    static constexpr uint64_t kChunkSize = 65536; ///< most inflated bytes handed over at once
    static constexpr uint64_t kChunks = 16;

    CXStreamInflateAhead(StreamProcessorZLibDecompress& inflater, CXStream& source);
    /// Closes.
    ~CXStreamInflateAhead() override;

    /// Ends the thread. Does not close the source.
    void Close() override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;

private:
    class Helper;

    struct Piece {
        std::unique_ptr<uint8_t[]> data;
        uint64_t size = 0;
        uint64_t taken = 0; ///< bytes given to the inflater
    };
    struct Chunk {
        std::unique_ptr<uint8_t[]> data;
        uint64_t size = 0;
        uint64_t piecesUsed = 0; ///< pieces used up when it was finished
    };

    // On the reader's thread.
    bool TakeChunk();
    void ReadPieces(uint64_t until);
    void ReportFailure();

    // On either thread, holding the lock. Only one of them inflates at a time.
    bool CanInflate() const;
    void InflateChunk(CXConditionGuard& guard);
    CXResult FillChunk(Chunk& chunk, uint64_t& used, uint64_t read, bool isLast);
    bool IsRingFull() const { return m_chunksMade - m_chunksTaken == kChunks; }
    bool IsRingHalfEmpty() const { return m_chunksMade - m_chunksTaken <= kChunks / 2; }

    StreamProcessorZLibDecompress* m_inflater;
    CXStream* m_source;
    uint64_t m_inputRoom; ///< of the inflater when it holds no input
    std::unique_ptr<Helper> m_helper;

    // The reader's own.
    bool m_hasChunk = false; ///< the chunk after those taken is being read
    uint64_t m_chunkPosition = 0;

    CXCondition m_changed; ///< its lock guards what follows; chunks and pieces belong to who is due
    Piece m_pieces[kPieces];
    Chunk m_chunks[kChunks];
    uint64_t m_piecesRead = 0;
    uint64_t m_piecesUsed = 0;
    uint64_t m_chunksMade = 0;
    uint64_t m_chunksTaken = 0;
    bool m_sourceEnded = false;
    bool m_isInflating = false;
    bool m_isStopping = false;
    CXResult m_sourceError = kCXResultOK;
    CXResult m_state = kCXResultOK; ///< end or failure of the inflater
};
