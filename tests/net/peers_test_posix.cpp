// The connection against nginx and tinyproxy.
#include "net/CXHTTPConnection.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WebPeers_posix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

class WebPeersTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_peers = std::make_unique<WebPeers>();
        s_peers->WriteFile("small.txt", "some text\n");
        s_peers->WriteFile("empty", "");
        std::mt19937 random(7);
        s_large.resize(5000001);
        std::generate(s_large.begin(), s_large.end(), [&] { return static_cast<char>(random()); });
        s_peers->WriteFile("large.bin", s_large);
    }
    static void TearDownTestSuite() { s_peers.reset(); }
    void SetUp() override { ASSERT_TRUE(s_peers->isUp); }

    /// A connection that trusts the server.
    static void Trust(CXHTTPConnection& connection) {
        auto context = std::make_unique<CXSSLContext>();
        ASSERT_EQ(context->LoadVerifyFile(CXString(s_peers->Folder() + "/root.crt")), kCXResultOK);
        connection.SetSSLContext(std::move(context));
    }

    /// "result:status:text".
    static std::string Fetch(CXHTTPConnection& connection, const std::string& address) {
        CXString text;
        const CXResult result = connection.GetText(CXURI(address), &text);
        return std::to_string(result) + ":" + std::to_string(connection.GetStatus()) + ":" +
               std::string(text.View());
    }

    static std::unique_ptr<WebPeers> s_peers;
    static std::string s_large;
};

std::unique_ptr<WebPeers> WebPeersTest::s_peers;
std::string WebPeersTest::s_large;

} // namespace

TEST_F(WebPeersTest, FilesComeWholeInEveryForm) {
    CXHTTPConnection connection;
    Trust(connection);
    for (const char* path : {"/large.bin", "/chunked/large.bin", "/empty", "/chunked/empty"}) {
        for (const std::string& address : {s_peers->Http(path), s_peers->Https(path)}) {
            CXStreamDynamicBuffer output;
            uint64_t done = 0;
            EXPECT_EQ(connection.Get(CXURI(address), &output, nullptr,
                                     [&](const CXStreamProgressCallbackData& data) {
                                         done = data.bytesDone;
                                         return true;
                                     }),
                      kCXResultOK)
                << address;
            const std::string wanted =
                std::string(path).find("empty") != std::string::npos ? std::string() : s_large;
            EXPECT_EQ(done, wanted.size());
            ASSERT_EQ(output.GetSize(), wanted.size()) << address;
            EXPECT_TRUE(wanted.empty() ||
                        memcmp(output.GetData(), wanted.data(), wanted.size()) == 0);
        }
    }
    EXPECT_EQ(connection.CountCachedConnections(), 2U);
}

TEST_F(WebPeersTest, OneConnectionServesManyRequests) {
    CXHTTPConnection connection;
    Trust(connection);
    for (const std::string& address : {s_peers->Http("/who"), s_peers->Https("/who")}) {
        EXPECT_EQ(Fetch(connection, address), "0:200:||Keep-Alive|1");
        EXPECT_EQ(Fetch(connection, address), "0:200:||Keep-Alive|2");
    }
    EXPECT_EQ(Fetch(connection, s_peers->Http("/absent")).substr(0, 7), "-7:404:");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/who")), "0:200:||Keep-Alive|4");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/nothing")), "-3:0:");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/who")), "0:200:||Keep-Alive|1");
}

TEST_F(WebPeersTest, RedirectsCredentialsAndCookies) {
    CXHTTPConnection connection;
    Trust(connection);
    EXPECT_EQ(Fetch(connection, s_peers->Http("/to-https")), "0:200:some text\n");
    EXPECT_EQ(Fetch(connection, s_peers->Https("/to-http")), "0:200:some text\n");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/round")).substr(0, 7), "-12:302");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/relative")).substr(0, 7), "-15:302");
    CXURI uri{s_peers->Http("/who")};
    uri.user = "user";
    uri.password = "pw";
    EXPECT_EQ(Fetch(connection, std::string(uri.ToString().View())).substr(0, 32),
              "0:200:Basic dXNlcjpwdw==||Close|");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/cookies")), "0:200:set");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/who")).substr(0, 16), "0:200:|a=1; b=2|");
    EXPECT_EQ(Fetch(connection, s_peers->Http("/who")).substr(0, 8), "0:200:||");
}

TEST_F(WebPeersTest, AFileIsResumedAsFarAsTheRangeAllows) {
    const CXString path(s_peers->Folder() + "/part.bin");
    const struct {
        size_t size;
        CXResult result;
        int32_t status;
    } cases[] = {{s_large.size() / 2, kCXResultBadData, 206},
                 {s_large.size(), kCXResultInvalidArgument, 416},
                 {0, kCXResultOK, 200}};
    for (const auto& one : cases) {
        std::ofstream(path.GetData(), std::ios::binary) << s_large.substr(0, one.size);
        CXHTTPConnection connection;
        CXStreamFile file;
        file.Open(path, kOpenWrite);
        EXPECT_EQ(connection.Get(CXURI(s_peers->Http("/large.bin")), &file), one.result);
        EXPECT_EQ(connection.GetStatus(), one.status);
        EXPECT_EQ(file.GetSize(), one.result == kCXResultOK ? s_large.size() : one.size);
    }
}

TEST_F(WebPeersTest, TrustAndNamesAreChecked) {
    const LogCapture log;
    CXHTTPConnection untrusting;
    auto context = std::make_unique<CXSSLContext>();
    EXPECT_EQ(context->LoadVerifyFile(CXString(s_peers->Folder() + "/server.crt")), kCXResultOK);
    untrusting.SetSSLContext(std::move(context));
    EXPECT_EQ(Fetch(untrusting, s_peers->Https("/small.txt")), "-10:0:");

    std::string otherName = s_peers->Https("/small.txt");
    otherName.replace(otherName.find("localhost"), 9, "127.0.0.1");
    CXHTTPConnection connection;
    Trust(connection);
    EXPECT_EQ(Fetch(connection, otherName), "-17:0:");
    connection.SetVerifyHost(false);
    EXPECT_EQ(Fetch(connection, otherName), "0:200:some text\n");
}

TEST_F(WebPeersTest, ProxiesServePlainRequestsAndTunnels) {
    CXHTTPConnection connection;
    Trust(connection);
    connection.SetProxy(CXString::Format("127.0.0.1:%d", s_peers->plainProxyPort));
    EXPECT_EQ(Fetch(connection, "http://game.invalid:99/small.txt"), "0:200:some text\n");
    EXPECT_EQ(connection.GetResponseHeader("x-asked-for"), "game.invalid");

    connection.SetProxy(CXString::Format("localhost:%d", s_peers->tunnelProxyPort));
    EXPECT_EQ(Fetch(connection, s_peers->Https("/small.txt")), "0:200:some text\n");
    EXPECT_EQ(Fetch(connection, s_peers->Https("/who")), "0:200:||Keep-Alive|2");
    // A port that the proxy doesn't let through: its refusal is no TLS.
    const LogCapture log;
    EXPECT_EQ(Fetch(connection, "https://localhost:9/"), "-10:0:");
}

TEST_F(WebPeersTest, ControlFilesLoadOverHttp) {
    s_peers->WriteFile("patch-control.txt", "velpatch-version 1\ndatafilesize 77\n");
    s_peers->WriteFile("new-control.txt", "velpatch-version 2\n");
    const auto load = [](const std::string& path, PatchControl& control) {
        return LoadControlFile(CXURI(s_peers->Http(path)), control);
    };
    PatchControl control;
    EXPECT_EQ(load("/patch-control.txt", control), kCXResultOK);
    EXPECT_EQ(control.dataSize, 77);
    EXPECT_EQ(load("/new-control.txt", control), kCXResultUnusable);
    EXPECT_EQ(load("/absent.txt", control), kCXResultNotFound);
    EXPECT_EQ(control.dataSize, 77);
}

TEST(WebPeers, AServerThatDiesInTheMiddleCutsTheTransferOff) {
    WebPeers peers;
    ASSERT_TRUE(peers.isUp);
    peers.WriteFile("file", std::string(1000000, 'x'));
    bool isKilled = false;
    CXHTTPConnection connection;
    CXStreamDynamicBuffer output;
    CXStringEdit debugText;
    EXPECT_EQ(connection.Get(CXURI(peers.Http("/slow/file")), &output, &debugText,
                             [&](const CXStreamProgressCallbackData& data) {
                                 if (data.bytesDone > 50000 && !std::exchange(isKilled, true)) {
                                     peers.KillServer();
                                 }
                                 return true;
                             }),
              kCXResultEndOfStream);
    EXPECT_GT(output.GetSize(), 50000U);
    EXPECT_LT(output.GetSize(), 1000000U);
    EXPECT_EQ(debugText.View().substr(0, 24), "GET /slow/file HTTP/1.1\n");
    EXPECT_EQ(connection.Get(CXURI(peers.Http("/slow/file")), &output), kCXResultEndOfStream);
}
