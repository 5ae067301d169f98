#include "tests/support/TestTLSServer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>

namespace {

ssl_ctx_st* MakeContext(const TestCertificate& certificate) {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    SSL_CTX_use_certificate(context, certificate.GetCertificate());
    SSL_CTX_use_PrivateKey(context, certificate.GetKey());
    return context;
}

} // namespace

TestTLSConnection::TestTLSConnection(TestConnection& inner, ssl_ctx_st* context)
    : m_inner(inner), m_ssl(SSL_new(context)) {
    SSL_set_bio(m_ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_set_accept_state(m_ssl);
}

TestTLSConnection::~TestTLSConnection() {
    SSL_free(m_ssl);
}

bool TestTLSConnection::Push() {
    BIO* out = SSL_get_wbio(m_ssl);
    std::string bytes(BIO_ctrl_pending(out), '\0');
    if (bytes.empty()) {
        return true;
    }
    BIO_read(out, bytes.data(), static_cast<int>(bytes.size()));
    const bool goOn = !filter || filter(bytes);
    return m_inner.Send(bytes) && goOn;
}

/// Repeats a call of OpenSSL until it is done; its answer, or 0 at the end or on failure.
template <typename Call> int TestTLSConnection::Run(const Call& call) {
    for (;;) {
        ERR_clear_error();
        const int answer = call();
        const int error = SSL_get_error(m_ssl, answer);
        if (!Push()) {
            return 0;
        }
        if (answer > 0) {
            return answer;
        }
        if (error != SSL_ERROR_WANT_READ) {
            return 0;
        }
        const std::string bytes = m_inner.Receive();
        if (bytes.empty()) {
            return 0;
        }
        BIO_write(SSL_get_rbio(m_ssl), bytes.data(), static_cast<int>(bytes.size()));
    }
}

bool TestTLSConnection::Accept() {
    return Run([this] { return SSL_do_handshake(m_ssl); }) > 0;
}

bool TestTLSConnection::Send(const std::string& text) {
    constexpr size_t kRecord = 16384;
    for (size_t done = 0; done < text.size(); done += kRecord) {
        const int count = static_cast<int>(std::min(kRecord, text.size() - done));
        if (Run([&] { return SSL_write(m_ssl, text.data() + done, count); }) < count) {
            return false;
        }
    }
    return true;
}

std::string TestTLSConnection::Receive() {
    char text[16384];
    const int got = Run([&] { return SSL_read(m_ssl, text, sizeof(text)); });
    return std::string(text, static_cast<size_t>(std::max(got, 0)));
}

std::string TestTLSConnection::ReceiveExactly(size_t count) {
    std::string text;
    while (text.size() < count) {
        const std::string more = Receive();
        if (more.empty()) {
            break;
        }
        text += more;
    }
    return text;
}

std::string TestTLSConnection::ReceiveAll() {
    return ReceiveExactly(std::string::npos);
}

void TestTLSConnection::EndSending() {
    SSL_shutdown(m_ssl);
    Push();
}

std::string TestTLSConnection::GetServerName() const {
    const char* name = SSL_get_servername(m_ssl, TLSEXT_NAMETYPE_host_name);
    return name != nullptr ? name : "";
}

TestTLSServer::TestTLSServer(const TestCertificate& certificate, Script script)
    : m_context(MakeContext(certificate), SSL_CTX_free),
      m_server([this, script = std::move(script)](TestConnection& inner) {
          TestTLSConnection connection(inner, m_context.get());
          script(connection);
      }) {}
