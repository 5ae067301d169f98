// A server on a free loopback port that does to each connection what a test tells it.
#pragma once

#include "net/CXSocketDriver.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// The server's end of one connection. All calls end when the server goes.
class TestConnection {
public:
    explicit TestConnection(CXSocketHandle socket) : m_socket(socket) {}

    bool Send(const std::string& bytes);
    /// What has come, waiting for the first byte; empty at the end.
    std::string Receive();
    /// Reads until `count` bytes came, or the end.
    std::string ReceiveExactly(size_t count);
    /// Reads until `end` was seen, or the end.
    std::string ReceiveUntil(const std::string& end);
    /// Reads to the end.
    std::string ReceiveAll();
    /// Ends this direction; the client may go on sending.
    void EndSending();

private:
    CXSocketHandle m_socket;
};

/// Serves one connection after the other on its own thread.
class TestServer {
public:
    using Script = std::function<void(TestConnection&)>;

    explicit TestServer(Script script);
    /// Cuts a connection that is being served and waits for the thread.
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    const CXSocketAddress& GetAddress() const { return m_address; }
    uint16_t GetPort() const { return m_address.GetPort(); }
    int GetConnectionCount() const { return m_connections.load(); }
    /// Waits until `count` connections were served to their end; false after ten seconds.
    bool WaitForServed(int count) const;

private:
    void Run();

    Script m_script;
    CXSocketHandle m_listening;
    CXSocketAddress m_address;
    std::mutex m_lock; // over m_current
    CXSocketHandle m_current = kCXNoSocket;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_connections{0};
    std::atomic<int> m_served{0};
    std::thread m_thread;
};

/// Ends the sending direction of a socket of the platform's driver.
void HalfCloseSocket(CXSocketHandle socket);
