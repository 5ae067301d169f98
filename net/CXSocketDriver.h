// The seam to the platform's sockets: one narrow virtual interface under CXStreamTCP and
// DNSResolverCore. Tests wrap the platform's driver in one that fails or alters calls.
#pragma once

#include "net/CXSocketAddress.h"

#include <cstdint>

/// A socket of a driver; kCXNoSocket when closed.
using CXSocketHandle = int64_t;
inline constexpr CXSocketHandle kCXNoSocket = -1;

/// Platform error numbers are the platform's own (errno, WSAGetLastError); 0 is none. Calls may
/// come from any thread, also several at once on one socket.
class CXSocketDriver {
public:
    /// What `Wait` waits for and tells, as bits.
    static constexpr uint32_t kRead = 1;
    static constexpr uint32_t kWrite = 2;
    static constexpr uint32_t kException = 4;

    enum class Connected : uint8_t { Yes, WouldBlock, Failed };
    enum class Timeout : uint8_t { Send, Receive };

    virtual ~CXSocketDriver() = default;

    /// Starts the socket library where there is one; called often, acts once per process.
    virtual void Start() = 0;
    /// A blocking IPv4 stream socket, not inherited by child processes; kCXNoSocket on failure.
    virtual CXSocketHandle Create() = 0;
    virtual bool Bind(CXSocketHandle socket, const CXSocketAddress& address) = 0;
    virtual bool Listen(CXSocketHandle socket, int backlog) = 0;
    /// Waits for a connection; kCXNoSocket on failure.
    virtual CXSocketHandle Accept(CXSocketHandle socket, CXSocketAddress& peer) = 0;
    virtual Connected Connect(CXSocketHandle socket, const CXSocketAddress& address) = 0;
    /// What the platform's call returned: 0 for success.
    virtual int SetBlocking(CXSocketHandle socket, bool blocking) = 0;
    /// Waits at most `timeoutMs` for any of `bits`; returns those that came about, 0 when the time
    /// ran out, -1 with `error` on failure. A connection's end counts as readable and writable.
    virtual int Wait(CXSocketHandle socket, uint32_t bits, uint32_t timeoutMs, int& error) = 0;
    /// Reads (and clears) the error that the socket has kept. False with the number of the call's
    /// own failure in `error`.
    virtual bool GetSocketError(CXSocketHandle socket, int& error) = 0;
    virtual bool GetLocalAddress(CXSocketHandle socket, CXSocketAddress& out) = 0;
    /// Bytes moved; 0 at the end of the connection (`error` 0); -1 with `error`.
    virtual int64_t Receive(CXSocketHandle socket, void* data, uint64_t count, int& error) = 0;
    /// Never raises a signal.
    virtual int64_t Send(CXSocketHandle socket, const void* data, uint64_t count, int& error) = 0;
    /// Ends both directions and wakes threads that wait in `Receive`.
    virtual void Shutdown(CXSocketHandle socket) = 0;
    virtual void Close(CXSocketHandle socket) = 0;
    virtual bool SetNoDelay(CXSocketHandle socket, bool noDelay) = 0;
    virtual bool SetTimeout(CXSocketHandle socket, Timeout kind, uint32_t milliseconds) = 0;
    /// Whether the platform knows a short cut for loopback connections.
    virtual bool HasFastLoopback() = 0;
    /// Asks for it; before the socket connects or listens.
    virtual bool SetFastLoopback(CXSocketHandle socket, bool fast) = 0;
    /// First IPv4 address of a host name, by the system's resolver; false when there is none. Waits
    /// as long as the system does.
    virtual bool LookUp(const CXString& name, CXSocketAddress& out) = 0;

    /// The driver in use; the platform's own unless replaced.
    static CXSocketDriver& Current();
    /// Replaces the driver (not owned; null restores the platform's). Returns the earlier one.
    static CXSocketDriver* SetCurrent(CXSocketDriver* driver);
    /// The platform's own driver.
    static CXSocketDriver& Platform();
};
