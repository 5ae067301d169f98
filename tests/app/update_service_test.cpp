// The service's client against a server with TLS: the requests on the wire, exit codes, jobs.
#include "app/VelPatchUpdateService.h"

#include "core/CXMD5.h"
#include "runtime/CXMessageTarget.h"
#include "runtime/CXWorkerHost.h"
#include "tests/app/ServiceServer.h"
#include "tests/runtime/runtime_test_util.h"

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
        SetSettingsBaseFolder(folder.Path("user"));
        configuration.serviceBase = server.GetBase().c_str();
        configuration.targetPath = folder.Path("game");
        configuration.anchorFile = "bin/game.bin";
        configuration.bundleId = "com.example.game";
        configuration.installationId = "inst/1";
        settings.username = "anna";
        settings.password = "pw";
        settings.streamId = "42";
    }
    ~UpdateService() override {
        SetCommandLineHooks({});
        SetSettingsBaseFolder(CXString());
        GetProcessSettings().target.Clear();
        GetProcessSettings().settingsOverridden = false;
    }

    static std::string Build() { return Text(CXMD5::OfBlock(kAnchor, sizeof kAnchor - 1)); }

    /// A whole run without a window, from its command line to its exit code.
    int CheckForPatch(const std::string& settingsText, const char* target = "game") {
        server.GetApplicationFolder().WriteFile(
            "data/patch-config.txt", "application-bundle-id com.example.game\n"
                                     "patch-anchor-file bin/game.bin\n"
                                     "patch-is-installation 1\ninstallation-id \"inst/1\"\n"
                                     "patch-service-base " +
                                         server.GetBase() + "\n");
        int code = -1;
        SetCommandLineHooks({VelPatchUpdateService::CheckForPatch, [&](int exit) { code = exit; }});
        const CXString cwd = CXFileSystem::GetCurrentDirectory();
        ParseCommandLine({CXString(), "--target", folder.Path(target), "--settings",
                          Base64Of(settingsText).c_str(), "--checkforpatch", "--locale", "de"});
        CXFileSystem::SetCurrentDirectory(cwd);
        EXPECT_FALSE(folder.Has("user/com.example.game/velpatch-settings.dat")) << "nothing saved";
        return code;
    }

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

TEST_F(UpdateService, ExitCodesOfARunWithoutAWindow) {
    const std::string account = "username anna\npassword pw\n";
    const std::string asked =
        std::string(kCheckPath) + "?u=anna&p=pw&loc=US&id=com.example.game&iid=inst%2f1 HTTP/1.1\n";
    const auto file = [](const std::string& stream) {
        return kFilePath + ("?u=anna&p=pw&stream=" + stream) + "&build=" + Build() +
               "&loc=US HTTP/1.1";
    };
    const std::string ok = ServiceServer::Ok("good 1\ndefault-stream \"a b\"");
    const auto error = [](const std::string& word) {
        return ServiceServer::Ok("error \"" + word + "\"\ngood 1\ndefault-stream x");
    };
    const std::string patch = ServiceServer::Ok("good 1\npatch-control-file https://h/c");
    const struct {
        const char* what;
        std::string streamCheck;
        std::string streamFile;
        int code;
        bool hasStream = false; ///< a stream is remembered: only its file is asked for
    } cases[] = {
        {"patch on the default stream", ok, patch, 1},
        {"patch on a stream that was remembered", "", patch, 1, true},
        {"up to date", ok, error("no-patches-available"), 0},
        {"up to date on a stream that was remembered", "", error("no-patches-available"), 0, true},
        {"account didn't arrive", error("login_details_not_received"), "", 2},
        {"wrong account", error("invalid-myrollstock-details"), "", 3},
        {"no streams", error("no-patch-streams"), "", 3},
        {"no products", error("no-products-owned"), "", 3},
        {"odd error of the check", error("odd"), "", 2},
        {"check not good", ServiceServer::Ok("default-stream a"), "", 2},
        {"no default stream", ServiceServer::Ok("good 1\nstream \"a A\""), "", 3},
        {"odd error of the file", ok, error("invalid-myrollstock-details"), 2},
        {"file not good", ok, ServiceServer::Ok("good 0"), 2},
        {"replies in the wrong order", patch, ok, 3},
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
        EXPECT_EQ(CheckForPatch(account + (one.hasStream ? "stream-id saved" : "")), one.code)
            << one.what;
        const std::string wanted = one.hasStream            ? file("saved")
                                   : one.streamFile.empty() ? asked.substr(0, asked.size() - 1)
                                   : one.streamCheck == ok  ? asked + file("a%20b")
                                                            : asked.substr(0, asked.size() - 1);
        EXPECT_EQ(server.GetRequests(), wanted) << one.what;
    }
    const int before = server.CountConnections();
    EXPECT_EQ(CheckForPatch(account, "nowhere"), 2) << "an installation needs its anchor file too";
    folder.MakeFolder("odd/bin/game.bin");
    EXPECT_EQ(CheckForPatch(account, "odd"), 2);
    EXPECT_EQ(server.CountConnections(), before) << "nobody was asked";

    server.SetReplies(ok, patch);
    const int64_t start = NowMs();
    EXPECT_EQ(CheckForPatch(account), 1);
    const int64_t took = NowMs() - start;
    std::printf("answer to both requests after %d ms\n", static_cast<int>(took));
    EXPECT_LT(took, 3000) << "of which a few handshakes should be all";
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
