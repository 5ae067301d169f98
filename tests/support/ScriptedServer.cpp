#include "tests/support/ScriptedServer.h"

#include "core/CXTime.h"

#include <algorithm>

namespace {

/// Reads to the end of the next empty line.
bool ReadToEmptyLine(CXStreamTCP& client, std::string& text) {
    uint8_t byte = 0;
    while (client.ReadU8(byte)) {
        text += static_cast<char>(byte);
        if (text == "\r\n" || text.ends_with("\r\n\r\n")) {
            return true;
        }
    }
    return false;
}

/// The request's head up to its empty line, of which a "range" that ends its own line makes two:
/// both are read, since a connection that is closed with bytes unread loses what was sent last.
bool ReadRequest(CXStreamTCP& client, std::string& head) {
    head.clear();
    std::string rest;
    return ReadToEmptyLine(client, head) &&
           (head.find("\r\nRange: ") == std::string::npos || ReadToEmptyLine(client, rest));
}

} // namespace

ScriptedServer::ScriptedServer(Script script) {
    m_listener.Listen(CXSocketAddress::Loopback(0));
    m_port = m_listener.GetLocalAddress().GetPort();
    m_thread = std::thread([this, script = std::move(script)] { Run(script); });
}

ScriptedServer::~ScriptedServer() {
    m_listener.Close();
    m_thread.join();
}

std::string ScriptedServer::GetAddress(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

std::vector<std::string> ScriptedServer::GetRequests() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_requests;
}

bool ScriptedServer::WaitUntilClientLeft() const {
    for (int i = 0; i < 10000 && m_left < m_connections; ++i) {
        CXSleep(1);
    }
    return m_left == m_connections;
}

void ScriptedServer::Run(const Script& script) {
    for (size_t number = 0; number < script.size(); ++number) {
        const std::unique_ptr<CXStreamTCP> client = m_listener.Accept();
        if (client == nullptr) {
            return;
        }
        ++m_connections;
        Serve(*client, script[number], static_cast<int>(number));
        ++m_left;
    }
}

void ScriptedServer::Serve(CXStreamTCP& client, const std::vector<std::string>& replies,
                           int number) {
    std::string head;
    for (std::string reply : replies) {
        if (reply == kStall) {
            ReadRequest(client, head); // nothing comes but the connection's end
            return;
        }
        if (!ReadRequest(client, head)) {
            return;
        }
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_requests.push_back(std::to_string(number) + " " + head);
        }
        for (size_t at = 0; (at = reply.find("PORT")) != std::string::npos;) {
            reply.replace(at, 4, std::to_string(m_port));
        }
        client.Write(reply.data(), reply.size());
    }
}
