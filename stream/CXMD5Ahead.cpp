#include "stream/CXMD5Ahead.h"

#include "runtime/CXThread.h"

class CXMD5Ahead::Helper : public CXThread {
public:
    explicit Helper(CXMD5Ahead& owner) : CXThread("CXMD5Ahead"), m_owner(owner) {}
    ~Helper() override { CXThread::Stop(); }

    void Proc() override {
        CXConditionGuard guard(m_owner.m_changed.GetLock());
        while (!m_owner.m_isStopping) {
            if (m_owner.CountWaiting() != 0 && !m_owner.m_isDigesting) {
                m_owner.DigestPiece(guard);
            } else {
                m_owner.m_changed.Wait(guard);
            }
        }
    }

private:
    CXMD5Ahead& m_owner;
};

CXMD5Ahead::CXMD5Ahead()
    : m_pieces(std::make_unique_for_overwrite<uint8_t[]>(kPieces * kPieceSize)),
      m_helper(std::make_unique<Helper>(*this)) {
    m_helper->Start();
}

CXMD5Ahead::~CXMD5Ahead() {
    {
        const CXConditionGuard guard(m_changed.GetLock());
        m_isStopping = true;
        m_changed.WakeAll();
    }
    m_helper.reset();
}

uint8_t* CXMD5Ahead::GetPiece() {
    CXConditionGuard guard(m_changed.GetLock());
    if (CountWaiting() == kPieces) {
        // Until half of them are done, so that the threads change hands seldom.
        while (CountWaiting() > kPieces / 2) {
            if (m_isDigesting) {
                m_changed.Wait(guard);
            } else {
                DigestPiece(guard);
            }
        }
    }
    return m_pieces.get() + m_put % kPieces * kPieceSize;
}

void CXMD5Ahead::PutPiece(uint64_t count) {
    const CXConditionGuard guard(m_changed.GetLock());
    m_sizes[m_put % kPieces] = count;
    ++m_put;
    if (CountWaiting() == 1 && !m_isDigesting) {
        m_changed.WakeAll();
    }
}

/// Called with the lock held, which is free while the piece is digested.
void CXMD5Ahead::DigestPiece(CXConditionGuard& guard) {
    const uint64_t slot = m_digested % kPieces;
    const uint64_t size = m_sizes[slot];
    m_isDigesting = true;
    guard.unlock();
    m_digest.Update(m_pieces.get() + slot * kPieceSize, static_cast<size_t>(size));
    guard.lock();
    m_isDigesting = false;
    ++m_digested;
    if (CountWaiting() <= kPieces / 2) {
        m_changed.WakeAll();
    }
}

CXString CXMD5Ahead::FinishHex() {
    CXConditionGuard guard(m_changed.GetLock());
    while (CountWaiting() != 0) {
        if (m_isDigesting) {
            m_changed.Wait(guard);
        } else {
            DigestPiece(guard);
        }
    }
    return m_digest.FinishHex();
}
