// The real program beside a running instance.
#include "app/VelPatchEntry.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXTime.h"
#include "net/CXSSLContext.h"
#include "runtime/CXRuntime.h"
#include "runtime/CXThread.h"
#include "tests/app/InstanceWindow.h"
#include "tests/support/Environment.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

namespace {

/// Waits until a file holds the text; gives what it held at last.
std::string WaitForText(const TempFolder& folder, const char* file, const std::string& text) {
    for (int i = 0; i < 3000 && folder.ReadFile(file) != text; ++i) {
        CXSleep(10);
    }
    return folder.ReadFile(file);
}

void WriteText(const CXString& path, const std::string& text) {
    std::ofstream(path.GetData(), std::ios::binary) << text;
}

} // namespace

// Not a test: what a copy of this program does as the first instance. It runs the way that the
// player's program does, with a window that writes what it knows into the file "state", until there
// is a file "quit".
TEST(FirstInstance, DISABLED_Run) {
    const CXString folder = CXFileSystem::GetApplicationFolder();
    int raised = 0;
    VelPatchEntryHooks hooks;
    hooks.runApplication = [&](const std::function<void()>&) {
        WriteText(CXFileSystem::Join(folder, "started"),
                  std::string(CXRuntime::IsStarted() ? "runtime " : "") +
                      (CXThread::IsMainThread() ? "main thread " : "") +
                      (CXFileSystem::GetCurrentDirectory() == folder ? "folder " : "") +
                      Text(GetLocalisedString("$velpatch_exit")));
        VelPatchHandOverReceiver receiver({nullptr, [&raised] { ++raised; }});
        InstanceWindow window(receiver);
        std::string written;
        for (int i = 0; i < 6000 && !CXFileSystem::Exists(CXFileSystem::Join(folder, "quit"));
             ++i) {
            window.Pump();
            const VelPatchProcessSettings& process = GetProcessSettings();
            const std::string state = Row(process.target, process.startImmediately ? "start" : "",
                                          std::to_string(raised));
            if (state != written) {
                WriteText(CXFileSystem::Join(folder, "state"), state);
                written = state;
            }
            CXSleep(10);
        }
    };
    const int exitCode = RunVelPatch({{"first", "--target", "game"}, "unused"}, hooks);
    WriteText(CXFileSystem::Join(folder, "ended"),
              std::to_string(exitCode) + (CXRuntime::IsStarted() ? " still up" : ""));
}

TEST(TwoInstances, HandOverInRealProcesses) {
    const TempFolder folder;
    const CXString own = CXFileSystem::GetModulePath();
    const std::string suffix = own.Right(4) == ".exe" ? ".exe" : "";
    const CXString built = CXFileSystem::Join(CXFileSystem::GetParent(own), "velpatch" + suffix);
    const CXString program = folder.Path("velpatch" + suffix);
    ASSERT_EQ(CXFileSystem::CopyFile(built, program, false), kCXResultOK);
    // Images are compared over the shorter length, so this one is the same program.
    const CXString first = folder.Path("velpatch" + suffix + "-first" + suffix);
    ASSERT_EQ(CXFileSystem::CopyFile(own, first, false), kCXResultOK);
    folder.WriteFile("data/patch-config.txt",
                     "locales\n{\nen\n{\n\"$velpatch_exit\" Leave\n}\n}\n");

    EXPECT_EQ(RunProgram(program, {"--checkforpatch"}), 2) << "no target";

    // The copy runs its one case, whatever share of the cases falls to this process.
    SetTestEnvironment("GTEST_TOTAL_SHARDS", "");
    SetTestEnvironment("GTEST_SHARD_INDEX", "");
    ASSERT_EQ(CXFileSystem::Launch(first,
                                   {"--gtest_filter=FirstInstance.*",
                                    "--gtest_also_run_disabled_tests", "--gtest_brief=1"},
                                   folder.Path()),
              kCXResultOK);
    const std::string game = Text(folder.Path("game"));
    ASSERT_EQ(WaitForText(folder, "state", game + "||0"), game + "||0");
    EXPECT_EQ(folder.ReadFile("started"), "runtime main thread folder Leave");

    const CXString other = folder.Path("other \xC3\xA4 game");
    EXPECT_EQ(RunProgram(program, {"--target", other, "--start"}), 0);
    std::string state = Text(other) + "|start|1";
    EXPECT_EQ(WaitForText(folder, "state", state), state);
    EXPECT_EQ(RunProgram(program, {}), 0) << "a second double-click";
    state = Text(other) + "|start|2";
    EXPECT_EQ(WaitForText(folder, "state", state), state);
    EXPECT_EQ(RunProgram(program, {"--checkforpatch", "--target", folder.Path("third")}), 2)
        << "does its work itself";

    folder.WriteFile("quit", "");
    EXPECT_EQ(WaitForText(folder, "ended", "0"), "0");
    EXPECT_EQ(folder.ReadFile("state"), state);
}

TEST(ShippedData, HasARoot) {
    CXSSLContext context;
    EXPECT_EQ(context.LoadDefaultVerifyPaths(), kCXResultOK);
}
