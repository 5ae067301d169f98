// Relaunching: the decision, the copy, and real processes through all stages.
#include "app/VelPatchElevation.h"
#include "app/VelPatchRelaunch.h"
#include "app/config/VelPatchCommandLine.h"
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "tests/support/Environment.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

namespace {

using Step = VelPatchRelaunchStep;

TEST(Relaunch, Decision) {
    const CXString outside = "C:/Patch/velpatch.exe";
    const CXString inside = "c:/GAMES/rowan/bin/velpatch.exe";
    const struct {
        int32_t stage;
        bool haveData;
        bool uninstall;
        CXString program;
        Step step;
    } cases[] = {
        {-1, true, false, outside, Step::Relaunch},
        {0, true, false, outside, Step::Relaunch},
        {0, false, true, inside, Step::Relaunch},
        {1, true, false, outside, Step::GoOn},
        {1, true, false, "C:/Games/Rowan.exe", Step::GoOn},
        {1, true, false, "C:/Games/Rowan", Step::GoOn},
        {1, true, false, inside, Step::CopyAndRelaunch},
        {1, true, true, outside, Step::CopyAndRelaunch},
        {1, false, false, outside, Step::CopyAndRelaunch},
        {2, false, true, inside, Step::GoOn},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(
            DecideRelaunch(one.stage, one.haveData, one.uninstall, one.program, "C:/Games/Rowan"),
            one.step)
            << one.stage << one.haveData << one.uninstall << Text(one.program);
    }
}

TEST(Relaunch, Arguments) {
    VelPatchProcessSettings settings;
    EXPECT_EQ(Text(MakeRelaunchArguments(settings, "X", false)),
              "--target \"X\" --escalationstage 1 --start   ");
    settings.escalationStage = 1;
    settings.createDesktopShortcut = false;
    settings.uninstall = true;
    settings.launchTargetOnExit = true;
    EXPECT_EQ(Text(MakeRelaunchArguments(settings, "C:/a b", true)),
              "--target \"C:/a b\" --escalationstage 2 --start --no-desktop-shortcut --uninstall "
              "--selfdeleteonexit --launchtargetonexit");
}

/// A system on which nothing is started.
class RecordingSystem : public VelPatchRelaunchSystem {
public:
    CXString GetProgramPath() override { return program; }
    CXString GetTempFolder() override { return temporary; }
    CXString GetVolumeRoot(const CXString& path) override {
        return path == temporary ? temporaryRoot : CXString("/target");
    }
    uint32_t GetRandomNumber() override { return 0xBEEF; }
    bool StartElevated(const CXString& file, const CXString& arguments, const CXString& folder,
                       const CXString& target) override {
        EXPECT_TRUE(GetProcessSettings().relaunched) << "its command line would be taken";
        started = Row(file, arguments, folder, target);
        return works;
    }

    CXString program;
    CXString temporary;
    CXString temporaryRoot = "/target";
    bool works = true;
    std::string started;
};

class RelaunchCopy : public testing::Test {
protected:
    RelaunchCopy() {
        m_settings.escalationStage = 1;
        m_settings.launchTargetOnExit = true;
        m_folder.WriteFile("disk/game/velpatch.exe", "program");
        m_folder.SetMode("disk/game/velpatch.exe", 0755);
        m_folder.WriteFile("disk/game/data/deep/text.txt", "text");
        m_folder.WriteFile("disk/game/readme.txt", "not taken along");
        m_folder.WriteFile(std::string("disk/game/") + kCompanion, "library");
        m_system.program = m_folder.Path("disk/game/velpatch.exe");
        m_system.temporary = m_folder.Path("tmp/new");
    }
    ~RelaunchCopy() override {
        CXFileDriver::SetCurrent(nullptr);
        m_settings.escalationStage = 0;
        m_settings.launchTargetOnExit = false;
        m_settings.relaunched = false;
        m_settings.quitRequested = false;
    }

    /// The message; "" for a relaunch.
    std::string Run() {
        const VelPatchRelaunchOutcome outcome =
            RelaunchIfNeeded(m_folder.Path("disk/game"), true, m_system);
        const bool isDone = outcome.result == VelPatchRelaunchResult::Relaunched;
        EXPECT_EQ(isDone, outcome.message.IsEmpty());
        EXPECT_EQ(m_settings.relaunched, isDone);
        EXPECT_EQ(m_settings.quitRequested, isDone);
        EXPECT_EQ(m_settings.launchTargetOnExit, !isDone);
        return Text(outcome.message);
    }
    /// What is at a path below the folder, with "%" in a text standing for it.
    std::string Fill(const std::string& text) const {
        std::string filled;
        for (const char byte : text) {
            filled += byte == '%' ? Text(m_folder.Path()) : std::string(1, byte);
        }
        return filled;
    }

    static inline const char* const kCompanion =
        CXFileSystem::HasWindowsPaths() ? "libssl-1_1-x64.dll" : "libssl.so.3";
    const TempFolder m_folder;
    RecordingSystem m_system;
    VelPatchProcessSettings& m_settings = GetProcessSettings();
};

TEST_F(RelaunchCopy, GoesToTheTargetsVolume) {
    const struct {
        const char* temporaryRoot;
        const char* taken; ///< made before
        const char* copy;  ///< folder of the copy
    } cases[] = {
        {"/target", "tmp", "tmp/new/velpatch"},
        {"/target", "tmp/new/velpatch", "tmp/new/0000beef_velpatch"},
        {"/other", "tmp", "disk/velpatch"},
        {"", "tmp", "disk/velpatch"},
    };
    for (const auto& one : cases) {
        m_folder.Remove("tmp");
        m_folder.MakeFolder(one.taken);
        m_folder.Remove("disk/velpatch");
        m_system.temporaryRoot = one.temporaryRoot;
        m_settings.launchTargetOnExit = true;
        m_settings.relaunched = false;
        m_settings.quitRequested = false;
        EXPECT_EQ(Run(), "");
        const std::string copy = std::string("%/") + one.copy;
        EXPECT_EQ(m_system.started,
                  Fill(copy +
                       "/velpatch.exe|--target \"%/disk/game\" --escalationstage 2 --start "
                       "  --selfdeleteonexit --launchtargetonexit|" +
                       copy + "|%/disk/game"));
        TreeSnapshot tree = m_folder.Tree("disk/game");
        tree.erase("readme.txt");
        EXPECT_EQ(m_folder.Tree(one.copy), tree);
    }
}

TEST_F(RelaunchCopy, Failures) {
    const struct {
        const char* taken; ///< folder made before
        uint32_t operation;
        const char* path; ///< part of the path that fails
        const char* message;
    } cases[] = {
        {"tmp/new/0000beef_velpatch", 0, "",
         "Unable to copy installation data to target disk (path in use.)"},
        {"tmp/new", FileOp::MakeDirectory, "velpatch",
         "Unable to create installation data temp folder. (result: -10, dst: "
         "'%/tmp/new/velpatch')"},
        {"tmp", FileOp::OpenWrite, "text.txt",
         "Unable to copy installation data to target disk. (result: -10, src: '%/disk/game/data', "
         "dst: '%/tmp/new/velpatch/data')"},
        {"tmp", FileOp::Write, kCompanion,
         "Unable to copy installation data to target disk. (result: -10, src: '%/disk/game/#', "
         "dst: '%/tmp/new/velpatch/#')"},
    };
    for (const auto& one : cases) {
        m_folder.Remove("tmp");
        m_folder.MakeFolder(one.taken);
        if (one.operation == 0) {
            m_folder.WriteFile("tmp/new/velpatch", "taken");
        }
        FaultFileDriver driver;
        driver.Fail(FileFault::Denied, 1, one.operation == 0 ? 0 : 1, one.operation, one.path);
        CXFileDriver::SetCurrent(&driver);
        std::string message = Fill(one.message);
        for (size_t at = 0; (at = message.find('#')) != std::string::npos;) {
            message.replace(at, 1, kCompanion);
        }
        EXPECT_EQ(Run(), message);
        CXFileDriver::SetCurrent(nullptr);
    }
    EXPECT_TRUE(m_folder.Has("tmp/new/velpatch/data/deep/text.txt")) << "the partial copy stays";
    EXPECT_EQ(m_system.started, "");

    m_folder.Remove("tmp");
    m_system.works = false;
    EXPECT_EQ(Run(), Fill("Unable to relaunch '%/tmp/new/velpatch/velpatch.exe' with necessary "
                          "permissions"));
}

/// What a process of a real run says of itself.
void Report(const CXString& line) {
    const VelPatchProcessSettings& process = GetProcessSettings();
    const std::string path = Text(process.target) + "/stages.txt";
    std::ofstream(path, std::ios::app | std::ios::binary)
        << process.escalationStage << " " << Text(line) << "\n";
}

/// The system's own, but for the rights, which a variable decides.
class StageSystem : public VelPatchRelaunchSystem {
public:
    bool StartElevated(const CXString& program, const CXString& arguments, const CXString& folder,
                       const CXString& /*target*/) override {
        const bool raise = std::getenv("VELPATCH_TEST_RAISE") != nullptr &&
                           GetProcessSettings().escalationStage == 0;
        return VelPatchElevation::StartElevated(program, arguments, folder, raise);
    }
};

} // namespace

// Not a test: what a copy of this program does in each stage.
TEST(Stage, DISABLED_Run) {
    const std::vector<std::string> words = testing::internal::GetArgvs();
    ASSERT_TRUE(ParseCommandLine(std::vector<CXString>(words.begin(), words.end())));
    StageSystem system;
    const VelPatchProcessSettings& process = GetProcessSettings();
    const VelPatchRelaunchOutcome outcome = RelaunchIfNeeded(process.target, true, system);
    if (outcome.result == VelPatchRelaunchResult::Relaunched) {
        VelPatchElevation::WaitForStarted();
        return;
    }
    CXStringEdit line(outcome.message);
    line.Append(CXFileSystem::GetModulePath());
    line.Append(CXFileSystem::Exists("data/text.txt") ? " with data" : "");
    line.Append(process.startImmediately ? " start" : "");
    line.Append(process.selfDeleteOnExit ? " selfdelete" : "");
    line.Append(process.uninstall ? " uninstall" : "");
    line.Append(process.createDesktopShortcut ? "" : " no shortcut");
    line.Append(process.launchTargetOnExit ? " launch" : "");
    Report(line.ToString());
}

TEST(Relaunch, RealProcessesThroughAllStages) {
    const TempFolder folder;
    const CXString own = CXFileSystem::GetModulePath();
    const std::string suffix = CXFileSystem::HasWindowsPaths() ? ".exe" : "";
    folder.MakeFolder("a game");
    folder.WriteFile("a game/data/text.txt", "text");
    const CXString program = folder.Path("a game/velpatch" + suffix);
    ASSERT_EQ(CXFileSystem::CopyFile(own, program, false), kCXResultOK);
    folder.MakeFolder("tmp");
    folder.WriteFile("bin/pkexec", "#!/bin/sh\necho \"$@\" > '" + Text(folder.Path("asked")) +
                                       "'\nexec \"$@\"\n");
    folder.SetMode("bin/pkexec", 0755);
    const ScopedVariable filter("GTEST_FILTER", "Stage.*");
    const ScopedVariable disabled("GTEST_ALSO_RUN_DISABLED_TESTS", "1");
    const ScopedVariable shards("GTEST_TOTAL_SHARDS", "");
    const ScopedVariable shard("GTEST_SHARD_INDEX", "");
    const ScopedVariable output("GTEST_OUTPUT", "");
    const ScopedVariable tmp("TMP", Text(folder.Path("tmp")));
    const ScopedVariable temp("TEMP", Text(folder.Path("tmp")));
    const ScopedVariable tmpdir("TMPDIR", Text(folder.Path("tmp")));
    const ScopedVariable search("PATH", (suffix.empty() ? Text(folder.Path("bin")) + ":" : "") +
                                            std::getenv("PATH"));
    const ScopedVariable raise("VELPATCH_TEST_RAISE", suffix.empty() ? "1" : "");

    EXPECT_EQ(RunProgram(program, {"--target", folder.Path("a game"), "--uninstall",
                                   "--launchtargetonexit", "--no-desktop-shortcut"}),
              0);
    // Only on Linux do stages wait for each other; elsewhere a program that runs can't be deleted.
    const CXString copy = folder.Path("tmp/velpatch/velpatch" + suffix);
    for (int i = 0; !suffix.empty() && i < 3000 &&
                    (folder.ReadFile("a game/stages.txt").empty() ||
                     CXFileSystem::DeleteFile(copy) != kCXResultOK);
         i++) {
        CXSleep(10);
    }
    // Both folders lie on one volume.
    EXPECT_EQ(folder.ReadFile("a game/stages.txt"),
              "2 " + Text(copy) + " with data start selfdelete uninstall no shortcut launch\n");
    EXPECT_EQ(folder.Has("asked"), suffix.empty());
}
