// Whole runs of a patch whose data file, and sometimes its control file, come from a server that
// plays a script.
#include "core/CXLocalisation.h"
#include "core/CXTime.h"
#include "patch/TransferStatus.h"
#include "runtime/CXRuntime.h"
#include "tests/patch/PatchScenario.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

const std::string kPrefix = "VelPatchTask_ApplyFilePatches::DownloadPatchData> ";
const Tree kBefore = {{"old.txt", "old"}};
const Tree kAfter = {{"old.txt", "old"}, {"f.bin", std::string(3000, 'f')}};

/// A patch whose data file is served.
class Download : public testing::Test {
protected:
    Download() {
        m_world.WriteTarget(kBefore);
        m_world.WritePatch({CreateFileOp("f.bin", kAfter.at("f.bin"))});
        m_data = m_world.ReadFile("data.bin");
        m_extra = "datafilesize " + std::to_string(m_data.size()) + "\ndatafilechecksum " +
                  MD5Of(m_data) + "\n";
        m_world.WritePatch({CreateFileOp("f.bin", kAfter.at("f.bin"))}, m_extra);
        m_world.Folder().Remove("data.bin");
    }

    static std::string Reply(const std::string& status, const std::string& body, size_t length) {
        return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" +
               body;
    }
    std::string Whole() const { return Reply("200 OK", m_data, m_data.size()); }
    std::string Cut() const {
        return Reply("200 OK", m_data.substr(0, m_data.size() / 2), m_data.size());
    }

    /// Runs with the data's address on the server, with credentials that no text may show.
    RunResult Run(const ScriptedServer& server) {
        m_world.dataURI = CXURI(server.GetAddress("/data?u=you&p=secret"));
        m_world.dataURI.user = "me";
        m_world.dataURI.password = "secret";
        const RunResult result = m_world.Run();
        EXPECT_FALSE(result.LogHas("secret")) << result.log;
        // "bWU6c2VjcmV0": the same in a header.
        EXPECT_FALSE(result.LogHas("bWU6")) << result.log;
        EXPECT_FALSE(m_world.Folder().Has("patch.bin")) << "a partial file was left";
        EXPECT_EQ(m_world.ReadTarget(), result.Finished() ? kAfter : kBefore);
        return result;
    }

    const CXRuntimeScope m_runtime;
    PatchWorld m_world;
    std::string m_data;
    std::string m_extra;
};

} // namespace

TEST_F(Download, EveryTroubleOfTheLineEndsInAGoodFileOrInAPrompt) {
    const std::string whole = Whole();
    const std::string cut = Cut();
    const std::string half = std::to_string(m_data.size() / 2);
    const std::string part = "HTTP/1.1 206 Part\r\nContent-Range: bytes " + half + "-" +
                             std::to_string(m_data.size() - 1) + "/" +
                             std::to_string(m_data.size()) + "\r\n\r\n" +
                             m_data.substr(m_data.size() / 2);
    const std::string longer(m_data.size() + 9, 'x');
    std::string flipped = m_data;
    flipped.back() = static_cast<char>(flipped.back() ^ 1);
    const char* const wrongSize = "$velpatch_task_install_failed_wrong_size";
    const struct {
        const char* name;
        std::vector<std::string> replies; // each on a connection of its own
        std::vector<int> prompts;         // the result that each tells; answered by retry, the
        bool finished;                    // last by no unless the run is to finish
        const char* title = "";           // of the failure, other than a prompt
    } cases[] = {
        {"whole at once", {whole}, {}, true},
        {"cut, then a server without ranges", {cut, whole}, {}, true},
        {"cut, then a server with ranges", {cut, part}, {-12}, false},
        {"ranges, and again ranges", {cut, part, part}, {-12, -12}, false},
        {"cut three times", {cut, cut, cut}, {-3}, false},
        {"a retry after three", {cut, cut, cut, whole}, {-3}, true},
        {"nothing comes at all", {"", "", ""}, {-3}, false},
        {"no such file yet", {Reply("404 No", "none", 4), whole}, {-7}, true},
        {"a longer page of the refusal stays", // and the size tells
         {Reply("500 No", longer, longer.size()), whole},
         {-5},
         false,
         wrongSize},
        {"another length", {Reply("200 OK", longer, longer.size())}, {}, false, wrongSize},
        {"another byte",
         {Reply("200 OK", flipped, flipped.size())},
         {},
         false,
         "$velpatch_task_installation_data_checksum"},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer::Script script;
        for (const std::string& reply : one.replies) {
            script.push_back({reply});
        }
        ScriptedServer server(script);
        m_world.WriteTarget(kBefore);
        m_world.Folder().Remove("game/f.bin");
        size_t count = 0;
        const bool endsWithNo = !one.finished && one.title[0] == '\0';
        m_world.onPrompt = [&](const TaskStatus&) {
            return ++count == one.prompts.size() && endsWithNo ? Answer::No : Answer::Retry;
        };
        const RunResult result = Run(server);
        EXPECT_EQ(result.Finished(), one.finished) << result.log;
        ASSERT_TRUE(result.ended);
        ASSERT_EQ(result.prompts.size(), one.prompts.size());
        for (size_t i = 0; i < one.prompts.size(); ++i) {
            const TaskStatus& prompt = result.prompts[i];
            EXPECT_EQ(prompt.failureTitle, "$velpatch_task_failed_to_download_installation_data");
            const std::string port = std::to_string(server.GetPort());
            EXPECT_EQ(prompt.failureDetail,
                      CXString("Result: " + std::to_string(one.prompts[i]) + ". Path: '" +
                               m_world.Path("patch.bin").generic_string() +
                               "'. URL: 'http://***@127.0.0.1:" + port + "/data?u=***&p=***'"));
            EXPECT_TRUE(result.LogHas(kPrefix + "failed to download installation data\n**DETAILS:\n"
                                                "Result: "));
            EXPECT_TRUE(result.LogHas("**DEBUG:\nGET /data?u=***&p=*** HTTP/1.1\n"));
        }
        if (one.title[0] != '\0') {
            EXPECT_EQ(result.status.failureTitle, one.title);
        }
        const std::vector<std::string> requests = server.GetRequests();
        ASSERT_EQ(requests.size(), one.replies.size());
        for (size_t i = 1; i < requests.size(); ++i) {
            // The size of what came before is where the next one asks to go on.
            const bool isEmpty = one.replies[i - 1].empty();
            EXPECT_EQ(requests[i].find("Range: bytes=") == std::string::npos, isEmpty);
            EXPECT_TRUE(one.replies[i - 1] != cut ||
                        requests[i].find("Range: bytes=" + half + "-\r\n") != std::string::npos);
        }
    }
}

TEST_F(Download, ControlAndDataComeByAddress) {
    const std::string control = m_world.ReadFile("control.txt");
    m_world.Folder().Remove("control.txt");
    ScriptedServer server({{Reply("200 OK", control, control.size())}, {Whole()}});
    m_world.controlURI = CXURI(server.GetAddress("/control"));
    m_world.atReady = [&](VelPatchTask_ApplyFilePatches& task) {
        EXPECT_EQ(server.GetRequests().size(), 1U) << "data before the user's go";
        task.Go();
    };
    EXPECT_TRUE(Run(server).Finished());
}

TEST_F(Download, AStopEndsAStalledTransferInTimeAndTriesNoMore) {
    for (const std::string& start : {std::string(), Cut()}) {
        ScriptedServer server({{start, ScriptedServer::kStall}, {Whole()}});
        std::thread stopper;
        std::atomic<int64_t> stopped{0};
        m_world.atReady = [&](VelPatchTask_ApplyFilePatches& task) {
            task.Go();
            stopper = std::thread([&] {
                while (server.GetRequests().empty()) {
                    CXSleep(1);
                }
                CXSleep(50); // into the read that stalls
                stopped = CXTime::GetCurrentTime();
                task.Stop();
            });
        };
        const RunResult result = Run(server);
        EXPECT_LE(CXTime::GetCurrentTime() - stopped, 600);
        stopper.join();
        EXPECT_TRUE(result.Failed());
        EXPECT_TRUE(result.prompts.empty());
        EXPECT_TRUE(result.LogHas("Deleting downloaded installation data file."));
        EXPECT_EQ(server.GetRequests().size(), 1U);
    }
}

TEST_F(Download, TroubleWithTheLocalFile) {
    const char* const open = "$velpatch_task_failed_to_open_output_file";
    const char* const download = "$velpatch_task_failed_to_download_installation_data";
    const struct {
        const char* name;
        FileFault fault;
        uint64_t first, last; // calls that fail
        uint32_t operations;
        std::vector<std::string> replies;
        std::vector<std::pair<const char*, const char*>> prompts; // titles and results
    } cases[] = {
        // The first opening is the one that makes the unique name.
        {"full", FileFault::Full, 1, 1, FileOp::Write, {Whole(), Whole()}, {{download, "-6"}}},
        {"no opening", FileFault::Denied, 2, 2, FileOp::OpenWrite, {Whole()}, {{open, "-10"}}},
        {"no opening for the rest",
         FileFault::Denied,
         3,
         3,
         FileOp::OpenWrite,
         {Reply("404 No", "none", 4), Whole()},
         {{download, "-7"}}},
        {"no opening of any kind",
         FileFault::Denied,
         3,
         4,
         FileOp::OpenWrite,
         {Reply("404 No", "none", 4), Whole()},
         {{download, "-7"}, {open, "-10"}}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        ScriptedServer::Script script;
        for (const std::string& reply : one.replies) {
            script.push_back({reply});
        }
        ScriptedServer server(script);
        m_world.Folder().Remove("game/f.bin");
        m_world.onPrompt = [](const TaskStatus&) { return Answer::Retry; };
        FaultFileDriver driver;
        driver.Fail(one.fault, one.first, one.last, one.operations, "patch.bin");
        const ScopedFileDriver use(driver);
        const RunResult result = Run(server);
        EXPECT_TRUE(result.Finished()) << result.log;
        ASSERT_EQ(result.prompts.size(), one.prompts.size()) << result.log;
        for (size_t i = 0; i < one.prompts.size(); ++i) {
            EXPECT_EQ(result.prompts[i].failureTitle, one.prompts[i].first);
            EXPECT_EQ(std::string(result.prompts[i].failureDetail.GetData())
                          .find(std::string("Result: ") + one.prompts[i].second + ". Path: "),
                      0U)
                << result.prompts[i].failureDetail.GetData();
        }
        EXPECT_EQ(server.GetRequests().back().find("Range"), std::string::npos);
        EXPECT_EQ(result.LogHas(kPrefix + "failed to open output file for resume. deleting\n"),
                  one.first == 3);
    }
}

TEST_F(Download, TheTextShowsTheSizeWhileItRuns) {
    SetLocalisedString("$velpatch_task_downloading_installation_data_mib", "$1 MiB");
    SetLocalisedString("$velpatch_task_downloading_installation_data_gib", "$1 GiB");
    const struct {
        const char* size;
        const char* text;
    } cases[] = {{"1", "1 MiB"},
                 {"1048577", "2 MiB"},
                 {"0", "0 MiB"},
                 {"1073741823", "1024 MiB"},
                 {"1073741824", "1.0 GiB"},
                 {"1664299828", "1.6 GiB"}};
    for (const auto& one : cases) {
        m_world.WritePatch({}, std::string("datafilesize ") + one.size + "\n");
        ScriptedServer server({{Reply("404 No", "", 0)}});
        const RunResult result = Run(server);
        ASSERT_EQ(result.prompts.size(), 1U);
        EXPECT_EQ(result.prompts[0].statusText, one.text);
    }
    ClearLocalisedStrings();
}

TEST(TransferStatus, RateAndTimeLeftAtTheirBorders) {
    for (const char* key : {"rate_kib", "rate_mib", "hours_remain", "minutes_remain"}) {
        SetLocalisedString(CXString::Format("$velpatch_task_%s", key),
                           CXString::Format("|%s $1", key));
    }
    for (const char* key : {"hour_remain", "minute_remain", "seconds_remain"}) {
        SetLocalisedString(CXString::Format("$velpatch_task_%s", key),
                           CXString::Format("|%s", key));
    }
    // A fraction that is a power of two leaves the time exact: elapsed * (1 / fraction - 1).
    constexpr uint64_t kKiB = 1024;
    const struct {
        int64_t elapsedMs;
        uint64_t bytes;
        float fraction;
        bool unknown;
        const char* text;
    } cases[] = {
        {5000, 1 << 30, 0.5F, false, "base"},
        {-60000, 1 << 30, 0.5F, false, "base"}, // the clock was set back
        {5001, 0, 0.5F, false, "base|rate_kib 0|seconds_remain"},
        {10000, 5120 * kKiB, 0.0F, false, "base|rate_kib 512"},
        {10000, 5120 * kKiB + 1, 0.0F, false, "base|rate_mib 0.5"},
        {10000, 5130 * kKiB, 0.0F, false, "base|rate_mib 0.5"},
        {10000, 5119 * kKiB, 0.5F, true, "base|rate_kib 511"},
        {10000, 15360 * kKiB, 0.0F, true, "base|rate_mib 1.5"},
        {59000, 0, 0.5F, false, "base|rate_kib 0|seconds_remain"},
        {59001, 0, 0.5F, false, "base|rate_kib 0|minute_remain"},
        {89999, 0, 0.5F, false, "base|rate_kib 0|minute_remain"},
        {90000, 0, 0.5F, false, "base|rate_kib 0|minutes_remain 2"},
        {3540000, 0, 0.5F, false, "base|rate_kib 0|minutes_remain 59"},
        {3540001, 0, 0.5F, false, "base|rate_kib 0|hour_remain"},
        {5399999, 0, 0.5F, false, "base|rate_kib 0|hour_remain"},
        {5400000, 0, 0.5F, false, "base|rate_kib 0|hours_remain 2"},
        {10000, 0, 1.0F, false, "base|rate_kib 0|seconds_remain"},
        {10000, UINT64_MAX, 1e-44F, false, "base|rate_mib 1759218604441.6|hours_remain 1000000000"},
    };
    for (const auto& one : cases) {
        CXStringEdit text(absl::string_view("base"));
        const uint8_t unknown = one.unknown ? 1 : 0;
        AppendTransferStatus({1000, one.fraction, unknown, one.bytes, 0}, 1000 + one.elapsedMs,
                             text);
        EXPECT_EQ(text.View(), one.text);
    }
    ClearLocalisedStrings();
}
