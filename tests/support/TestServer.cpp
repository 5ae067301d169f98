#include "tests/support/TestServer.h"

#include "core/CXTime.h"

#include <algorithm>

namespace {

constexpr uint32_t kStopPollMs = 20;
constexpr int kPatience = 1000; // times 10 ms

// The server uses the platform's sockets, whatever driver a test puts in place for the client.
CXSocketDriver& Sockets() {
    return CXSocketDriver::Platform();
}

} // namespace

bool TestConnection::Send(const std::string& bytes) {
    size_t done = 0;
    int error = 0;
    while (done < bytes.size()) {
        const int64_t put =
            Sockets().Send(m_socket, bytes.data() + done, bytes.size() - done, error);
        if (put < 1) {
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}

std::string TestConnection::Receive() {
    std::string bytes(65536, '\0');
    int error = 0;
    const int64_t got = Sockets().Receive(m_socket, bytes.data(), bytes.size(), error);
    bytes.resize(static_cast<size_t>(std::max<int64_t>(got, 0)));
    return bytes;
}

std::string TestConnection::ReceiveExactly(size_t count) {
    std::string bytes(count, '\0');
    size_t done = 0;
    int error = 0;
    while (done < count) {
        const int64_t got = Sockets().Receive(m_socket, bytes.data() + done, count - done, error);
        if (got < 1) {
            break;
        }
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

std::string TestConnection::ReceiveUntil(const std::string& end) {
    std::string bytes;
    while (bytes.find(end) == std::string::npos) {
        const std::string more = ReceiveExactly(1);
        if (more.empty()) {
            break;
        }
        bytes += more;
    }
    return bytes;
}

std::string TestConnection::ReceiveAll() {
    std::string bytes;
    for (std::string more = Receive(); !more.empty(); more = Receive()) {
        bytes += more;
    }
    return bytes;
}

void TestConnection::EndSending() {
    HalfCloseSocket(m_socket);
}

TestServer::TestServer(Script script) : m_script(std::move(script)) {
    Sockets().Start();
    m_listening = Sockets().Create();
    Sockets().Bind(m_listening, CXSocketAddress::Loopback(0));
    Sockets().Listen(m_listening, 64);
    Sockets().GetLocalAddress(m_listening, m_address);
    m_thread = std::thread([this] { Run(); });
}

TestServer::~TestServer() {
    m_stopping = true;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_current != kCXNoSocket) {
            Sockets().Shutdown(m_current);
        }
    }
    m_thread.join();
    Sockets().Close(m_listening);
}

bool TestServer::WaitForServed(int count) const {
    for (int i = 0; i < kPatience && m_served < count; ++i) {
        CXSleep(10);
    }
    return m_served >= count;
}

void TestServer::Run() {
    while (!m_stopping) {
        int error = 0;
        if (Sockets().Wait(m_listening, CXSocketDriver::kRead, kStopPollMs, error) <= 0) {
            continue;
        }
        CXSocketAddress peer;
        const CXSocketHandle socket = Sockets().Accept(m_listening, peer);
        if (socket == kCXNoSocket) {
            continue;
        }
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_current = socket;
        }
        ++m_connections;
        TestConnection connection(socket);
        if (!m_stopping) {
            m_script(connection);
        }
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_current = kCXNoSocket;
        }
        Sockets().Close(socket);
        ++m_served;
    }
}
