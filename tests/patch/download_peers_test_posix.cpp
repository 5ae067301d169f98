// Whole runs of a patch with control and data file on nginx.
#include "core/CXTime.h"
#include "runtime/CXRuntime.h"
#include "tests/patch/PatchScenario.h"
#include "tests/support/WebPeers_posix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

namespace {

/// The patch on the server, whose root the program trusts.
class WebDownload : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_peers.isUp);
        std::mt19937 random(3);
        m_contents.resize(3000000);
        std::generate(m_contents.begin(), m_contents.end(),
                      [&] { return static_cast<char>(random()); });
        const TestOperation create = CreateFileOp("f.bin", m_contents);
        m_data = Deflated(RecordsOf({create}));
        m_peers.WriteFile("control.txt",
                          ControlTextOf({create}, "datafilesize " + std::to_string(m_data.size()) +
                                                      "\ndatafilechecksum " + MD5Of(m_data) +
                                                      "\n"));
        std::filesystem::copy(m_peers.Folder() + "/root.crt",
                              m_world.Path("product/program/data/openssl.crt"));
        m_world.WriteTarget({});
        m_world.controlURI = CXURI(m_peers.Https("/control.txt"));
    }

    const CXRuntimeScope m_runtime;
    WebPeers m_peers;
    PatchWorld m_world;
    std::string m_contents;
    std::string m_data;
};

} // namespace

TEST_F(WebDownload, RangesDecideWhatBecomesOfARetry) {
    const struct {
        const char* path;
        std::vector<std::string> results; // of the prompts
        bool finished;
    } cases[] = {{"/data.bin", {"-7", "-12"}, false}, {"/chunked/data.bin", {"-7"}, true}};
    for (const auto& one : cases) {
        // The page that says "not found" stays in the file, so the retry asks for what is behind
        // it.
        std::filesystem::remove(m_peers.Folder() + "/www/data.bin");
        m_world.dataURI = CXURI(m_peers.Https(one.path));
        size_t count = 0;
        m_world.onPrompt = [&](const TaskStatus& status) {
            EXPECT_EQ(
                std::string(status.failureDetail.GetData()).find("Result: " + one.results[count]),
                0U);
            m_peers.WriteFile("data.bin", m_data);
            return ++count < 2 ? Answer::Retry : Answer::No;
        };
        const RunResult result = m_world.Run();
        EXPECT_EQ(result.Finished(), one.finished) << result.log;
        EXPECT_EQ(count, one.results.size());
        EXPECT_FALSE(m_world.Folder().Has("patch.bin"));
        EXPECT_EQ(m_world.ReadFile("game/f.bin") == m_contents, one.finished);
    }
}

TEST_F(WebDownload, AServerThatDiesGetsThreeTriesAndOnePrompt) {
    m_peers.WriteFile("data.bin", m_data);
    m_world.dataURI = CXURI(m_peers.Http("/slow/data.bin"));
    std::thread killer;
    m_world.atReady = [&](VelPatchTask_ApplyFilePatches& task) {
        task.Go();
        killer = std::thread([&] {
            std::error_code error;
            while (!(std::filesystem::file_size(m_world.Path("patch.bin"), error) > 0) || error) {
                CXSleep(1);
            }
            m_peers.KillServer();
        });
    };
    const RunResult result = m_world.Run();
    killer.join();
    EXPECT_TRUE(result.Failed());
    ASSERT_EQ(result.prompts.size(), 1U);
    EXPECT_EQ(result.prompts[0].failureDetail.Left(11), "Result: -3.");
    EXPECT_FALSE(m_world.Folder().Has("patch.bin"));
    EXPECT_TRUE(m_world.ReadTarget().empty());
}
