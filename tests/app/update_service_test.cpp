// The service's client against a server with TLS: the requests on the wire, exit codes, jobs.
#include "app/VelPatchUpdateService.h"

#include "core/CXMD5.h"
#include "runtime/CXMessageTarget.h"
#include "runtime/CXWorkerHost.h"
#include "tests/app/ServiceServer.h"
#include "tests/runtime/runtime_test_util.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>

namespace {

constexpr char kCheckPath[] = "GET /streams/rollstockstreamcheck.php";
constexpr char kFilePath[] = "GET /streams/getstreamfile.php";
constexpr char kAnchor[] = "the installed build";

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

class UpdateService : public RuntimeTest {
protected:
    UpdateService() {
        folder.WriteFile("game/bin/game.bin", kAnchor);
        configuration.serviceBase = server.GetBase().c_str();
        configuration.targetPath = folder.Path("game");
        configuration.anchorFile = "bin/game.bin";
        configuration.bundleId = "com.example.game";
        configuration.installationId = "inst/1";
        settings.username = "anna";
        settings.password = "pw";
        settings.streamId = "42";
    }
    static std::string Build() { return Text(CXMD5::OfBlock(kAnchor, sizeof kAnchor - 1)); }

    /// Posts the check for a patch and waits for the completion, which is shown as
    /// "kind|anchor result|result|body".
    std::string CheckForFile() {
        std::string shown;
        VelPatchUpdateService::PostStreamFileCheck(
            page, configuration, settings, [&](const VelPatchStreamFileCompletion& completion) {
                EXPECT_TRUE(CXThread::IsMainThread());
                shown = Row(std::to_string(static_cast<int>(completion.kind)),
                            std::to_string(completion.anchorResult),
                            std::to_string(completion.reply.result), completion.reply.body);
                anchorPath = completion.anchorPath;
            });
        EXPECT_TRUE(RunMainTasksUntil([&] { return !shown.empty(); }));
        return shown;
    }

    CXEvent mayReply; // these two are used on the server's thread
    CXEvent isAsked;
    ServiceServer server;
    TempFolder folder;
    VelPatchConfiguration configuration;
    VelPatchSettings settings;
    CXMessageTarget page;
    CXString anchorPath;
};

TEST_F(UpdateService, AWindowlessCheckEndsWithACodeWhateverComesBack) {
    VelPatchCheckRequest request{"bin/game.bin",           "com.example.game",  "inst/1",
                                 server.GetBase().c_str(), folder.Path("game"), settings};
    request.settings.streamId.Clear();
    const std::string check =
        std::string(kCheckPath) + "?u=anna&p=pw&loc=US&id=com.example.game&iid=inst%2f1 HTTP/1.1";
    const std::string both = check + "\n" + kFilePath +
                             "?u=anna&p=pw&stream=a%20b&build=" + Build() + "&loc=US HTTP/1.1";
    const std::string ok = ServiceServer::Ok("good 1\ndefault-stream \"a b\"");
    const std::string patch = ServiceServer::Ok("good 1\npatch-control-file https://h/c");
    const struct {
        const char* what;
        std::string streamCheck;
        std::string streamFile;
        int code;
    } cases[] = {
        {"patch", ok, patch, 1},
        {"up to date", ok, ServiceServer::Ok("error no-patches-available\ngood 1"), 0},
        {"replies in the wrong order", patch, "", 3},
        {"not text", ServiceServer::Ok(std::string("\x89PNG\0\x1A\n", 7)), "", 2},
        {"refused", "HTTP/1.1 403 Forbidden\r\n\r\ngood 1\ndefault-stream a", "", 2},
        {"missing", ok, "HTTP/1.1 404 Not Found\r\nContent-Length: 6\r\n\r\ngood 1", 2},
        {"cut", "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\ngood 1\ndefault-stream a\n", "", 2},
        {"nothing at all", "", "", 2},
        {"not http", "good 1\ndefault-stream a\r\n\r\n", "", 2},
        {"huge", ok, ServiceServer::Ok("good 1\n" + std::string(kLongestServiceReply, ' ')), 2},
        {"endless lie", ok, "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\ngood 1", 2},
    };
    for (const auto& one : cases) {
        server.SetReplies(one.streamCheck, one.streamFile);
        EXPECT_EQ(VelPatchUpdateService::CheckForPatch(request), one.code) << one.what;
        EXPECT_EQ(server.GetRequests(), one.streamCheck == ok ? both : check) << one.what;
    }
    server.SetReplies(ok, patch);
    const int64_t start = NowMs();
    EXPECT_EQ(VelPatchUpdateService::CheckForPatch(request), 1);
    const int64_t took = NowMs() - start;
    std::printf("answer to both requests after %d ms\n", static_cast<int>(took));
    EXPECT_LT(took, 3000) << "of which a few handshakes should be all";

    const int before = server.CountConnections();
    folder.MakeFolder("odd/bin/game.bin");
    for (const char* target : {"nowhere", "odd"}) {
        request.target = folder.Path(target);
        EXPECT_EQ(VelPatchUpdateService::CheckForPatch(request), 2);
    }
    EXPECT_EQ(server.CountConnections(), before) << "nobody was asked";
}

TEST_F(UpdateService, AccountPageAsksOnAWorker) {
    server.SetReplies(ServiceServer::Ok("good 1\nstream \"a A\""), "");
    VelPatchStreamCheckReply got;
    bool isDone = false;
    for (const bool isInstallation : {true, false}) {
        configuration.isInstallation = isInstallation;
        isDone = false;
        VelPatchUpdateService::PostStreamCheck(page, configuration, "b\xC3\xA9rt~",
                                               CXString("a&=+% ?#/\"\0z", 12),
                                               [&](const VelPatchStreamCheckReply& reply) {
                                                   EXPECT_TRUE(CXThread::IsMainThread());
                                                   got = reply;
                                                   isDone = true;
                                               });
        EXPECT_TRUE(RunMainTasksUntil([&] { return isDone; }));
    }
    EXPECT_EQ(Row(got.username, got.password.View().substr(0, 4), got.reply.body),
              "b\xC3\xA9rt~|a&=+|good 1\nstream \"a A\"");
    EXPECT_EQ(got.reply.result, kCXResultOK);
    const std::string start =
        std::string(kCheckPath) +
        "?u=b%c3%a9rt~&p=a%26%3d%2b%25%20%3f%23%2f%22&loc=US&id=com.example.game&i=";
    EXPECT_EQ(server.GetRequests(),
              start + "1&iid=inst%2f1 HTTP/1.1\n" + start + "0&iid=inst%2f1 HTTP/1.1");
}

TEST_F(UpdateService, CheckPageCompletions) {
    server.SetReplies("", ServiceServer::Ok("good 1"));
    const std::string start = std::string(kFilePath) + "?u=anna&p=pw&stream=42&build=";
    EXPECT_EQ(CheckForFile(), "3|0|0|good 1");
    EXPECT_EQ(server.GetRequests(), start + Build() + "&loc=US HTTP/1.1");

    configuration.isInstallation = true;
    configuration.targetPath = folder.Path("nowhere");
    server.SetReplies("", "HTTP/1.1 500 Oh\r\n\r\n");
    EXPECT_EQ(CheckForFile(), "3|0|-5|") << "an installation reads no file";
    EXPECT_EQ(server.GetRequests(), start + "inst%2f1&loc=US HTTP/1.1");

    const int before = server.CountConnections();
    configuration.isOffline = true;
    EXPECT_EQ(CheckForFile().substr(0, 3), "2|0") << "an offline installation";
    configuration.isInstallation = false;
    EXPECT_EQ(CheckForFile().substr(0, 4), "0|-7");
    EXPECT_EQ(Text(anchorPath), Text(folder.Path("nowhere/bin/game.bin")));
    configuration.targetPath = folder.Path("game");
    for (const auto& [checksum, kind] :
         {std::pair(Build(), "2|"), std::pair(std::string(), "1|"), std::pair(Build() + "0", "1|"),
          std::pair("A" + Build().substr(1), "1|")}) {
        configuration.anchorChecksum = checksum.c_str();
        EXPECT_EQ(CheckForFile().substr(0, 2), kind) << checksum;
    }
    EXPECT_EQ(server.CountConnections(), before) << "offline nobody is asked";
}

TEST_F(UpdateService, ALostPageAndAStopEndARequestQuietly) {
    server.beforeReply = [&] {
        isAsked.Set();
        mayReply.Wait();
    };
    server.SetReplies(ServiceServer::Ok("good 1"), "");
    auto lost = std::make_unique<CXMessageTarget>();
    const auto fail = [](const VelPatchStreamCheckReply&) { ADD_FAILURE() << "nobody is left"; };
    VelPatchUpdateService::PostStreamCheck(*lost, configuration, "anna", "pw", fail);
    EXPECT_TRUE(isAsked.Wait(30000));
    lost.reset();
    mayReply.Set();
    EXPECT_TRUE(WaitUntil([] { return !CXWorkerHost::GetSingleton()->IsChainBusy(0); }));
    RunMainTasks();

    // The program ends while the server thinks.
    isAsked.Reset();
    mayReply.Reset();
    VelPatchUpdateService::PostStreamCheck(page, configuration, "anna", "pw", fail);
    EXPECT_TRUE(isAsked.Wait(30000));
    const int64_t start = NowMs();
    CXWorkerHost::DeleteSingleton();
    EXPECT_LT(NowMs() - start, 10000);
    mayReply.Set();
}

TEST(ServiceBase, ComesFromTheConfigurationIfItIsSecure) {
    const TempFolder folder;
    const std::pair<const char*, const char*> cases[] = {
        {"", "https://localhost/"},
        {"patch-service-base http://host/", "https://localhost/"},
        {"patch-service-base https://host/a", "https://host/a/"},
        {"patch-service-base \"https://host:444/a/\"", "https://host:444/a/"},
    };
    for (const auto& [text, base] : cases) {
        folder.WriteFile("config.txt", text);
        EXPECT_EQ(Text(ServiceBaseOf(*ReadConfigurationFile(folder.Path("config.txt")))), base);
    }
}

} // namespace
