// TLS over any other open stream.
#pragma once

#include "core/CXLock.h"
#include "core/CXString.h"
#include "net/CXStreamTCP.h"
#include "runtime/CXReadWriteLock.h"
#include "stream/CXStream.h"

#include <cstdint>

class CXSSLContext;
struct bio_st;
struct ssl_st;

/// The client's side of a TLS connection. OpenSSL works on memory; this class moves the bytes
/// between it and the inner stream, which is not owned and outlives the open stream. The context
/// does so too.
///
/// One thread may read while another writes. `Close` and `CloseWithInner` may come from any thread;
/// a plain `Close` waits until a blocked read is over, `CloseWithInner` ends it.
///
/// Written bytes wait until 65,536 have gathered, a read needs data, or `Flush`.
class CXStreamSSL : public CXStream {
public:
    CXStreamSSL();
    ~CXStreamSSL() override;

    /// The name that the peer's certificate must carry, letter case included, and that is told to
    /// the server unless it is an address in numbers. Empty: any peer with a good chain is taken.
    /// Set before `Open`.
    void SetHostName(const CXString& hostName);

    /// Shakes hands over `inner`, waiting as long as its reads do. `IsOpen` tells how it went.
    /// kCXResultInvalidArgument without an inner stream, kCXResultAccessDenied for a failed
    /// handshake (a bad chain included); a peer of another name is refused (not open) without an
    /// error. An open stream is closed first.
    void Open(CXSSLContext* context, CXStream* inner);

    // ---- CXStream ----
    /// Sets or clears kCXStreamPartialReads alone.
    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override;
    /// Sends what waits, then forgets the inner stream, which stays open.
    void Close() override;
    /// Sends what waits.
    void Flush(uint32_t options = 0) override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    /// kCXResultEndOfStream when the peer ends the connection, orderly or not, and for a failure.
    uint64_t BufferedRead(void* data, uint64_t count) override;

    /// Closes the inner stream first, so that a blocked handshake, read or write ends.
    void CloseWithInner();

    /// Compares a name in a certificate, whose "*" stands for one or more bytes up to a dot, with a
    /// host name. Letter case counts.
    static bool MatchesName(absl::string_view pattern, absl::string_view name);

private:
    bool Start(CXSSLContext& context, CXStream& inner);
    void ShakeHands();
    bool VerifyPeer();
    /// Sends all cipher text that waits; with `waitForData` also fetches some if OpenSSL lacks it.
    /// Called with the state lock held once, which it gives up around the inner stream's calls.
    void Pump(bool waitForData);
    bool SendPiece();
    void ReceivePiece();
    /// Does what OpenSSL asks for after a call that moved nothing. True if the call has done its
    /// work; otherwise it is to be tried again unless the stream is in error.
    bool HandleOutcome(int answer, bool mayEnd);
    bool CanTransfer(const void* data, uint64_t count);
    void CloseLocked();

    CXSSLContext* m_context = nullptr;
    CXStream* m_inner = nullptr; // changed with m_useLock in Exclusive and m_stateLock held
    ssl_st* m_ssl = nullptr;
    bio_st* m_readBio = nullptr;  // cipher text from the peer; owned by m_ssl
    bio_st* m_writeBio = nullptr; // cipher text to the peer; owned by m_ssl
    bool m_waitingForData = false;
    CXString m_hostName;
    uint64_t m_bytesSinceFlush = 0;
    // Reads and writes hold it in mode ShareOpen; opening and closing, in Exclusive.
    CXReadWriteLock m_useLock;
    // Over the TLS state; given up while the inner stream blocks. Taken after the two below.
    CXRecursiveLock m_stateLock;
    CXRecursiveLock m_readLock;    // held while an inner read blocks
    CXCriticalSection m_writeLock; // keeps pieces of cipher text in order
};
