// A server on a loopback port that plays a script.
#pragma once

#include "net/CXStreamTCP.h"

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Serves one connection after the other: of each it reads a request, sends the next reply of that
/// connection's script, and so on; behind the last one it closes, or for kStall as a reply says
/// nothing more until the client goes away. In the replies "PORT" stands for the server's port.
class ScriptedServer {
public:
    using Script = std::vector<std::vector<std::string>>;
    static constexpr const char* kStall = "<stall>";

    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int GetPort() const { return m_port; }
    /// "http://127.0.0.1:PORT" + path.
    std::string GetAddress(const std::string& path) const;
    /// The heads of all requests so far, each with the number of its connection: "0 GET / ...".
    std::vector<std::string> GetRequests() const;
    /// Connections taken so far.
    int CountConnections() const { return m_connections; }
    /// Waits until the client of the connection in play has gone away.
    bool WaitUntilClientLeft() const;

private:
    void Run(const Script& script);
    void Serve(CXStreamTCP& client, const std::vector<std::string>& replies, int number);

    CXStreamTCP m_listener;
    int m_port = 0;
    std::atomic<int> m_connections{0};
    std::atomic<int> m_left{0};
    mutable std::mutex m_lock;
    std::vector<std::string> m_requests;
    std::thread m_thread;
};
