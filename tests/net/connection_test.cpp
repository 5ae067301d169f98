// Whole calls of the connection against a scripted server.
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "net/CXAddressMask.h"
#include "net/CXHTTPConnection.h"
#include "net/CXStreamProxyHTTP.h"
#include "net/DNSResolverCore.h"
#include "runtime/CXGenericEvent.h"
#include "runtime/CXRuntime.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>

namespace {

const std::string kGood = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
const std::string kKept =
    "HTTP/1.1 200 OK\r\nConnection: keep-alive\r\nContent-Length: 2\r\n\r\nok";

std::string Redirect(const std::string& location, const char* status = "302") {
    return std::string("HTTP/1.1 ") + status +
           " Moved\r\nContent-Length: 4\r\nLocation: " + location + "\r\n\r\naway";
}

CXURI Address(const ScriptedServer& server, const std::string& path) {
    return CXURI(server.GetAddress(path));
}

std::string ContentsOf(CXStreamDynamicBuffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.GetData()),
                       static_cast<size_t>(buffer.GetSize()));
}

class FixedResolver : public DNSResolverCore {
public:
    void Resolve(const CXString& name, CXString& out) override {
        names.push_back(std::string(name.View()));
        out = name == "nowhere" ? "" : "127.0.0.1";
    }
    std::vector<std::string> names;
};

class FlagEvent : public CXGenericEvent {
public:
    ~FlagEvent() override { DetachRefs(); }
    bool Test() override { return holds; }
    std::atomic<bool> holds{false};
};

} // namespace

TEST(HTTPConnection, StatusesAndAddressesHaveTheirResults) {
    const struct {
        const char* reply;
        CXResult result;
    } cases[] = {
        {"200", kCXResultOK},
        {"206", kCXResultOK},
        {"404", kCXResultNotFound},
        {"303", kCXResultInvalidArgument},
        {"304", kCXResultInvalidArgument},
        {"500", kCXResultInvalidArgument},
        {"301", kCXResultBadData}, // no location
    };
    for (const auto& one : cases) {
        const std::string reply =
            std::string("HTTP/1.1 ") + one.reply + " X\r\nContent-Length: 4\r\n\r\nbody";
        ScriptedServer server({{reply}, {reply}});
        CXHTTPConnection connection;
        EXPECT_EQ(connection.Get(Address(server, "/"), nullptr), one.result) << one.reply;
        EXPECT_EQ(connection.GetStatus(), std::stoi(one.reply));
        EXPECT_EQ(connection.GetResponseText().View(), "body");
        CXString text;
        EXPECT_EQ(connection.GetText(Address(server, "/"), &text), one.result);
        EXPECT_EQ(text, "body");
    }
    CXHTTPConnection connection;
    FixedResolver resolver;
    connection.SetResolver(&resolver);
    CXString text;
    EXPECT_EQ(connection.GetText(CXURI("ftp://host/x"), &text), kCXResultUnusable);
    EXPECT_EQ(connection.GetText(CXURI("/x"), &text), kCXResultUnusable);
    EXPECT_EQ(connection.GetText(CXURI("http:///x"), &text), kCXResultInvalidArgument);
    EXPECT_EQ(connection.GetText(CXURI("http://nowhere/x"), &text), kCXResultNotFound);
    EXPECT_EQ(connection.GetText(CXURI("http://host:1/x"), &text), kCXResultEndOfStream);
    EXPECT_EQ(resolver.names, (std::vector<std::string>{"nowhere", "host"}));
}

TEST(HTTPConnection, HttpsWithoutATrustFileTriesNoConnection) {
    CXFileSystem::SetApplicationFolder(CXFileSystem::Join(CXFileSystem::GetTempPath(), "none"));
    ScriptedServer server({{kGood}});
    CXHTTPConnection connection;
    CXString text;
    CXURI uri = Address(server, "/");
    uri.scheme = "https";
    const LogCapture log;
    EXPECT_EQ(connection.GetText(uri, &text), kCXResultFailed);
    EXPECT_EQ(server.CountConnections(), 0);
    CXFileSystem::SetApplicationFolder(CXString());
}

TEST(HTTPConnection, ConnectionsAreKeptOnlyWhereTheReplySaysSo) {
    ScriptedServer server({{kKept, kKept, kGood}, {kKept, "HTTP/1.1 200 OK\r\n\r\n"}, {kGood}});
    CXHTTPConnection connection;
    CXString text;
    const CXURI uri = Address(server, "/");
    for (const size_t cached : {1U, 1U, 0U, 1U, 0U}) {
        EXPECT_EQ(connection.GetText(uri, &text), kCXResultOK);
        EXPECT_EQ(connection.CountCachedConnections(), cached);
    }
    const std::vector<std::string> requests = server.GetRequests();
    ASSERT_EQ(requests.size(), 5U);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(requests[i], std::string(i < 3 ? "0" : "1") +
                                   " GET / HTTP/1.1\r\nConnection: Keep-Alive\r\n"
                                   "Host: 127.0.0.1\r\n\r\n");
    }
}

TEST(HTTPConnection, AStaleConnectionFailsOnceAndIsForgotten) {
    ScriptedServer server({{kKept}, {kGood}});
    CXHTTPConnection connection;
    CXString text;
    const CXURI uri = Address(server, "/");
    EXPECT_EQ(connection.GetText(uri, &text), kCXResultOK);
    ASSERT_TRUE(server.WaitUntilClientLeft());
    EXPECT_EQ(connection.GetText(uri, &text), kCXResultEndOfStream);
    EXPECT_EQ(connection.GetStatus(), 0);
    EXPECT_EQ(connection.GetText(uri, &text), kCXResultOK);
}

TEST(HTTPConnection, RedirectsAreFollowedAndTheOutputIsSetBack) {
    ScriptedServer server({{Redirect("http://127.0.0.1:PORT/next?x=1", "301")},
                           {Redirect("http://localhost:PORT/last", "308")},
                           {kGood}});
    CXHTTPConnection connection;
    CXStreamDynamicBuffer output;
    EXPECT_EQ(connection.Get(Address(server, "/"), &output), kCXResultOK);
    EXPECT_EQ(ContentsOf(output), "ok");
    const std::vector<std::string> requests = server.GetRequests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[1].substr(2, 23), "GET /next?x=1 HTTP/1.1\r");
    EXPECT_NE(requests[2].find("Host: localhost\r\n"), std::string::npos);
}

TEST(HTTPConnection, RedirectsThatGoNowhereFail) {
    CXHTTPConnection connection;
    CXString text;
    const LogCapture log;
    ScriptedServer malformed({{Redirect("user!pw")}});
    EXPECT_EQ(connection.GetText(Address(malformed, "/"), &text), kCXResultBadData);
    ScriptedServer server(ScriptedServer::Script(10, {Redirect("http://127.0.0.1:PORT/again")}));
    EXPECT_EQ(connection.GetText(Address(server, "/"), &text), kCXResultBadData);
    EXPECT_EQ(server.GetRequests().size(), 8U);
}

TEST(HTTPConnection, CredentialsGoWithTheRequestsAndIntoNoText) {
    ScriptedServer server(
        {{Redirect("http://127.0.0.1:PORT/2?u=name&p=word")},
         {Redirect("http://other!key@127.0.0.1:PORT/3")},
         {"HTTP/1.1 500 No\r\nSet-Cookie: secret=4\r\nX: 1\r\nContent-Length: 0\r\n\r\n"}});
    CXHTTPConnection connection;
    connection.SetRequestHeader("Connection", "upgrade");
    connection.SetRequestHeader("Cookie", "secret=5");
    CXURI uri = Address(server, "/1");
    uri.user = "a%3ab";
    uri.password = "p%20w";
    CXStringEdit debugText;
    EXPECT_EQ(connection.Get(uri, nullptr, &debugText), kCXResultInvalidArgument);
    const std::vector<std::string> requests = server.GetRequests();
    ASSERT_EQ(requests.size(), 3U);
    const char* codes[] = {"YTpiOnAgdw==", "YTpiOnAgdw==", "b3RoZXI6a2V5"};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NE(requests[i].find(std::string("Authorization: Basic ") + codes[i] +
                                   "\r\nConnection: Close\r\n"),
                  std::string::npos)
            << requests[i];
    }
    EXPECT_EQ(connection.GetRequestHeader("authorization"), "");
    EXPECT_EQ(connection.GetRequestHeader("CONNECTION"), "upgrade");

    const std::string text(debugText.View());
    for (const char* secret : {"YTpi", "b3Ro", "secret", "name", "word", "other", "key"}) {
        EXPECT_EQ(text.find(secret), std::string::npos) << secret << " in\n" << text;
    }
    const std::string port = std::to_string(server.GetPort());
    EXPECT_EQ(text.substr(0, text.find("GET /2")),
              "GET /1 HTTP/1.1\nAuthorization: ***\nConnection: Close\nCookie: ***\n"
              "Host: 127.0.0.1\n\nHTTP/1.1 302 Moved\nContent-Length: 4\n"
              "Location: http://127.0.0.1:" +
                  port + "/2?u=***&p=***\n\n");
    EXPECT_NE(text.find("GET /2?u=***&p=*** HTTP/1.1\n"), std::string::npos);
    EXPECT_NE(text.find("HTTP/1.1 500 No\nSet-Cookie: ***\nX: 1\n"), std::string::npos);
}

TEST(HTTPConnection, HeadersOfTheCallerAreFoundAndRemovedByName) {
    CXHTTPConnection connection;
    for (const char* name : {"A", "a", "B", "A"}) {
        connection.SetRequestHeader(name, CXString::Format("of %s", name));
    }
    EXPECT_EQ(connection.GetRequestHeader("a"), "of A");
    connection.RemoveRequestHeader("a"); // the one right behind a removed one stays
    EXPECT_EQ(connection.GetRequestHeader("A"), "of a");
    connection.RemoveRequestHeader("A");
    EXPECT_EQ(connection.GetRequestHeader("a"), "");
    EXPECT_EQ(connection.GetRequestHeader("b"), "of B");
}

TEST(HTTPConnection, ResumesByTheSizeOfTheOutput) {
    ScriptedServer server(
        {{"HTTP/1.1 206 Part\r\nContent-Range: bytes 4-7/8\r\nContent-Length: 4\r\n\r\nmore"},
         {"HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nwhole!"},
         {"HTTP/1.1 416 No\r\nContent-Range: bytes */4\r\nContent-Length: 9\r\n\r\nno range!"}});
    for (const auto& [result, contents] :
         {std::pair<CXResult, std::string>{kCXResultBadData, "half"},
          {kCXResultOK, "whole!"},
          {kCXResultInvalidArgument, "half"}}) {
        CXHTTPConnection connection;
        connection.SetRequestHeader("User-Agent", "test");
        CXStreamDynamicBuffer output;
        output.m_flags |= kCXStreamSizeKnown | kCXStreamCanSkip;
        output.Write("half", 4);
        output.Seek(0, kCXSeekStart);
        EXPECT_EQ(connection.Get(Address(server, "/"), &output), result);
        EXPECT_EQ(ContentsOf(output), contents);
        EXPECT_EQ(connection.CountCachedConnections(), 0U);
    }
    EXPECT_EQ(server.GetRequests()[0], "0 GET / HTTP/1.1\r\nConnection: Keep-Alive\r\n"
                                       "Host: 127.0.0.1\r\nRange: bytes=4-\r\n\r\n");
}

TEST(HTTPConnection, CookiesAreThoseOfTheLastReply) {
    const std::string two =
        "HTTP/1.1 200 OK\r\nSet-Cookie: a = 1 ; Path=/x; DOMAIN=x.org; Secure\r\n"
        "Set-Cookie: b\r\nContent-Length: 0\r\n\r\n";
    // A head that is cut off gives what came of it, and a connection that brings none nothing.
    const std::string cut = "HTTP/1.1 200 OK\r\nSet-Cookie: c=3\r\nSet-Coo";
    ScriptedServer server({{two}, {kGood}, {kGood}, {cut}, {""}, {kGood}});
    CXHTTPConnection connection;
    for (const size_t count : {2U, 0U, 0U, 1U, 0U, 0U}) {
        const bool isWhole = server.CountConnections() < 3 || server.CountConnections() > 4;
        EXPECT_EQ(connection.Get(Address(server, "/"), nullptr),
                  isWhole ? kCXResultOK : kCXResultEndOfStream);
        EXPECT_EQ(connection.GetCookies().size(), count);
    }
    const std::vector<std::string> requests = server.GetRequests();
    EXPECT_NE(requests[4].find("\r\nCookie: c=3\r\n"), std::string::npos);
    EXPECT_EQ(requests[5].find("Cookie"), std::string::npos);
    EXPECT_EQ(requests[0].find("Cookie"), std::string::npos);
    EXPECT_NE(requests[1].find("\r\nCookie: a=1; b=\r\n"), std::string::npos);
    EXPECT_EQ(requests[2].find("Cookie"), std::string::npos);
    const CXHTTPCookie cookie = CXHTTPCookie::FromHeader("a=1=2; Path=/; Domain=x.org; Secure");
    EXPECT_EQ(cookie.name, "a");
    EXPECT_EQ(cookie.value, "1=2");
    EXPECT_EQ(cookie.path, "/");
    EXPECT_EQ(cookie.domain, "x.org");
}

TEST(HTTPConnection, ACancelEndsAStalledTransferInTime) {
    const CXRuntimeScope runtime;
    const std::string head = "HTTP/1.1 200 OK\r\nConnection: keep-alive\r\n";
    for (const std::string& start :
         {std::string(), head + "Content-Length: 9\r\n\r\nhalf",
          head + "Transfer-Encoding: chunked\r\n\r\n9\r\nhalf", head + "\r\nhalf"}) {
        ScriptedServer server({{start, ScriptedServer::kStall}});
        CXHTTPConnection connection;
        FlagEvent cancel;
        connection.SetCancelEvent(CXGenericEventRef(&cancel));
        CXStreamDynamicBuffer output;
        std::atomic<int64_t> end{0};
        std::thread transfer([&] {
            EXPECT_NE(connection.Get(Address(server, "/"), &output), kCXResultOK);
            end = CXTime::GetCurrentTime();
        });
        while (server.GetRequests().empty()) {
            CXSleep(1);
        }
        CXSleep(20); // into the read that stalls
        EXPECT_EQ(end, 0);
        const int64_t begin = CXTime::GetCurrentTime();
        cancel.holds = true;
        transfer.join();
        EXPECT_LE(end - begin, 600);
        EXPECT_EQ(connection.CountCachedConnections(), 0U);
        EXPECT_TRUE(server.WaitUntilClientLeft());
    }
}

TEST(AddressMask, NoFormOfAnAddressShowsItsCredentials) {
    const struct {
        const char* text;
        const char* masked;
    } addresses[] = {
        {"https://h/x?a=1&u=me&p=pw&b=2", "https://h/x?a=1&u=***&p=***&b=2"},
        {"http://h:1x/?p=ab cd", "http://h:1x/?p=***"},
        {"?p=ab#cd", "?p=***"},
        {"me!s3://cret@host:80x/", "***@host:80x/"},
        {"me!pw@h/x", "***@h/x"},
        {"http://me!pw/x", "http://***"},
        {"http://h/x?up=1", "http://h/x?up=1"},
        {"", ""},
    };
    for (const auto& one : addresses) {
        EXPECT_EQ(MaskAddress(one.text), one.masked);
    }
    CXStringEdit out;
    AppendMaskedHead("GET /?u=me&p=a'b HTTP/1.1\nLocation: http://me!pa'ss@h/\n"
                     "Location: me!pw@h/x\nReferer: see http://me!p w@h/?p=x y&c=1\n",
                     out);
    EXPECT_EQ(std::string(out.View()), "GET /?u=***&p=*** HTTP/1.1\nLocation: http://***@h/\n"
                                       "Location: ***@h/x\nReferer: see http://***@h/?p=***&c=1\n");
}

TEST(HTTPProxy, ItsTextIsHostAndPort) {
    FixedResolver resolver;
    const struct {
        const char* text;
        int port; // 0: refused
    } cases[] = {{"proxy:3128", 3128},
                 {"proxy:abc", 8080},
                 {"proxy:1:2", 8080},
                 {"proxy:0", 0},
                 {"proxy:65536", 0},
                 {"proxy", 0},
                 {"proxy:", 0},
                 {":80", 0},
                 {"nowhere:80", 0},
                 {"proxy:-1", 0},
                 {"proxy:99999999999999999999", 0}};
    for (const auto& one : cases) {
        CXSocketAddress address;
        EXPECT_EQ(CXStreamProxyHTTP::FindProxy(one.text, resolver, address),
                  one.port != 0 ? kCXResultOK : kCXResultInvalidArgument)
            << one.text;
        EXPECT_EQ(address.GetPort(), one.port) << one.text;
    }
}

TEST(HTTPProxy, ATunnelIsOpenBehindTheHeadOfTheAnswer) {
    ScriptedServer server({{"HTTP/1.0 403 Forbidden\r\nVia: x\r\n\r\nbytes"},
                           {"HTTP/1.0 200 OK\n\r\n\rbytes"},
                           {"HTTP/1.0 200 OK\r\nVia: x\r\n"}});
    const CXSocketAddress address =
        CXSocketAddress::Loopback(static_cast<uint16_t>(server.GetPort()));
    for (const bool isOpen : {true, true, false}) {
        CXStreamProxyHTTP tunnel;
        tunnel.Open("host.invalid", 443, address);
        EXPECT_EQ(tunnel.IsOpen(), isOpen);
        char bytes[6] = {};
        EXPECT_EQ(tunnel.Read(bytes, 5), isOpen ? 5U : 0U);
        EXPECT_STREQ(bytes, isOpen ? "bytes" : "");
    }
    EXPECT_EQ(server.GetRequests()[0], "0 CONNECT host.invalid:443 HTTP/1.0 \r\n\r\n");
}
