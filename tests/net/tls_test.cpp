// TLS streams: whom they trust, what they move, and how they end.

#include "net/CXStreamSSL.h"

#include "core/CXTime.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/net/SocketDriverDouble.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/TrustFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

constexpr uint32_t kPatienceMs = 10000;
constexpr auto kPrompt = std::chrono::seconds(5);
const char* const kHost = "server.example";

std::string ReadText(CXStream& stream, size_t count) {
    std::string text(count, '\0');
    text.resize(static_cast<size_t>(stream.Read(text.data(), count)));
    return text;
}

std::string Pattern(size_t count) {
    std::string text(count, '\0');
    for (size_t i = 0; i < count; ++i) {
        text[i] = static_cast<char>(i * 31 + i / 251);
    }
    return text;
}

/// The root that the tests trust, and a server's certificate from it.
const TestCertificate& Root() {
    static const TestCertificate root({.names = "CN:Test root", .isAuthority = true});
    return root;
}
const TestCertificate& Leaf() {
    static const TestCertificate leaf({.names = "DNS:server.example"}, &Root());
    return leaf;
}

/// Counts what is written to the socket.
class CountingTCP : public CXStreamTCP {
public:
    uint64_t BufferedWrite(const void* data, uint64_t count) override {
        written += count;
        return CXStreamTCP::BufferedWrite(data, count);
    }
    std::atomic<uint64_t> written{0};
};

/// A client that trusts Root() unless told otherwise.
class Client {
public:
    explicit Client(const std::string& roots = Root().GetPem()) : m_trust(roots) {
        EXPECT_EQ(context.LoadDefaultVerifyPaths(), kCXResultOK);
    }
    void Open(const CXSocketAddress& address, const char* hostName = kHost) {
        tcp.Open(address, kPatienceMs);
        ASSERT_TRUE(tcp.IsOpen());
        ssl.SetHostName(hostName);
        ssl.Open(&context, &tcp);
    }

private:
    TrustFolder m_trust;

public:
    CXSSLContext context;
    CountingTCP tcp;
    CXStreamSSL ssl;
};

/// Whether `lines` holds just one line that begins with `start`; none for an empty start.
void ExpectOneLine(const std::vector<std::string>& lines, const std::string& start) {
    if (start.empty()) {
        EXPECT_EQ(lines, std::vector<std::string>());
    } else if (lines.size() != 1 || lines[0].rfind(start, 0) != 0) {
        ADD_FAILURE() << "expected '" << start << "', got " << testing::PrintToString(lines);
    }
}

TEST(StreamSSL, TrustsChainAndName) {
    const TestCertificate otherRoot({.names = "CN:Other root", .isAuthority = true});
    enum class Signer : uint8_t { Root, Other, Itself, ItselfTrusted };
    enum class Outcome : uint8_t { Open, BadName, BadChain };
    using enum Outcome;
    const CertificateFields good{"DNS:server.example"};
    const struct {
        const char* name;
        CertificateFields fields;
        Signer signer;
        const char* host;
        Outcome outcome;
    } cases[] = {
        {"own root", good, Signer::Root, kHost, Open},
        {"unknown root", good, Signer::Other, kHost, BadChain},
        {"wrong name", {"DNS:other.example"}, Signer::Root, kHost, BadName},
        {"other case", good, Signer::Root, "Server.example", BadName},
        {"first of several", {"DNS:server.example,DNS:b,IP:127.0.0.1"}, Signer::Root, kHost, Open},
        {"list before common name", {"CN:server.example,DNS:b"}, Signer::Root, kHost, BadName},
        {"list without names", {"CN:server.example,IP:127.0.0.1"}, Signer::Root, kHost, Open},
        {"common name only", {"CN:server.example"}, Signer::Root, kHost, Open},
        {"second common name", {"CN:b,CN:server.example"}, Signer::Root, kHost, Open},
        {"no name at all", {}, Signer::Root, kHost, BadName},
        {"wildcard", {"DNS:*.example"}, Signer::Root, kHost, Open},
        {"wildcard for two", {"DNS:*.example"}, Signer::Root, "a.server.example", BadName},
        {"expired", {"DNS:server.example", -9, -1}, Signer::Root, kHost, BadChain},
        {"not yet valid", {"DNS:server.example", 2}, Signer::Root, kHost, BadChain},
        {"self-signed", good, Signer::Itself, kHost, BadChain},
        {"self-signed and trusted", good, Signer::ItselfTrusted, kHost, Open},
        {"no name asked for", {"DNS:other.example"}, Signer::Root, "", Open},
        {"no name asked for, unknown root", good, Signer::Other, "", BadChain},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const TestCertificate leaf(c.fields, c.signer == Signer::Root    ? &Root()
                                             : c.signer == Signer::Other ? &otherRoot
                                                                         : nullptr);
        TestTLSServer server(leaf, [](TestTLSConnection& connection) {
            connection.Accept();
            connection.Send("welcome");
            connection.ReceiveAll();
        });
        Client client(c.signer == Signer::ItselfTrusted ? leaf.GetPem() : Root().GetPem());
        const LogCapture log;
        client.Open(server.GetAddress(), c.host);
        EXPECT_EQ(client.ssl.IsOpen(), c.outcome == Open);
        EXPECT_EQ(client.ssl.GetLastError(),
                  c.outcome == BadChain ? kCXResultAccessDenied : kCXResultOK);
        ExpectOneLine(log.Get(), c.outcome == BadName ? "OpenSSL certificate does not match domain."
                                 : c.outcome == BadChain ? "OpenSSL error: \"error:"
                                                         : "");
        EXPECT_EQ((client.tcp.GetFlags() & kCXStreamPartialReads) != 0, c.outcome == Open);
        EXPECT_TRUE(client.tcp.IsOpen()) << "the inner stream stays open";
        if (c.outcome == Open) {
            EXPECT_EQ(ReadText(client.ssl, 7), "welcome");
        }
    }
}

TEST(StreamSSL, JudgesTheChainItselfWhereOpenSSLDidNot) {
    const TestCertificate self({"CN:server.example"});
    const std::pair<const TestCertificate*, const char*> cases[] = {
        {&self, "OpenSSL rejected self-signed certificate."},
        {&Leaf(), "OpenSSL failed to verify certificate: 20"},
    };
    for (const auto& [certificate, line] : cases) {
        TestTLSServer server(*certificate, [](TestTLSConnection& c) { c.Accept(); });
        CXSSLContext context; // demands nothing of the peer
        CXStreamTCP tcp;
        tcp.Open(server.GetAddress(), kPatienceMs);
        CXStreamSSL ssl;
        ssl.SetHostName(kHost);
        const LogCapture log;
        ssl.Open(&context, &tcp);
        EXPECT_FALSE(ssl.IsOpen());
        EXPECT_EQ(ssl.GetLastError(), kCXResultOK);
        ExpectOneLine(log.Get(), line);
    }
}

TEST(StreamSSL, MatchesNames) {
    using Pair = std::pair<const char*, const char*>; // pattern, name
    for (const auto& [pattern, name] :
         {Pair("a.example", "a.example"), Pair("", ""), Pair("*.example.org", "a.example.org"),
          Pair("a*.example", "abc.example"), Pair("a.*", "a.org"), Pair("*", "host"),
          Pair("*.*", "a.b")}) {
        EXPECT_TRUE(CXStreamSSL::MatchesName(pattern, name)) << pattern << " " << name;
    }
    for (const auto& [pattern, name] :
         {Pair("a.example", "A.example"), Pair("a.example", "a.exampl"),
          Pair("a.exampl", "a.example"), Pair("", "a"), Pair("*.example.org", "example.org"),
          Pair("*.example.org", ".example.org"), Pair("*.example.org", "a.b.example.org"),
          Pair("a*.example", "a.example"), Pair("a.*", "a."), Pair("*", ""), Pair("**", "ab"),
          Pair("*b.example", "ab.example")}) {
        EXPECT_FALSE(CXStreamSSL::MatchesName(pattern, name)) << pattern << " " << name;
    }
    EXPECT_FALSE(CXStreamSSL::MatchesName(absl::string_view("a.example\0.evil", 15), "a.example"));
}

TEST(SSLContext, RefusesAnOldLibrary) {
    const std::pair<uint32_t, bool> cases[] = {{0x10000FFF, false}, {0x10001000, true},
                                               {0x1000106F, true},  {0x10001070, false},
                                               {0x1010100F, false}, {0x30000160, false}};
    for (const auto& [version, refused] : cases) {
        EXPECT_EQ(CXSSLContext::IsVersionRefused(version), refused) << std::hex << version;
    }
}

TEST(SSLContext, WithoutATrustFileNobodyIsTrusted) {
    TestTLSServer server(Leaf(), [](TestTLSConnection& connection) { connection.Accept(); });
    for (const bool missing : {true, false}) {
        TrustFolder trust("no certificate\n");
        if (missing) {
            trust.GetFolder().Remove("data");
        }
        CXSSLContext context;
        {
            const LogCapture log;
            EXPECT_EQ(context.LoadDefaultVerifyPaths(), kCXResultNotFound);
            const std::vector<std::string> lines = log.Get();
            ASSERT_EQ(lines.size(), 2U);
            EXPECT_EQ(lines[0], "CXSSLContext::LoadDefaultVerifyPaths> failed to load certificate "
                                "at '" +
                                    std::string(trust.GetFolder().Path().View()) +
                                    "/data/openssl.crt'");
            EXPECT_EQ(lines[1].rfind("OpenSSL error: \"error:", 0), 0U);
        }
        CXStreamTCP tcp;
        tcp.Open(server.GetAddress(), kPatienceMs);
        CXStreamSSL ssl;
        const LogCapture log;
        ssl.Open(&context, &tcp);
        EXPECT_FALSE(ssl.IsOpen());
        EXPECT_EQ(ssl.GetLastError(), kCXResultAccessDenied);
    }
}

TEST(StreamSSL, TellsTheServerTheNameUnlessItIsAnAddress) {
    const TestCertificate leaf({"DNS:server.example,DNS:127.0.0.1,DNS:a1.1b"}, &Root());
    std::string asked;
    TestTLSServer server(leaf, [&](TestTLSConnection& connection) {
        connection.Accept();
        asked = connection.GetServerName();
        connection.Send("x");
    });
    const std::pair<const char*, const char*> cases[] = {
        {kHost, kHost}, {"127.0.0.1", ""}, {"", ""}, {"a1.1b", "a1.1b"}};
    for (const auto& [host, expected] : cases) {
        Client client;
        client.Open(server.GetAddress(), host);
        EXPECT_TRUE(client.ssl.IsOpen()) << host;
        EXPECT_EQ(ReadText(client.ssl, 1), "x");
        ASSERT_TRUE(server.GetServer().WaitForServed(server.GetServer().GetConnectionCount()));
        EXPECT_EQ(asked, expected);
    }
}

TEST(StreamSSL, MovesLargeDataBothWaysAtOnce) {
    const std::string bytes = Pattern(2000000);
    TestTLSServer server(Leaf(), [&](TestTLSConnection& connection) {
        connection.Accept();
        EXPECT_TRUE(connection.Send(bytes));
        EXPECT_TRUE(connection.ReceiveExactly(bytes.size()) == bytes);
        connection.Send("done");
        connection.ReceiveAll();
    });
    Client client;
    client.Open(server.GetAddress());
    ASSERT_TRUE(client.ssl.IsOpen());
    std::thread writer([&] {
        EXPECT_EQ(client.ssl.Write(bytes.data(), bytes.size()), bytes.size());
        client.ssl.Flush();
    });
    EXPECT_TRUE(ReadText(client.ssl, bytes.size()) == bytes);
    writer.join();
    EXPECT_EQ(ReadText(client.ssl, 4), "done");
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultOK);
}

TEST(StreamSSL, GathersWritesUntilThereAreEnough) {
    TestTLSServer server(Leaf(), [](TestTLSConnection& connection) {
        connection.Accept();
        connection.ReceiveAll();
    });
    Client client;
    client.Open(server.GetAddress());
    const std::string text = Pattern(65536);
    const uint64_t before = client.tcp.written;
    client.ssl.Write(text.data(), text.size());
    EXPECT_EQ(client.tcp.written, before);
    client.ssl.Write("x", 1);
    const uint64_t passed = client.tcp.written;
    EXPECT_GT(passed, before + 65537);
    client.ssl.Write("y", 1);
    EXPECT_EQ(client.tcp.written, passed) << "the count starts anew";
    client.ssl.Flush();
    EXPECT_GT(client.tcp.written, passed);
    client.ssl.Write("end", 3);
    const uint64_t closing = client.tcp.written;
    client.ssl.Close();
    EXPECT_GT(client.tcp.written, closing);
}

TEST(StreamSSL, PartialReadsReturnTheFirstData) {
    TestTLSServer server(Leaf(), [](TestTLSConnection& connection) {
        connection.Accept();
        connection.Send("first");
        connection.Receive();
        connection.Send("second");
        connection.EndSending();
        connection.ReceiveAll();
    });
    Client client;
    client.Open(server.GetAddress());
    client.ssl.SetFlagsUnderMask(~0U, kCXStreamPartialReads | kCXStreamEnd);
    EXPECT_EQ(client.ssl.GetFlags(), 0x555U);
    EXPECT_EQ(ReadText(client.ssl, 1000), "first");
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultOK);
    client.ssl.SetFlagsUnderMask(0, kCXStreamPartialReads);
    client.ssl.Write("go", 2);
    EXPECT_EQ(ReadText(client.ssl, 1000), "second");
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultEndOfStream);
    EXPECT_TRUE(client.ssl.IsAtEnd());
    client.ssl.Close();
    EXPECT_EQ(client.tcp.GetFlags(), 0x103U);
    client.ssl.Open(&client.context, nullptr);
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultInvalidArgument);
    EXPECT_FALSE(client.ssl.IsOpen() || client.ssl.IsAtEnd());
}

TEST(StreamSSL, CutConnectionsAndBrokenRecordsAreTheEnd) {
    for (const bool corrupt : {false, true}) {
        TestTLSServer server(Leaf(), [&](TestTLSConnection& connection) {
            connection.Accept();
            connection.Send("before");
            connection.filter = [&](std::string& bytes) {
                if (corrupt) {
                    bytes[bytes.size() / 2] ^= 0x10;
                    return true;
                }
                bytes.resize(bytes.size() / 2);
                return false;
            };
            connection.Send(Pattern(1000));
            if (corrupt) {
                connection.ReceiveAll();
            }
        });
        Client client;
        client.Open(server.GetAddress());
        EXPECT_EQ(ReadText(client.ssl, 6), "before");
        const LogCapture log;
        EXPECT_EQ(ReadText(client.ssl, 1000), "");
        EXPECT_EQ(client.ssl.GetLastError(), kCXResultEndOfStream);
        EXPECT_EQ(client.ssl.IsAtEnd(), corrupt);
        ExpectOneLine(log.Get(), corrupt ? "OpenSSL error: \"error:" : "");
    }
}

TEST(StreamSSL, SurvivesAnyHandshake) {
    // What the server says at first, cut and damaged at many places, and things that are no TLS.
    std::atomic<size_t> step{0};
    std::atomic<bool> damage{false};
    std::atomic<size_t> flight{0};
    TestTLSServer server(Leaf(), [&](TestTLSConnection& connection) {
        bool first = true;
        connection.filter = [&, place = step.load()](std::string& bytes) {
            if (!first) {
                return true;
            }
            first = false;
            flight = bytes.size();
            if (damage) {
                bytes[place % bytes.size()] ^= 0x41;
                return true;
            }
            bytes.resize(std::min(place, bytes.size()));
            return false;
        };
        connection.Accept();
        if (damage) {
            connection.GetInner().EndSending();
            connection.GetInner().ReceiveAll();
        }
    });
    const LogCapture log;
    for (const bool damaging : {false, true}) {
        damage = damaging;
        for (step = 0; step == 0 || step < flight; step += 17) {
            Client client;
            client.Open(server.GetAddress());
            EXPECT_TRUE(client.ssl.GetLastError() == kCXResultAccessDenied ||
                        (damaging && client.ssl.IsOpen()))
                << damaging << " at " << step;
            client.tcp.Close();
            ASSERT_TRUE(server.GetServer().WaitForServed(server.GetServer().GetConnectionCount()));
        }
    }
    for (const std::string& answer :
         {std::string("HTTP/1.0 400 Bad Request\r\n\r\n"), std::string(70000, '\x16'),
          std::string("\x15\x03\x03\x00\x02\x02\x28", 7)}) {
        TestServer other([&](TestConnection& connection) {
            connection.Send(answer);
            connection.ReceiveAll();
        });
        Client client;
        client.Open(other.GetAddress());
        EXPECT_FALSE(client.ssl.IsOpen());
        EXPECT_EQ(client.ssl.GetLastError(), kCXResultAccessDenied);
    }
    // An inner stream that takes nothing.
    uint8_t memory[16] = {};
    CXStreamStaticBuffer readOnly(memory, sizeof(memory), true);
    Client client;
    client.ssl.Open(&client.context, &readOnly);
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultAccessDenied);
}

TEST(StreamSSL, GivesUpOnASilentServer) {
    SocketDriverDouble driver;
    driver.changeTimeout = [](uint32_t) { return 150U; };
    TestServer server([](TestConnection& connection) { connection.ReceiveAll(); });
    Client client;
    client.tcp.Open(server.GetAddress(), kPatienceMs);
    client.tcp.SetReceiveTimeout(0);
    const LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    client.ssl.Open(&client.context, &client.tcp);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPrompt);
    EXPECT_EQ(client.ssl.GetLastError(), kCXResultAccessDenied);
}

TEST(StreamSSL, CloseEndsBlockedCallsOfOtherThreads) {
    enum class Call : uint8_t { Handshake, Read, Write };
    TestServer silent([](TestConnection& connection) { connection.ReceiveAll(); });
    TestTLSServer server(Leaf(), [](TestTLSConnection& connection) {
        connection.Accept();
        CXSleep(400); // long enough for writes to block
        connection.GetInner().ReceiveAll();
    });
    const std::string bytes = Pattern(20000000);
    const LogCapture log;
    for (const Call call : {Call::Handshake, Call::Read, Call::Write}) {
        SCOPED_TRACE(static_cast<int>(call));
        Client client;
        if (call == Call::Handshake) {
            client.tcp.Open(silent.GetAddress(), kPatienceMs);
        } else {
            client.Open(server.GetAddress());
            ASSERT_TRUE(client.ssl.IsOpen());
        }
        std::thread closer([&] {
            CXSleep(100);
            client.ssl.CloseWithInner();
        });
        const auto start = std::chrono::steady_clock::now();
        switch (call) {
        case Call::Handshake:
            client.ssl.Open(&client.context, &client.tcp);
            break;
        case Call::Read:
            EXPECT_EQ(ReadText(client.ssl, 1), "");
            break;
        case Call::Write:
            client.ssl.Write(bytes.data(), bytes.size());
            break;
        }
        closer.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, kPrompt);
        EXPECT_FALSE(client.ssl.IsOpen());
        EXPECT_FALSE(client.tcp.IsOpen());
        EXPECT_NE(client.ssl.GetLastError(), kCXResultOK);
    }
}

TEST(StreamSSL, ClosingRacesWithEveryStage) {
    SocketDriverDouble driver;
    TestTLSServer server(Leaf(), [](TestTLSConnection& connection) {
        if (connection.Accept()) {
            connection.Send("greeting");
            connection.ReceiveAll();
        }
    });
    const LogCapture log;
    for (uint32_t i = 0; i < 40; ++i) {
        Client client;
        std::atomic<bool> over{false};
        std::thread closer([&, i] {
            std::this_thread::sleep_for(std::chrono::microseconds(i * 150));
            while (!over) {
                client.ssl.CloseWithInner();
                client.tcp.Close();
                CXSleep(1);
            }
        });
        client.tcp.Open(server.GetAddress(), kPatienceMs);
        client.ssl.Open(&client.context, &client.tcp);
        const std::string text = ReadText(client.ssl, 9);
        EXPECT_TRUE(text.empty() || text == "greeting");
        EXPECT_NE(client.ssl.GetLastError(), kCXResultOK);
        over = true;
        closer.join();
    }
    EXPECT_EQ(driver.GetOpenSockets(), 0);
}

} // namespace
