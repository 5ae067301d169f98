// The blocking socket stream (IPv4) beneath TLS and HTTP.
#pragma once

#include "core/CXLock.h"
#include "net/CXSocketAddress.h"
#include "net/CXSocketDriver.h"
#include "runtime/CXReadWriteLock.h"
#include "stream/CXStream.h"

#include <atomic>
#include <cstdint>
#include <memory>

/// One thread may read while another writes. `Close` may come from any thread at any time: it ends
/// a blocked connect, read, write or accept and waits until the call is over. The stream has no
/// window and no position. The end of the connection and a failed socket are the same result,
/// kCXResultEndOfStream; without a socket it is kCXResultNotOpen; a count of 2^31 or more is
/// kCXResultNoResources. A stream in error reads nothing.
class CXStreamTCP : public CXStream {
public:
    CXStreamTCP();
    ~CXStreamTCP() override;

    /// Connects to `address`, waiting at most `timeoutMs`. `IsOpen` and `GetLastError` tell how it
    /// went: kCXResultEndOfStream for any failure, kCXResultAlreadyOpen (and closed) if it was
    /// open.
    void Open(const CXSocketAddress& address, uint32_t timeoutMs);
    /// Waits for connections at `address`; port 0 takes a free one, see `GetLocalAddress`.
    void Listen(const CXSocketAddress& address);
    /// Waits for a connection to a listening stream. The caller owns the new stream; null when the
    /// stream was closed or the accept failed.
    std::unique_ptr<CXStreamTCP> Accept();

    // ---- CXStream ----
    /// kCXStreamEventCanRead asks `HasData`.
    CXGenericEvent* CreateEvent(uint32_t number) override;
    /// Sets or clears kCXStreamPartialReads alone.
    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override;
    void Close() override;
    /// Makes the platform send what it has gathered.
    void Flush(uint32_t options = 0) override;
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;

    /// Whether a read would return at once: with data, or at the connection's end. Out-of-band data
    /// closes the stream.
    bool HasData();
    /// Asks for the platform's loopback short cut from the next `Open` on; kCXResultNotSupported
    /// where there is none.
    CXResult SetFastLoopback(bool fast);
    /// Sends small writes at once. kCXResultNotOpen without a socket; lasts until `Close`.
    CXResult SetNoDelay(bool noDelay);
    /// Limit how long one send or receive may wait. The limit is 45,000 ms, whatever is passed.
    CXResult SetSendTimeout(uint32_t timeoutMs);
    CXResult SetReceiveTimeout(uint32_t timeoutMs);

    CXSocketAddress GetLocalAddress();
    CXSocketAddress GetRemoteAddress();

private:
    CXSocketHandle GetSocket();
    /// Makes and stores the socket; kCXNoSocket on failure, or if the stream was open.
    CXSocketHandle StartOpening(const char* caller, const CXSocketAddress& remote);
    bool BindTo(CXSocketHandle socket, const CXSocketAddress& address);
    bool Connect(CXSocketHandle socket, const CXSocketAddress& address, uint32_t timeoutMs);
    bool WaitForConnection(CXSocketHandle socket, uint32_t timeoutMs);
    /// Marks the stream open, or stores the failure and closes the socket.
    void FinishOpening(CXSocketHandle socket, bool success);
    std::unique_ptr<CXStreamTCP> AcceptCounted();
    /// Makes the caller the one that closes the socket.
    CXSocketHandle TakeSocket();
    void CloseTaken(CXSocketHandle socket);
    void WakeAccepts();
    /// The socket to use; kCXNoSocket with the error set when the request can't be met.
    CXSocketHandle StartTransfer(const void* data, uint64_t count);
    CXResult SetTimeout(CXSocketDriver::Timeout kind);

    CXSocketDriver& m_driver;
    CXSocketAddress m_localAddress; // these three guarded by m_socketLock
    CXSocketAddress m_remoteAddress;
    CXSocketHandle m_socket = kCXNoSocket;
    bool m_fastLoopback = false;
    bool m_noDelay = false;
    CXRecursiveLock m_optionsLock;
    CXCriticalSection m_socketLock;
    // Calls that use the socket hold it in mode ShareOpen; opening and closing it, in Exclusive.
    CXReadWriteLock m_useLock;
    std::atomic<uint32_t> m_acceptCalls{0};
};
