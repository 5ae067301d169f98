// Removing what a patch run installed.
#include "patch/DeleteWithAutoRetry.h"
#include "patch/UninstallList.h"
#include "patch/VelPatchTask_Uninstall.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/patch/PatchScenario.h"
#include "tests/support/FaultFileDriver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

/// A game that the apply task installed, and its shortcuts outside.
class Uninstall : public testing::Test {
protected:
    Uninstall() {
        SetUninstallRetryPause(1);
        m_world.WriteTarget({});
        m_world.WritePatch({CreateFileOp("bin/game.exe", "program"),
                            CreateFileOp("data/deep/level.pak", std::string(5000, 'l')),
                            CreateFolderOp("saves"), CreateFileOp("readme.txt", "read")});
        EXPECT_TRUE(m_world.Run().Finished());
        m_world.WriteFile("menu/Game.lnk", "a");
        m_world.WriteFile("desktop/Game.lnk", "b");
        m_world.WriteFile("desktop/other.lnk", "c");
    }

    CXResult WriteList(const std::vector<CXString>& paths) {
        return WriteUninstallList(m_world.Text("game"), paths);
    }

    /// Runs to the end; `answers` to the prompts in order, then no. The statuses that were seen.
    std::vector<TaskStatus> Run(std::vector<Answer> answers = {}) {
        VelPatchTask_Uninstall task(" Game 2");
        EXPECT_TRUE(task.Begin(m_world.Text("game")));
        EXPECT_FALSE(task.IsRunning());
        task.Go();
        std::vector<TaskStatus> seen;
        m_prompts = 0;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        do {
            EXPECT_FALSE(std::chrono::steady_clock::now() > end);
            TaskStatus status;
            task.GetStatus(status);
            if (seen.empty() || seen.back().state != status.state) {
                seen.push_back(status);
                if (status.state == kTaskStatePrompt) {
                    EXPECT_FALSE(task.Begin(m_world.Text("elsewhere")));
                    const Answer answer =
                        m_prompts < answers.size() ? answers[m_prompts] : Answer::No;
                    ++m_prompts;
                    if (m_beforeAnswer) {
                        m_beforeAnswer();
                    }
                    if (answer == Answer::Stop) {
                        task.Stop();
                    } else {
                        task.AnswerPrompt(answer == Answer::Retry);
                    }
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } while (task.IsRunning());
        TaskStatus last;
        task.GetStatus(last);
        EXPECT_EQ(last.state, kTaskStateFinished);
        EXPECT_EQ(last.fraction, 1.0F);
        EXPECT_EQ(last.statusText, "Done.");
        EXPECT_NE(seen.front().state, kTaskStateNone) << "a page would think that it has ended";
        seen.push_back(last);
        return seen;
    }

    PatchWorld m_world;
    size_t m_prompts = 0;
    std::function<void()> m_beforeAnswer;
};

std::vector<std::string> EntriesOf(const std::string& bytes) {
    CXStreamStaticBuffer stream(bytes.data(), bytes.size());
    std::vector<std::string> out;
    ReadUninstallList(stream, [&](const CXString& path) { out.emplace_back(path.View()); });
    return out;
}

} // namespace

TEST_F(Uninstall, ShortcutsGoFirstThenTheFolder) {
    const CXString menu = m_world.Text("menu/Game.lnk");
    const CXString desktop = m_world.Text("desktop/Game.lnk");
    EXPECT_EQ(WriteList({}), kCXResultOK);
    EXPECT_FALSE(m_world.Folder().Has("game/uninstall.dat"));
    EXPECT_EQ(WriteList({menu, m_world.Text("gone.lnk"), desktop}), kCXResultOK);
    EXPECT_EQ(WriteList({m_world.Text("desktop/other.lnk")}), kCXResultOK); // the first list wins
    FaultFileDriver driver;
    const ScopedFileDriver use(driver);
    Run();
    EXPECT_EQ(m_prompts, 0U);
    for (const char* gone : {"game", "menu/Game.lnk", "desktop/Game.lnk"}) {
        EXPECT_FALSE(m_world.Folder().Has(gone)) << gone;
    }
    EXPECT_TRUE(m_world.Folder().Has("desktop/other.lnk"));
    std::vector<CXString> removed;
    for (const FileAccess& access : driver.GetLog()) {
        if (access.op == FileOp::RemoveFile && removed.size() < 3) {
            removed.push_back(access.path);
        }
    }
    EXPECT_EQ(removed, (std::vector<CXString>{menu, m_world.Text("gone.lnk"), desktop}));
    EXPECT_TRUE(driver.FindOutside({m_world.Text("game"), m_world.Text("gone.lnk"), menu, desktop})
                    .empty());
}

TEST_F(Uninstall, NeverFollowsALink) {
    m_world.WriteFile("outside/dear.txt", "dear");
    m_world.WriteFile("outside/folder/deep.txt", "deep");
    const TempFolder& folder = m_world.Folder();
    if (!folder.MakeLink("game/out", "../outside") ||
        !folder.MakeLink("game/saves/file", "../../outside/dear.txt") ||
        !folder.MakeLink("game/data/nothing", "nowhere") ||
        !folder.MakeLink("link.lnk", "outside/dear.txt")) {
        GTEST_SKIP() << "this system makes no links";
    }
    const TreeSnapshot before = folder.Tree("outside");
    ASSERT_EQ(WriteList({m_world.Text("link.lnk"), m_world.Text("outside/folder")}), kCXResultOK);
    Run();
    EXPECT_FALSE(folder.Has("game"));
    EXPECT_FALSE(folder.Has("link.lnk"));
    EXPECT_EQ(folder.Tree("outside"), before);

    // The target itself is a link: only that goes.
    folder.MakeLink("game", "outside");
    Run();
    EXPECT_FALSE(folder.Has("game"));
    EXPECT_EQ(folder.Tree("outside"), before);
}

TEST_F(Uninstall, WhatCannotBeDeletedIsRetriedOnceSilentlyThenAsked) {
    const struct {
        const char* name;
        uint64_t failing; // deletions of the file that fail
        std::vector<Answer> answers;
        size_t prompts;
        bool isGone;
    } cases[] = {
        {"busy for a moment", 1, {}, 0, true},
        {"a prompt, and good", 2, {Answer::Retry}, 1, true},
        {"two prompts", 3, {Answer::Retry, Answer::Retry}, 2, true},
        {"refused", 99, {Answer::Retry, Answer::No}, 2, false},
        {"stopped", 99, {Answer::Stop}, 1, false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        m_world.WriteFile("game/bin/game.exe", "program");
        m_world.WriteFile("game/readme.txt", "read");
        FaultFileDriver driver;
        driver.Fail(FileFault::Busy, 1, one.failing, FileOp::RemoveFile, "game.exe");
        const ScopedFileDriver use(driver);
        const std::vector<TaskStatus> seen = Run(one.answers);
        EXPECT_EQ(m_prompts, one.prompts);
        EXPECT_EQ(m_world.Folder().Has("game"), !one.isGone);
        EXPECT_FALSE(m_world.Folder().Has("game/readme.txt")) << "as much as possible goes";
        for (const TaskStatus& status : seen) {
            const bool isAsked = status.state == kTaskStatePrompt;
            if (isAsked || status.state == kTaskStateBusy) {
                EXPECT_EQ(status.statusText, "Uninstalling Game 2");
                EXPECT_EQ(status.failureTitle, isAsked ? "Failed to delete some files." : "");
                EXPECT_EQ(status.failureDetail, isAsked ? "Result -9." : "");
            }
        }
    }
}

TEST_F(Uninstall, ATargetThatIsGoneIsAskedAbout) {
    m_world.Folder().Remove("game");
    m_beforeAnswer = [&] { m_world.Folder().MakeFolder("game"); };
    Run({Answer::Retry});
    EXPECT_EQ(m_prompts, 1U);
    EXPECT_FALSE(m_world.Folder().Has("game"));
}

TEST(DeleteWithAutoRetry, BusyFilesGetTenTries) {
    const uint32_t earlier = SetDeleteRetryPause(1);
    TempFolder folder;
    for (const uint64_t busy : {0U, 9U, 10U}) {
        folder.WriteFile("f", "x");
        FaultFileDriver driver;
        driver.Fail(FileFault::Busy, 1, busy, FileOp::RemoveFile);
        const ScopedFileDriver use(driver);
        std::vector<CXString> log;
        EXPECT_EQ(DeleteWithAutoRetry(folder.Path("f"),
                                      [&](const CXString& line) { log.push_back(line); }),
                  busy == 10 ? kCXResultInUse : kCXResultOK);
        ASSERT_EQ(log.size(), busy);
        EXPECT_TRUE(log.empty() ||
                    log.back() == CXString::Format("DeleteWithAutoRetry> node busy while deleting "
                                                   "'%s' (retry: %d)",
                                                   folder.Path("f").GetData(), busy - 1));
    }
    SetDeleteRetryPause(earlier);
}

TEST(UninstallList, DamageEndsTheList) {
    const std::string version = BigEndian(0, 4);
    const std::string longPath = "/" + std::string(300, 'p');
    const struct {
        const char* name;
        std::string bytes;
        std::vector<std::string> entries;
    } cases[] = {
        {"no version", "\0", {}},
        {"version alone", version, {}},
        {"entries of both lengths",
         version + StreamString("/a") + StreamString(longPath) + StreamString(""),
         {"/a", longPath, ""}},
        {"another version", BigEndian(1, 4) + StreamString("/a"), {}},
        {"cut text", version + StreamString("/a") + StreamString("/bcd").substr(0, 3), {"/a"}},
        {"cut length", version + StreamString("/a") + "\xFF" + BigEndian(0, 2), {"/a"}},
        {"beyond the end", version + "\xFF" + BigEndian(0x10000000, 4) + StreamString("/a"), {}},
        {"impossible", version + "\xFF" + BigEndian(0xFFFFFFFF, 4) + StreamString("/a"), {}},
        {"longer than a path", version + StreamString(std::string(0x20001, '/')), {}},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(EntriesOf(one.bytes), one.entries) << one.name;
    }
    TempFolder folder;
    ASSERT_EQ(WriteUninstallList(folder.Path(), {"/a", CXString(longPath)}), kCXResultOK);
    EXPECT_EQ(folder.ReadFile("uninstall.dat"),
              version + StreamString("/a") + StreamString(longPath));
    FaultFileDriver driver;
    driver.Fail(FileFault::Full, 1, 99, FileOp::Write);
    const ScopedFileDriver use(driver);
    folder.Remove("uninstall.dat");
    EXPECT_EQ(WriteUninstallList(folder.Path(), {"/a"}), kCXResultNoResources);
    EXPECT_EQ(WriteUninstallList(folder.Path("absent"), {"/a"}), kCXResultNotFound);
}
