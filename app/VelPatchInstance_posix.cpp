#include "app/VelPatchInstance.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <list>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLimit{2000};
constexpr size_t kMaxConnections = 16;
constexpr size_t kPieceBytes = 4096;
constexpr size_t kReplyBytes = 4;

/// A descriptor that is closed with its scope.
class Socket {
public:
    explicit Socket(int descriptor) : m_descriptor(descriptor) {}
    ~Socket() {
        if (IsOpen()) {
            ::close(m_descriptor);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    bool IsOpen() const { return m_descriptor >= 0; }
    int Get() const { return m_descriptor; }

    /// A local stream that isn't inherited and on which no call waits.
    static int Make() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }
    /// Whether the other end runs as the same user as this process.
    bool IsPeerOfThisUser() const {
        ucred peer{};
        socklen_t length = sizeof peer;
        return ::getsockopt(m_descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
               peer.uid == ::geteuid();
    }

private:
    int m_descriptor;
};

/// Names of this user's instances, up to the process id.
std::string MakePrefix(const char* name) {
    return std::string(name) + "-" + std::to_string(::geteuid()) + "-";
}

/// Name in the abstract space, which ends with its owner and leaves no file behind.
socklen_t MakeAddress(const std::string& name, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::min(name.size(), sizeof address.sun_path - 1);
    std::memcpy(address.sun_path + 1, name.data(), length);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
}

/// Image of a process; empty if it can't be looked at.
std::string ImageOf(const std::string& process) {
    char path[4096];
    const ssize_t length = ::readlink(("/proc/" + process + "/exe").c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

/// The socket name of the first running instance, or empty.
std::string FindInstance(const std::string& prefix) {
    std::ifstream file("/proc/net/unix", std::ios::binary);
    const std::string table(std::istreambuf_iterator<char>(file), {});
    const std::string own = ImageOf("self");
    for (const int64_t process : ListListeners(table, prefix)) {
        const std::string id = std::to_string(process);
        if (IsSameImage(absl::string_view(ImageOf(id)), absl::string_view(own))) {
            return prefix + id;
        }
    }
    return std::string();
}

/// Waits until the socket is ready for `events`; false when the time is up.
bool WaitFor(const Socket& socket, short events, Clock::time_point end) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waited{socket.Get(), events, 0};
        const int ready = left > 0 ? ::poll(&waited, 1, static_cast<int>(left)) : 0;
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

bool SendAll(const Socket& socket, absl::string_view bytes, Clock::time_point end) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
        } else if ((errno != EAGAIN && errno != EINTR) || !WaitFor(socket, POLLOUT, end)) {
            return false;
        }
    }
    return true;
}

/// The answer, or a refusal if none comes.
uint32_t ReceiveReply(const Socket& socket, Clock::time_point end) {
    unsigned char reply[kReplyBytes] = {};
    size_t received = 0;
    while (received < kReplyBytes) {
        const ssize_t count = ::recv(socket.Get(), reply + received, kReplyBytes - received, 0);
        if (count > 0) {
            received += static_cast<size_t>(count);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR) ||
                   !WaitFor(socket, POLLIN, end)) {
            return kHandOverRefused;
        }
    }
    return static_cast<uint32_t>(reply[0]) << 24 | static_cast<uint32_t>(reply[1]) << 16 |
           static_cast<uint32_t>(reply[2]) << 8 | reply[3];
}

/// One instance that is handing over its line.
struct Connection {
    explicit Connection(int descriptor) : socket(descriptor) {}
    Socket socket;
    VelPatchHandOverReader reader;
    Clock::time_point end = Clock::now() + kLimit;
};

} // namespace

bool HandOverToRunningInstance(absl::string_view line, const char* name) {
    const Clock::time_point end = Clock::now() + kLimit;
    const std::string instance = FindInstance(MakePrefix(name));
    if (instance.empty() || line.size() >= kHandOverMaxBytes) {
        return false;
    }
    const Socket socket(Socket::Make());
    sockaddr_un address;
    const socklen_t length = MakeAddress(instance, address);
    // A local connect doesn't wait: it stands, or the other side is gone or overrun.
    return socket.IsOpen() &&
           ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
           socket.IsPeerOfThisUser() && SendAll(socket, MakeHandOverFrame(line), end) &&
           ReceiveReply(socket, end) == kHandOverAccepted;
}

struct VelPatchInstanceListener::Endpoint {
    explicit Endpoint(VelPatchHandOverReceiver& answering)
        : receiver(answering), socket(Socket::Make()) {}

    void Accept();
    /// Goes on with one connection; false when it is done with.
    bool Serve(Connection& connection) const;
    void Answer(const Connection& connection) const;

    VelPatchHandOverReceiver& receiver;
    Socket socket;
    bool isListening = false;
    std::list<Connection> connections;
};

void VelPatchInstanceListener::Endpoint::Accept() {
    while (connections.size() < kMaxConnections) {
        const int descriptor =
            ::accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor < 0) {
            return;
        }
        if (!connections.emplace_back(descriptor).socket.IsPeerOfThisUser()) {
            connections.pop_back();
        }
    }
}

bool VelPatchInstanceListener::Endpoint::Serve(Connection& connection) const {
    char piece[kPieceBytes];
    for (;;) {
        const ssize_t count = ::recv(connection.socket.Get(), piece, sizeof piece, 0);
        if (count == 0) {
            return false;
        }
        if (count < 0) {
            return (errno == EAGAIN || errno == EINTR) && Clock::now() < connection.end;
        }
        switch (connection.reader.Append(piece, static_cast<size_t>(count))) {
        case VelPatchHandOverReader::State::Wanting:
            break;
        case VelPatchHandOverReader::State::Complete:
            Answer(connection);
            return false;
        case VelPatchHandOverReader::State::Broken:
            return false;
        }
    }
}

void VelPatchInstanceListener::Endpoint::Answer(const Connection& connection) const {
    // Who has hung up has not waited for the answer and does its work itself.
    pollfd gone{connection.socket.Get(), POLLRDHUP, 0};
    if (::poll(&gone, 1, 0) != 0) {
        return;
    }
    const absl::string_view line = connection.reader.GetLine();
    const uint32_t answer = receiver.Receive(kHandOverTag, line.data(), line.size());
    char reply[kReplyBytes];
    for (size_t i = 0; i < kReplyBytes; ++i) {
        reply[i] = static_cast<char>(answer >> (8 * (kReplyBytes - 1 - i)) & 0xFF);
    }
    static_cast<void>(::send(connection.socket.Get(), reply, sizeof reply, MSG_NOSIGNAL));
}

VelPatchInstanceListener::VelPatchInstanceListener(VelPatchHandOverReceiver& receiver,
                                                   const char* name)
    : m_endpoint(std::make_unique<Endpoint>(receiver)) {
    sockaddr_un address;
    const socklen_t length = MakeAddress(MakePrefix(name) + std::to_string(::getpid()), address);
    const int descriptor = m_endpoint->socket.Get();
    m_endpoint->isListening =
        m_endpoint->socket.IsOpen() &&
        ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
        ::listen(descriptor, static_cast<int>(kMaxConnections)) == 0;
}

VelPatchInstanceListener::~VelPatchInstanceListener() = default;

bool VelPatchInstanceListener::IsListening() const {
    return m_endpoint->isListening;
}

void VelPatchInstanceListener::Poll() {
    if (!m_endpoint->isListening) {
        return;
    }
    m_endpoint->Accept();
    m_endpoint->connections.remove_if(
        [this](Connection& connection) { return !m_endpoint->Serve(connection); });
}
