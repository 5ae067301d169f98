// The server's side of TLS over a TestConnection.
#pragma once

#include "tests/support/TestCertificate.h"
#include "tests/support/TestServer.h"

#include <functional>
#include <memory>
#include <string>

struct ssl_ctx_st;
struct ssl_st;

/// One TLS connection as the server sees it.
class TestTLSConnection {
public:
    TestTLSConnection(TestConnection& inner, ssl_ctx_st* context);
    ~TestTLSConnection();
    TestTLSConnection(const TestTLSConnection&) = delete;
    TestTLSConnection& operator=(const TestTLSConnection&) = delete;

    /// Changes or counts the bytes on their way to the client; false cuts the connection behind
    /// what is left of them.
    std::function<bool(std::string&)> filter;

    bool Accept();
    bool Send(const std::string& text);
    /// Text that has come, waiting for some; empty at the end.
    std::string Receive();
    std::string ReceiveExactly(size_t count);
    std::string ReceiveAll();
    /// Tells the client that no more text follows.
    void EndSending();
    /// The name that the client asked for.
    std::string GetServerName() const;
    TestConnection& GetInner() { return m_inner; }

private:
    bool Push();
    template <typename Call> int Run(const Call& call);

    TestConnection& m_inner;
    ssl_st* m_ssl;
};

/// A TestServer that speaks TLS with a certificate.
class TestTLSServer {
public:
    using Script = std::function<void(TestTLSConnection&)>;

    /// `script` begins before the handshake.
    TestTLSServer(const TestCertificate& certificate, Script script);

    const CXSocketAddress& GetAddress() const { return m_server.GetAddress(); }
    TestServer& GetServer() { return m_server; }

private:
    std::unique_ptr<ssl_ctx_st, void (*)(ssl_ctx_st*)> m_context; // outlives the server's thread
    TestServer m_server;
};
