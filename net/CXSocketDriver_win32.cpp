#include "core/CXStringUTF16.h"
#include "net/CXSocketDriver.h"

#include "core/win32_api.h"

#include <winsock2.h>

#include <mstcpip.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstring>

namespace {

static_assert(sizeof(sockaddr_in) == sizeof(CXSocketAddress) &&
              AF_INET == CXSocketAddress::kFamilyIPv4 &&
              static_cast<CXSocketHandle>(INVALID_SOCKET) == kCXNoSocket);

// The control that older headers don't name: _WSAIOW(IOC_VENDOR, 16).
constexpr DWORD kFastLoopbackControl = IOC_IN | IOC_VENDOR | 16;

SOCKET Native(CXSocketHandle socket) {
    return static_cast<SOCKET>(socket);
}

sockaddr_in ToNative(const CXSocketAddress& address) {
    return std::bit_cast<sockaddr_in>(address);
}

template <typename T> bool SetOption(CXSocketHandle socket, int level, int name, const T& value) {
    return ::setsockopt(Native(socket), level, name, reinterpret_cast<const char*>(&value),
                        static_cast<int>(sizeof(value))) == 0;
}

CXSocketHandle WithoutInheritance(SOCKET socket) {
    if (socket != INVALID_SOCKET) {
        ::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
    }
    return static_cast<CXSocketHandle>(socket);
}

class Win32SocketDriver final : public CXSocketDriver {
public:
    void Start() override {
        // Never taken back: sockets may be in use until the process ends.
        [[maybe_unused]] static const int once = [] {
            WSADATA data;
            return ::WSAStartup(MAKEWORD(2, 2), &data);
        }();
    }

    CXSocketHandle Create() override {
        return WithoutInheritance(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
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
        sockaddr_in native = {};
        int size = sizeof(native);
        const SOCKET accepted =
            ::accept(Native(socket), reinterpret_cast<sockaddr*>(&native), &size);
        if (accepted != INVALID_SOCKET) {
            peer = std::bit_cast<CXSocketAddress>(native);
        }
        return WithoutInheritance(accepted);
    }

    Connected Connect(CXSocketHandle socket, const CXSocketAddress& address) override {
        const sockaddr_in native = ToNative(address);
        if (::connect(Native(socket), reinterpret_cast<const sockaddr*>(&native), sizeof(native)) ==
            0) {
            return Connected::Yes;
        }
        return ::WSAGetLastError() == WSAEWOULDBLOCK ? Connected::WouldBlock : Connected::Failed;
    }

    int SetBlocking(CXSocketHandle socket, bool blocking) override {
        u_long on = blocking ? 0 : 1;
        return ::ioctlsocket(Native(socket), static_cast<long>(FIONBIO), &on);
    }

    int Wait(CXSocketHandle socket, uint32_t bits, uint32_t timeoutMs, int& error) override {
        // A set of this platform is a list, so any handle fits into it.
        const auto setOf = [&](uint32_t bit) {
            fd_set set = {};
            if ((bits & bit) != 0) {
                set.fd_count = 1;
                set.fd_array[0] = Native(socket);
            }
            return set;
        };
        fd_set reading = setOf(kRead);
        fd_set writing = setOf(kWrite);
        fd_set failing = setOf(kException);
        timeval time = {};
        time.tv_sec = static_cast<long>(timeoutMs / 1000);
        time.tv_usec = static_cast<long>(timeoutMs % 1000 * 1000);
        const int count = ::select(0, &reading, &writing, &failing, &time);
        if (count < 0) {
            error = ::WSAGetLastError();
            return -1;
        }
        return static_cast<int>((reading.fd_count != 0 ? kRead : 0) |
                                (writing.fd_count != 0 ? kWrite : 0) |
                                (failing.fd_count != 0 ? kException : 0));
    }

    bool GetSocketError(CXSocketHandle socket, int& error) override {
        int size = sizeof(error);
        if (::getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
                         &size) == 0) {
            return true;
        }
        error = ::WSAGetLastError();
        return false;
    }

    bool GetLocalAddress(CXSocketHandle socket, CXSocketAddress& out) override {
        sockaddr_in native = {};
        int size = sizeof(native);
        if (::getsockname(Native(socket), reinterpret_cast<sockaddr*>(&native), &size) != 0) {
            return false;
        }
        out = std::bit_cast<CXSocketAddress>(native);
        return true;
    }

    int64_t Receive(CXSocketHandle socket, void* data, uint64_t count, int& error) override {
        const int got = ::recv(Native(socket), static_cast<char*>(data), Clamp(count), 0);
        error = got < 0 ? ::WSAGetLastError() : 0;
        return got;
    }

    int64_t Send(CXSocketHandle socket, const void* data, uint64_t count, int& error) override {
        const int put = ::send(Native(socket), static_cast<const char*>(data), Clamp(count), 0);
        error = put < 0 ? ::WSAGetLastError() : 0;
        return put;
    }

    void Shutdown(CXSocketHandle socket) override {
        ::shutdown(Native(socket), SD_BOTH);
        // A shutdown alone doesn't end every receive that waits already.
        ::CancelIoEx(reinterpret_cast<HANDLE>(Native(socket)), nullptr);
    }

    void Close(CXSocketHandle socket) override { ::closesocket(Native(socket)); }

    bool SetNoDelay(CXSocketHandle socket, bool noDelay) override {
        return SetOption<BOOL>(socket, IPPROTO_TCP, TCP_NODELAY, noDelay ? TRUE : FALSE);
    }

    bool SetTimeout(CXSocketHandle socket, Timeout kind, uint32_t milliseconds) override {
        return SetOption<DWORD>(socket, SOL_SOCKET,
                                kind == Timeout::Send ? SO_SNDTIMEO : SO_RCVTIMEO, milliseconds);
    }

    bool HasFastLoopback() override {
        // Systems answer it differently, but none changes its mind.
        static const bool has = ProbeFastLoopback();
        return has;
    }
    bool SetFastLoopback(CXSocketHandle socket, bool fast) override {
        DWORD value = fast ? 1 : 0;
        DWORD returned = 0;
        return ::WSAIoctl(Native(socket), kFastLoopbackControl, &value, sizeof(value), nullptr, 0,
                          &returned, nullptr, nullptr) == 0;
    }

    bool LookUp(const CXString& name, CXSocketAddress& out) override {
        const CXStringUTF16 wide = ToUTF16(name);
        ADDRINFOW wanted = {};
        wanted.ai_family = AF_INET;
        wanted.ai_socktype = SOCK_STREAM;
        ADDRINFOW* list = nullptr;
        if (::GetAddrInfoW(reinterpret_cast<const wchar_t*>(wide.GetUnits()), nullptr, &wanted,
                           &list) != 0) {
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
        ::FreeAddrInfoW(list);
        return found;
    }

private:
    bool ProbeFastLoopback() {
        const CXSocketHandle socket = Create();
        const bool has =
            SetFastLoopback(socket, true) || ::WSAGetLastError() != static_cast<int>(WSAEOPNOTSUPP);
        Close(socket);
        return has;
    }
    static int Clamp(uint64_t count) {
        return static_cast<int>(std::min<uint64_t>(count, INT_MAX));
    }
};

} // namespace

CXSocketDriver& CXSocketDriver::Platform() {
    static Win32SocketDriver* driver = new Win32SocketDriver;
    return *driver;
}
