// An MD5 digest that is taken on a second thread.
#pragma once

#include "core/CXMD5.h"
#include "runtime/CXCondition.h"

#include <memory>

/// Digests pieces in the order in which they are handed over, while the caller reads the next ones.
/// Holds at most kPieces pieces: a caller that is further ahead waits, or digests a piece itself
/// when the other thread isn't at it (or couldn't be had). Used by one thread.
class CXMD5Ahead {
public:
    static constexpr uint64_t kPieceSize = 65536; ///< bytes
    static constexpr uint64_t kPieces = 8;

    CXMD5Ahead();
    ~CXMD5Ahead();
    CXMD5Ahead(const CXMD5Ahead&) = delete;
    CXMD5Ahead& operator=(const CXMD5Ahead&) = delete;

    /// Memory for the next kPieceSize bytes, the caller's until `PutPiece`.
    uint8_t* GetPiece();
    /// Hands over the first `count` bytes of what `GetPiece` gave.
    void PutPiece(uint64_t count);
    /// Finishes; 32 lower-case hexadecimal characters.
    CXString FinishHex();

private:
    class Helper;

    uint64_t CountWaiting() const { return m_put - m_digested; }
    void DigestPiece(CXConditionGuard& guard);

    CXMD5 m_digest; ///< of whoever set m_isDigesting
    std::unique_ptr<uint8_t[]> m_pieces;
    CXCondition m_changed; ///< its lock guards what follows
    uint64_t m_sizes[kPieces] = {};
    uint64_t m_put = 0;
    uint64_t m_digested = 0;
    bool m_isDigesting = false;
    bool m_isStopping = false;
    std::unique_ptr<Helper> m_helper; ///< last: it uses all the others
};
