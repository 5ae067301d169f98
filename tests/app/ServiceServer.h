// A patch stream service on a loopback port.
#pragma once

#include "tests/support/TestTLSServer.h"
#include "tests/support/TrustFolder.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>

/// Replies to the stream check and to the request for a stream file with a text for each, and keeps
/// the requests. While it lives the application folder trusts it.
class ServiceServer {
public:
    ServiceServer()
        : m_certificate({.names = "DNS:localhost"}), m_trust(m_certificate.GetPem()),
          m_server(m_certificate, [this](TestTLSConnection& connection) { Serve(connection); }) {}

    ~ServiceServer() { Release(); }

    /// A whole reply with this body.
    static std::string Ok(const std::string& body) {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
               body;
    }

    void SetReplies(const std::string& streamCheck, const std::string& streamFile) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_streamCheck = streamCheck;
        m_streamFile = streamFile;
        m_requests.clear();
    }
    /// The requests' first lines since then, joined by "\n".
    std::string GetRequests() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_requests;
    }
    /// What a request for this path gets instead.
    void SetFile(const std::string& path, const std::string& contents) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_files[path] = contents;
    }
    /// The program's folder, whose "data" holds the trust file.
    TempFolder& GetApplicationFolder() { return m_trust.GetFolder(); }
    /// Called before each reply.
    std::function<void()> beforeReply;
    /// Requests whose path holds this text, not empty, get no reply until Release.
    void Hold(const std::string& part) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_held = part;
    }
    void Release() {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_held.clear();
        m_isHolding = false; // even if the next Hold comes before the request wakes
        m_released.notify_all();
    }
    /// Whether a request waits for Release.
    bool IsHolding() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_isHolding;
    }

    std::string GetBase() const {
        return "https://localhost:" + std::to_string(m_server.GetAddress().GetPort()) + "/";
    }
    int CountConnections() { return m_server.GetServer().GetConnectionCount(); }

private:
    void Serve(TestTLSConnection& connection) {
        std::string request;
        if (!connection.Accept()) {
            return;
        }
        while (request.find("\r\n\r\n") == std::string::npos) {
            const std::string more = connection.Receive();
            if (more.empty()) {
                return;
            }
            request += more;
        }
        if (beforeReply) {
            beforeReply();
        }
        std::string reply;
        const size_t start = request.find(' ') + 1;
        const std::string path = request.substr(start, request.find(' ', start) - start);
        {
            std::unique_lock<std::mutex> guard(m_lock);
            m_isHolding = !m_held.empty() && path.find(m_held) != std::string::npos;
            m_released.wait(guard, [this] { return !m_isHolding; });
            m_requests += (m_requests.empty() ? "" : "\n") + request.substr(0, request.find('\r'));
            const auto file = m_files.find(path);
            reply = file != m_files.end() ? Ok(file->second)
                    : request.find("/rollstockstreamcheck.php?") != std::string::npos
                        ? m_streamCheck
                        : m_streamFile;
        }
        connection.Send(reply);
        connection.EndSending();
    }

    TestCertificate m_certificate;
    TrustFolder m_trust;
    mutable std::mutex m_lock;
    std::condition_variable m_released;
    std::string m_held;
    bool m_isHolding = false;
    std::string m_streamCheck;
    std::string m_streamFile;
    std::string m_requests;
    std::map<std::string, std::string> m_files;
    TestTLSServer m_server; // its thread uses all above
};
