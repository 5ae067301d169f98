#include "net/CXStreamTCP.h"

#include "core/CXLog.h"
#include "core/CXTime.h"
#include "runtime/CXGenericEvent.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr uint64_t kTooMuch = static_cast<uint64_t>(1) << 31;
constexpr uint64_t kLargestReceive = 1048576;
constexpr uint32_t kTrafficTimeoutMs = 45000;
constexpr uint32_t kWakeTimeoutMs = 1000;
constexpr uint32_t kWakePauseMs = 10;
/// How often a connect looks whether the stream was closed meanwhile: not every platform wakes a
/// wait for a connection when the socket is shut down.
constexpr uint32_t kConnectSliceMs = 50;
constexpr int kBacklog = 128;

class CanReadEvent final : public CXGenericEvent {
public:
    explicit CanReadEvent(CXStreamTCP& stream) : m_stream(stream) {}
    ~CanReadEvent() override { DetachRefs(); }
    bool Test() override { return m_stream.HasData(); }

private:
    CXStreamTCP& m_stream;
};

} // namespace

CXStreamTCP::CXStreamTCP() : m_driver(CXSocketDriver::Current()) {
    m_driver.Start();
    m_flags = kCXStreamReadable | kCXStreamWritable;
}

CXStreamTCP::~CXStreamTCP() {
    DeleteEvents();
    CXStreamTCP::Close();
}

CXGenericEvent* CXStreamTCP::CreateEvent(uint32_t number) {
    if (number == kCXStreamEventCanRead) {
        return new CanReadEvent(*this);
    }
    return CXStream::CreateEvent(number);
}

void CXStreamTCP::SetFlagsUnderMask(uint32_t value, uint32_t mask) {
    // One step each: another thread may clear the open flag meanwhile.
    if ((mask & value & kCXStreamPartialReads) != 0) {
        m_flags |= kCXStreamPartialReads;
    } else if ((mask & kCXStreamPartialReads) != 0) {
        m_flags &= ~kCXStreamPartialReads;
    }
}

CXSocketHandle CXStreamTCP::GetSocket() {
    const CXCriticalSectionGuard guard(m_socketLock);
    return m_socket;
}

CXSocketAddress CXStreamTCP::GetLocalAddress() {
    const CXCriticalSectionGuard guard(m_socketLock);
    return m_localAddress;
}

CXSocketAddress CXStreamTCP::GetRemoteAddress() {
    const CXCriticalSectionGuard guard(m_socketLock);
    return m_remoteAddress;
}

// ---- Opening ----

CXSocketHandle CXStreamTCP::StartOpening(const char* caller, const CXSocketAddress& remote) {
    {
        const CXCriticalSectionGuard guard(m_socketLock);
        if (m_socket == kCXNoSocket) {
            ResetError();
            m_remoteAddress = remote;
            m_socket = m_driver.Create();
            if (m_socket == kCXNoSocket) {
                SetError(kCXResultEndOfStream);
            }
            return m_socket;
        }
        CXLogFormat("CXStreamTCP::%s> Already open", caller);
        SetError(kCXResultAlreadyOpen);
    }
    Close();
    return kCXNoSocket;
}

void CXStreamTCP::FinishOpening(CXSocketHandle socket, bool success) {
    {
        CXSocketAddress local;
        if (success) {
            m_driver.GetLocalAddress(socket, local);
        }
        const CXCriticalSectionGuard guard(m_socketLock);
        if (success && m_socket == socket) {
            m_localAddress = local;
            m_flags &= ~kCXStreamPartialReads;
            m_flags |= kCXStreamIsOpen;
            return;
        }
    }
    SetError(kCXResultEndOfStream);
    // Threads inside Accept wait for the lock that this one holds; they see the closed socket
    // afterwards, without being woken.
    const CXSocketHandle taken = GetSocket() == socket ? TakeSocket() : kCXNoSocket;
    if (taken != kCXNoSocket) {
        CloseTaken(taken);
    }
}

void CXStreamTCP::Open(const CXSocketAddress& address, uint32_t timeoutMs) {
    const CXSocketHandle socket = StartOpening("Open", address);
    if (socket == kCXNoSocket) {
        return;
    }
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::Exclusive);
    // Another thread may have closed the stream before the lock was ours.
    const bool mine = GetSocket() == socket;
    FinishOpening(socket, mine && Connect(socket, address, timeoutMs));
}

bool CXStreamTCP::BindTo(CXSocketHandle socket, const CXSocketAddress& address) {
    if (m_fastLoopback) {
        m_driver.SetFastLoopback(socket, true);
    }
    return m_driver.Bind(socket, address);
}

bool CXStreamTCP::Connect(CXSocketHandle socket, const CXSocketAddress& address,
                          uint32_t timeoutMs) {
    CXSocketAddress any;
    any.family = CXSocketAddress::kFamilyIPv4;
    if (!BindTo(socket, any)) {
        return false;
    }
    int answer = m_driver.SetBlocking(socket, false);
    if (answer != 0) {
        CXLogFormat("CXStreamTCP::Open> ioctlsocket(localSocket, FIONBIO, 1) returned %d", answer);
    }
    switch (m_driver.Connect(socket, address)) {
    case CXSocketDriver::Connected::Yes:
        break;
    case CXSocketDriver::Connected::WouldBlock:
        if (WaitForConnection(socket, timeoutMs)) {
            break;
        }
        return false;
    case CXSocketDriver::Connected::Failed:
        return false;
    }
    answer = m_driver.SetBlocking(socket, true);
    if (answer != 0) {
        CXLogFormat("CXStreamTCP::Open> ioctlsocket(localSocket, FIONBIO, 0) returned %d", answer);
    }
    return true;
}

bool CXStreamTCP::WaitForConnection(CXSocketHandle socket, uint32_t timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int answer = 0;
    int error = 0;
    for (;;) {
        const int64_t left =
            std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        answer = m_driver.Wait(socket, CXSocketDriver::kWrite | CXSocketDriver::kException,
                               static_cast<uint32_t>(std::clamp<int64_t>(left, 0, kConnectSliceMs)),
                               error);
        if (GetSocket() != socket) {
            return false;
        }
        if (answer < 0) {
            CXLogFormat("CXStreamTCP::Open> select returned error %d", error);
            return false;
        }
        if (answer != 0) {
            break;
        }
        if (left <= kConnectSliceMs) {
            CXLog("CXStreamTCP::Open> timeout");
            return false;
        }
    }
    // A refused connection counts as writable on some platforms, as an exception on others.
    if (!m_driver.GetSocketError(socket, error)) {
        CXLogFormat("CXStreamTCP::Open> getsockopt failed with err=%d", error);
        return false;
    }
    return error == 0 && (static_cast<uint32_t>(answer) & CXSocketDriver::kWrite) != 0;
}

// ---- Serving ----

void CXStreamTCP::Listen(const CXSocketAddress& address) {
    const CXSocketHandle socket = StartOpening("Listen", CXSocketAddress());
    if (socket == kCXNoSocket) {
        return;
    }
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::Exclusive);
    const bool mine = GetSocket() == socket;
    FinishOpening(socket, mine && BindTo(socket, address) && m_driver.Listen(socket, kBacklog));
}

std::unique_ptr<CXStreamTCP> CXStreamTCP::Accept() {
    // Raised before the socket is read: a Close that comes later finds either the count or, here,
    // no socket.
    m_acceptCalls.fetch_add(1);
    std::unique_ptr<CXStreamTCP> stream = AcceptCounted();
    m_acceptCalls.fetch_sub(1);
    return stream;
}

std::unique_ptr<CXStreamTCP> CXStreamTCP::AcceptCounted() {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXSocketHandle socket = GetSocket();
    if (socket == kCXNoSocket) {
        SetError(kCXResultNotOpen);
        return nullptr;
    }
    CXSocketAddress peer;
    const CXSocketHandle accepted = m_driver.Accept(socket, peer);
    if (GetSocket() != socket) {
        if (accepted != kCXNoSocket) {
            m_driver.Close(accepted);
        }
        return nullptr;
    }
    if (accepted == kCXNoSocket) {
        SetError(kCXResultEndOfStream);
        return nullptr;
    }
    auto stream = std::make_unique<CXStreamTCP>();
    stream->m_socket = accepted;
    stream->m_remoteAddress = peer;
    m_driver.GetLocalAddress(accepted, stream->m_localAddress);
    stream->m_flags |= kCXStreamIsOpen;
    return stream;
}

// ---- Closing ----

CXSocketHandle CXStreamTCP::TakeSocket() {
    const CXCriticalSectionGuard guard(m_socketLock);
    const CXSocketHandle socket = m_socket;
    m_socket = kCXNoSocket;
    return socket;
}

void CXStreamTCP::Close() {
    const CXSocketHandle socket = TakeSocket();
    if (socket == kCXNoSocket) {
        return;
    }
    WakeAccepts();
    CloseTaken(socket);
}

void CXStreamTCP::WakeAccepts() {
    CXSocketAddress local = GetLocalAddress();
    if (local.address == 0) {
        local = CXSocketAddress::Loopback(local.GetPort());
    }
    while (m_acceptCalls.load() != 0) {
        CXStreamTCP caller;
        caller.Open(local, kWakeTimeoutMs);
        if (!caller.IsOpen()) {
            CXSleep(kWakePauseMs);
            continue;
        }
        // Time for the woken call to leave before the next attempt.
        for (uint32_t waited = 0; waited < kWakePauseMs && m_acceptCalls.load() != 0; ++waited) {
            CXSleep(1);
        }
    }
}

void CXStreamTCP::CloseTaken(CXSocketHandle socket) {
    // Wakes the threads that hold the lock inside a call.
    m_driver.Shutdown(socket);
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::Exclusive);
    m_driver.Close(socket);
    m_flags &= ~(kCXStreamIsOpen | kCXStreamPartialReads);
    m_noDelay = false;
}

// ---- Traffic ----

uint64_t CXStreamTCP::BufferedRead(void* data, uint64_t count) {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXSocketHandle socket = StartTransfer(data, count);
    if (socket == kCXNoSocket || m_lastError != kCXResultOK) {
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count) {
        int error = 0;
        const int64_t got =
            m_driver.Receive(socket, to + done, std::min(count - done, kLargestReceive), error);
        if (got < 1) {
            if ((m_flags & kCXStreamPartialReads) != 0 && done != 0) {
                break;
            }
            if (error != 0) {
                CXLogFormat("CXStreamTCP::BufferedRead> recv returned err %d (at timestamp %lld)",
                            error, CXTime::GetCurrentTime());
            }
            SetError(kCXResultEndOfStream);
            break;
        }
        done += static_cast<uint64_t>(got);
        if ((m_flags & kCXStreamPartialReads) != 0) {
            break;
        }
    }
    return done;
}

uint64_t CXStreamTCP::BufferedWrite(const void* data, uint64_t count) {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXSocketHandle socket = StartTransfer(data, count);
    if (socket == kCXNoSocket) {
        return 0;
    }
    const uint8_t* from = static_cast<const uint8_t*>(data);
    uint64_t done = 0;
    while (done < count) {
        int error = 0;
        const int64_t put = m_driver.Send(socket, from + done, count - done, error);
        if (put < 1) {
            CXLogFormat("CXStreamTCP::BufferedWrite> send returned err %d", error);
            SetError(kCXResultEndOfStream);
            break;
        }
        done += static_cast<uint64_t>(put);
    }
    return done;
}

CXSocketHandle CXStreamTCP::StartTransfer(const void* data, uint64_t count) {
    const CXSocketHandle socket = GetSocket();
    if (socket == kCXNoSocket) {
        SetError(kCXResultNotOpen);
    } else if (count >= kTooMuch) {
        SetError(kCXResultNoResources);
    } else if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
    } else {
        return socket;
    }
    return kCXNoSocket;
}

bool CXStreamTCP::HasData() {
    bool isException = false;
    {
        const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
        const CXSocketHandle socket = GetSocket();
        if (socket == kCXNoSocket) {
            return false;
        }
        int error = 0;
        int answer = m_driver.Wait(socket, CXSocketDriver::kRead, 0, error);
        if (answer > 0) {
            return true;
        }
        if (answer < 0) {
            CXLogFormat("CXStreamTCP::HasData> select returned error %d", error);
        }
        answer = m_driver.Wait(socket, CXSocketDriver::kException, 0, error);
        if (answer < 0) {
            CXLogFormat("CXStreamTCP::HasData> select(exceptfds) returned error %d", error);
        }
        isException = answer > 0;
    }
    if (isException) {
        Close();
    }
    return false;
}

// ---- Options ----

void CXStreamTCP::Flush(uint32_t /*options*/) {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard options(m_optionsLock);
    const CXSocketHandle socket = GetSocket();
    if (socket != kCXNoSocket && !m_noDelay) {
        m_driver.SetNoDelay(socket, true);
        m_driver.SetNoDelay(socket, false);
    }
}

CXResult CXStreamTCP::SetFastLoopback(bool fast) {
    if (!m_driver.HasFastLoopback()) {
        return kCXResultNotSupported;
    }
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard options(m_optionsLock);
    m_fastLoopback = fast;
    return kCXResultOK;
}

CXResult CXStreamTCP::SetNoDelay(bool noDelay) {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard options(m_optionsLock);
    const CXSocketHandle socket = GetSocket();
    if (socket == kCXNoSocket) {
        return kCXResultNotOpen;
    }
    if (!m_driver.SetNoDelay(socket, noDelay)) {
        return kCXResultFailed;
    }
    m_noDelay = noDelay;
    return kCXResultOK;
}

CXResult CXStreamTCP::SetSendTimeout(uint32_t /*timeoutMs*/) {
    return SetTimeout(CXSocketDriver::Timeout::Send);
}

CXResult CXStreamTCP::SetReceiveTimeout(uint32_t /*timeoutMs*/) {
    return SetTimeout(CXSocketDriver::Timeout::Receive);
}

CXResult CXStreamTCP::SetTimeout(CXSocketDriver::Timeout kind) {
    const CXReadWriteLockGuard guard(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard options(m_optionsLock);
    const CXSocketHandle socket = GetSocket();
    if (socket == kCXNoSocket) {
        return kCXResultNotOpen;
    }
    return m_driver.SetTimeout(socket, kind, kTrafficTimeoutMs) ? kCXResultOK : kCXResultFailed;
}
