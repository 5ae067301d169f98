// Connections under the tests that every kind of stream passes.

#include "tests/support/StreamConformance.h"

#include "net/CXStreamSSL.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/TrustFolder.h"

namespace {

constexpr uint32_t kPatienceMs = 10000;

std::string ToText(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

/// The peer sends the bytes, ends its direction and keeps what it is sent.
class TCPUnderTest : public StreamUnderTest {
public:
    explicit TCPUnderTest(const Bytes& bytes)
        : m_server([this, text = ToText(bytes)](TestConnection& connection) {
              connection.Send(text);
              connection.EndSending();
              m_received = connection.ReceiveAll();
          }) {
        m_stream.Open(m_server.GetAddress(), kPatienceMs);
    }
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override {
        m_stream.Close();
        EXPECT_TRUE(m_server.WaitForServed(1));
        return Bytes(m_received.begin(), m_received.end());
    }

private:
    std::string m_received;
    TestServer m_server;
    CXStreamTCP m_stream;
};

class TLSUnderTest : public StreamUnderTest {
public:
    explicit TLSUnderTest(const Bytes& bytes)
        : m_certificate({"CN:server.example"}), m_trust(m_certificate.GetPem()),
          m_server(m_certificate, [this, text = ToText(bytes)](TestTLSConnection& connection) {
              connection.Accept();
              connection.Send(text);
              connection.EndSending();
              m_received = connection.ReceiveAll();
          }) {
        m_context.LoadDefaultVerifyPaths();
        m_inner.Open(m_server.GetAddress(), kPatienceMs);
        m_stream.SetHostName("server.example");
        m_stream.Open(&m_context, &m_inner);
    }
    CXStream& Get() override { return m_stream; }
    Bytes Stored() override {
        m_stream.Close();
        m_inner.Close();
        EXPECT_TRUE(m_server.GetServer().WaitForServed(1));
        return Bytes(m_received.begin(), m_received.end());
    }

private:
    TestCertificate m_certificate;
    TrustFolder m_trust;
    std::string m_received;
    TestTLSServer m_server;
    CXSSLContext m_context;
    CXStreamTCP m_inner;
    CXStreamSSL m_stream;
};

template <typename T> std::unique_ptr<StreamUnderTest> Make(const Bytes& bytes) {
    return std::make_unique<T>(bytes);
}

INSTANTIATE_TEST_SUITE_P(Connections, StreamConformance,
                         testing::Values(StreamKind{.name = "TCP",
                                                    .make = Make<TCPUnderTest>,
                                                    .flags = 0x103,
                                                    .seeks = false,
                                                    .writes = true,
                                                    .sizeKnown = false,
                                                    .duplex = true,
                                                    .marksEnd = false,
                                                    .readableAtEnd = true},
                                         StreamKind{.name = "TLS",
                                                    .make = Make<TLSUnderTest>,
                                                    .flags = 0x155,
                                                    .seeks = false,
                                                    .writes = true,
                                                    .sizeKnown = false,
                                                    .closedIsAlreadyOpen = true,
                                                    .duplex = true,
                                                    .remainingIsZero = true}),
                         [](const auto& kind) { return std::string(kind.param.name); });

} // namespace
