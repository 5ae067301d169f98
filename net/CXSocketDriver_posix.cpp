#include "net/CXSocketDriver.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

static_assert(sizeof(sockaddr_in) == sizeof(CXSocketAddress) &&
              AF_INET == CXSocketAddress::kFamilyIPv4);

int Native(CXSocketHandle socket) {
    return static_cast<int>(socket);
}

sockaddr_in ToNative(const CXSocketAddress& address) {
    return std::bit_cast<sockaddr_in>(address);
}

template <typename T> bool SetOption(CXSocketHandle socket, int level, int name, const T& value) {
    return ::setsockopt(Native(socket), level, name, &value, sizeof(value)) == 0;
}

class PosixSocketDriver final : public CXSocketDriver {
public:
    void Start() override {}

    CXSocketHandle Create() override {
        return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    }

    bool Bind(CXSocketHandle socket, const CXSocketAddress& address) override {
        const sockaddr_in native = ToNative(address);
        return ::bind(Native(socket), reinterpret_cast<const sockaddr*>(&native), sizeof(native)) ==
               0;
    }

    bool Listen(CXSocketHandle socket, int backlog) override {
        return ::listen(Native(socket), backlog) == 0;
    }

    CXSocketHandle Accept(CXSocketHandle socket, CXSocketAddress& peer) override {
        for (;;) {
            sockaddr_in native = {};
            socklen_t size = sizeof(native);
            const int accepted = ::accept4(Native(socket), reinterpret_cast<sockaddr*>(&native),
                                           &size, SOCK_CLOEXEC);
            if (accepted >= 0) {
                peer = std::bit_cast<CXSocketAddress>(native);
                return accepted;
            }
            // A connection that the peer gave up before it was taken is no fault of the listener.
            if (errno != EINTR && errno != ECONNABORTED) {
                return kCXNoSocket;
            }
        }
    }

    Connected Connect(CXSocketHandle socket, const CXSocketAddress& address) override {
        const sockaddr_in native = ToNative(address);
        if (::connect(Native(socket), reinterpret_cast<const sockaddr*>(&native), sizeof(native)) ==
            0) {
            return Connected::Yes;
        }
        // An interrupted connect goes on in the background like one that would block.
        return errno == EINPROGRESS || errno == EINTR ? Connected::WouldBlock : Connected::Failed;
    }

    int SetBlocking(CXSocketHandle socket, bool blocking) override {
        int on = blocking ? 0 : 1;
        return ::ioctl(Native(socket), FIONBIO, &on);
    }

    int Wait(CXSocketHandle socket, uint32_t bits, uint32_t timeoutMs, int& error) override {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        pollfd entry = {};
        entry.fd = Native(socket);
        entry.events = static_cast<short>(((bits & kRead) != 0 ? POLLIN : 0) |
                                          ((bits & kWrite) != 0 ? POLLOUT : 0) |
                                          ((bits & kException) != 0 ? POLLPRI : 0));
        for (;;) {
            const int64_t left = std::max<int64_t>(
                0, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count());
            const int count =
                ::poll(&entry, 1,
                       static_cast<int>(std::min<int64_t>(left, std::numeric_limits<int>::max())));
            if (count == 0) {
                return 0;
            }
            if (count > 0) {
                break;
            }
            if (errno != EINTR) {
                error = errno;
                return -1;
            }
        }
        if ((entry.revents & POLLNVAL) != 0) {
            error = EBADF;
            return -1;
        }
        // As select would tell it: an end or an error makes the socket readable and writable.
        const bool over = (entry.revents & (POLLHUP | POLLERR)) != 0;
        uint32_t out = 0;
        out |= over || (entry.revents & POLLIN) != 0 ? kRead : 0;
        out |= over || (entry.revents & POLLOUT) != 0 ? kWrite : 0;
        out |= (entry.revents & POLLPRI) != 0 ? kException : 0;
        return static_cast<int>(out & bits);
    }

    bool GetSocketError(CXSocketHandle socket, int& error) override {
        socklen_t size = sizeof(error);
        if (::getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, &error, &size) == 0) {
            return true;
        }
        error = errno;
        return false;
    }

    bool GetLocalAddress(CXSocketHandle socket, CXSocketAddress& out) override {
        sockaddr_in native = {};
        socklen_t size = sizeof(native);
        if (::getsockname(Native(socket), reinterpret_cast<sockaddr*>(&native), &size) != 0) {
            return false;
        }
        out = std::bit_cast<CXSocketAddress>(native);
        return true;
    }

    int64_t Receive(CXSocketHandle socket, void* data, uint64_t count, int& error) override {
        ssize_t got;
        do {
            got = ::recv(Native(socket), data, static_cast<size_t>(count), 0);
        } while (got < 0 && errno == EINTR);
        error = got < 0 ? errno : 0;
        return got;
    }

    int64_t Send(CXSocketHandle socket, const void* data, uint64_t count, int& error) override {
        ssize_t put;
        do {
            put = ::send(Native(socket), data, static_cast<size_t>(count), MSG_NOSIGNAL);
        } while (put < 0 && errno == EINTR);
        error = put < 0 ? errno : 0;
        return put;
    }

    void Shutdown(CXSocketHandle socket) override { ::shutdown(Native(socket), SHUT_RDWR); }

    void Close(CXSocketHandle socket) override { ::close(Native(socket)); }

    bool SetNoDelay(CXSocketHandle socket, bool noDelay) override {
        return SetOption(socket, IPPROTO_TCP, TCP_NODELAY, noDelay ? 1 : 0);
    }

    bool SetTimeout(CXSocketHandle socket, Timeout kind, uint32_t milliseconds) override {
        timeval time = {};
        time.tv_sec = static_cast<time_t>(milliseconds / 1000);
        time.tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000);
        return SetOption(socket, SOL_SOCKET, kind == Timeout::Send ? SO_SNDTIMEO : SO_RCVTIMEO,
                         time);
    }

    bool HasFastLoopback() override { return false; }
    bool SetFastLoopback(CXSocketHandle /*socket*/, bool /*fast*/) override { return false; }

    bool LookUp(const CXString& name, CXSocketAddress& out) override {
        addrinfo wanted = {};
        wanted.ai_family = AF_INET;
        wanted.ai_socktype = SOCK_STREAM;
        addrinfo* list = nullptr;
        if (::getaddrinfo(name.GetData(), nullptr, &wanted, &list) != 0) {
            return false;
        }
        bool found = false;
        if (list != nullptr && list->ai_family == AF_INET &&
            list->ai_addrlen == sizeof(sockaddr_in)) {
            sockaddr_in native;
            std::memcpy(&native, list->ai_addr, sizeof(native));
            out = std::bit_cast<CXSocketAddress>(native);
            found = true;
        }
        ::freeaddrinfo(list);
        return found;
    }
};

} // namespace

CXSocketDriver& CXSocketDriver::Platform() {
    static PosixSocketDriver* driver = new PosixSocketDriver;
    return *driver;
}
