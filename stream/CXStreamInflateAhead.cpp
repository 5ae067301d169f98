#include "stream/CXStreamInflateAhead.h"

#include "runtime/CXThread.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/StreamProcessorZLib.h"

#include <algorithm>
#include <cstring>

/// Fills the ring; once full it rests until half of it is read, so that the threads change hands
/// seldom.
class CXStreamInflateAhead::Helper : public CXThread {
public:
    explicit Helper(CXStreamInflateAhead& stream)
        : CXThread("CXStreamInflateAhead"), m_stream(stream) {}
    ~Helper() override { CXThread::Stop(); }

    void Proc() override {
        CXConditionGuard guard(m_stream.m_changed.GetLock());
        bool isFilling = true;
        while (!m_stream.m_isStopping) {
            isFilling = isFilling ? !m_stream.IsRingFull() : m_stream.IsRingHalfEmpty();
            if (isFilling && !m_stream.m_isInflating && m_stream.CanInflate()) {
                m_stream.InflateChunk(guard);
            } else {
                m_stream.m_changed.Wait(guard);
            }
        }
    }

private:
    CXStreamInflateAhead& m_stream;
};

CXStreamInflateAhead::CXStreamInflateAhead(StreamProcessorZLibDecompress& inflater,
                                           CXStream& source)
    : m_inflater(&inflater), m_source(&source), m_inputRoom(inflater.GetInputRoom()) {
    m_flags = kCXStreamIsOpen | kCXStreamSeekable | kCXStreamReadable;
}

CXStreamInflateAhead::~CXStreamInflateAhead() {
    CXStreamInflateAhead::Close();
}

void CXStreamInflateAhead::Close() {
    if (!IsOpen()) {
        return;
    }
    if (m_helper != nullptr) {
        {
            const CXConditionGuard guard(m_changed.GetLock());
            m_isStopping = true;
            m_changed.WakeAll();
        }
        m_helper.reset();
    }
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

uint64_t CXStreamInflateAhead::BufferedWrite(const void* /*data*/, uint64_t /*count*/) {
    SetError(IsOpen() ? kCXResultNotSupported : kCXResultNotOpen);
    return 0;
}

uint64_t CXStreamInflateAhead::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen()) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count && (m_hasChunk || TakeChunk())) {
        // The chunk is the reader's until it counts as taken, so no lock is needed.
        const Chunk& chunk = m_chunks[m_chunksTaken % kChunks];
        const uint64_t amount = std::min(count - done, chunk.size - m_chunkPosition);
        std::memcpy(to + done, chunk.data.get() + m_chunkPosition, static_cast<size_t>(amount));
        done += amount;
        m_chunkPosition += amount;
        if (m_chunkPosition == chunk.size) {
            const CXConditionGuard guard(m_changed.GetLock());
            ++m_chunksTaken;
            m_hasChunk = false;
            if (m_chunksMade - m_chunksTaken == kChunks / 2) {
                m_changed.WakeAll();
            }
        }
    }
    m_windowOffset += done;
    return done;
}

/// Makes the next chunk the reader's. False, with the error set, where the data ends.
bool CXStreamInflateAhead::TakeChunk() {
    CXConditionGuard guard(m_changed.GetLock());
    while (m_chunksMade == m_chunksTaken) {
        if (m_isInflating) {
            m_changed.Wait(guard);
        } else if (CanInflate()) {
            // Sooner than the helper would come to it.
            InflateChunk(guard);
        } else if (m_state != kCXResultOK || m_sourceEnded) {
            ReportFailure();
            return false;
        } else {
            // The first time, or all that was read gave no output.
            const uint64_t until = m_piecesUsed + kPieces;
            guard.unlock();
            ReadPieces(until);
            if (m_helper == nullptr && m_pieces[0].size == kPieceSize) {
                m_helper = std::make_unique<Helper>(*this);
                m_helper->Start();
            }
            guard.lock();
        }
    }
    const uint64_t until = m_chunks[m_chunksTaken % kChunks].piecesUsed + kPieces;
    guard.unlock();
    m_hasChunk = true;
    m_chunkPosition = 0;
    ReadPieces(until);
    return true;
}

void CXStreamInflateAhead::ReportFailure() {
    const CXResult result = m_state != kCXResultOK ? m_state : m_sourceError;
    if (result == kCXResultEndOfStream) {
        MarkEnd();
    } else {
        SetError(result);
    }
}

/// Reads from the source until `until` pieces are read in all. Their memory is free: a piece is
/// only asked for when the one kPieces before it is used up. The end of the source is no fault: the
/// inflater knows whether its data ended with it.
void CXStreamInflateAhead::ReadPieces(uint64_t until) {
    while (m_piecesRead < until && !m_sourceEnded) {
        Piece& piece = m_pieces[m_piecesRead % kPieces];
        if (piece.data == nullptr) {
            piece.data = std::make_unique_for_overwrite<uint8_t[]>(kPieceSize);
        }
        uint64_t wanted = kPieceSize;
        if (m_source->IsRemainingKnown()) {
            wanted = std::min(wanted, m_source->GetRemaining());
        }
        const uint64_t got = wanted != 0 ? m_source->Read(piece.data.get(), wanted) : 0;
        CXResult error = kCXResultOK;
        if (got < wanted) {
            error = CXResultCertainFailure(m_source->GetLastError());
        }
        const CXConditionGuard guard(m_changed.GetLock());
        piece.size = got;
        piece.taken = 0;
        m_piecesRead += got != 0 ? 1 : 0;
        m_sourceEnded = got < kPieceSize;
        m_sourceError = error == kCXResultEndOfStream ? kCXResultOK : error;
        m_changed.WakeAll();
    }
}

bool CXStreamInflateAhead::CanInflate() const {
    return m_state == kCXResultOK && !IsRingFull() &&
           (m_piecesUsed < m_piecesRead || (m_sourceEnded && m_sourceError == kCXResultOK));
}

void CXStreamInflateAhead::InflateChunk(CXConditionGuard& guard) {
    Chunk& chunk = m_chunks[m_chunksMade % kChunks];
    uint64_t used = m_piecesUsed;
    const uint64_t read = m_piecesRead;
    const bool isLast = m_sourceEnded && m_sourceError == kCXResultOK;
    m_isInflating = true;
    guard.unlock();
    const CXResult result = FillChunk(chunk, used, read, isLast);
    guard.lock();
    m_isInflating = false;
    m_piecesUsed = used;
    m_state = result;
    m_chunksMade += chunk.size != 0 ? 1 : 0;
    m_changed.WakeAll();
}

/// A chunk ends when it is full and where a piece is used up, whatever else has been read by then,
/// so that it is the same in every run. It stays empty when there is no piece left to inflate.
CXResult CXStreamInflateAhead::FillChunk(Chunk& chunk, uint64_t& used, uint64_t read, bool isLast) {
    if (chunk.data == nullptr) {
        chunk.data = std::make_unique_for_overwrite<uint8_t[]>(kChunkSize);
    }
    chunk.size = 0;
    CXResult result = kCXResultOK;
    while (result == kCXResultOK && chunk.size < kChunkSize) {
        if (used < read) {
            Piece& piece = m_pieces[used % kPieces];
            const uint64_t room = m_inflater->GetInputRoom();
            const uint64_t count = std::min(room, piece.size - piece.taken);
            if (count == 0 && room == m_inputRoom) {
                ++used;
                if (chunk.size != 0) {
                    break;
                }
                continue;
            }
            CXStreamStaticBuffer input(piece.data.get() + piece.taken, count);
            m_inflater->FillInput(input, count);
            piece.taken += count;
        } else if (!isLast) {
            // Without input the inflater would take it for the end of the data.
            break;
        }
        uint64_t produced = 0;
        result = m_inflater->ProcessInto(chunk.data.get() + chunk.size, kChunkSize - chunk.size,
                                         produced);
        chunk.size += produced;
    }
    chunk.piecesUsed = used;
    return result;
}
