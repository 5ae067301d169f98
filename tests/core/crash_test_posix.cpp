#include "core/CXCrash.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {

// Each level writes into its own frame, so the stack is really used.
__attribute__((noinline)) int Exhaust(int depth) {
    volatile char frame[4096];
    frame[depth % 4096] = static_cast<char>(depth);
    return depth < 0 ? 0 : Exhaust(depth + 1) + frame[(depth + 1) % 4096];
}

class Crash : public testing::Test {
protected:
    // For the forked child alone: the handler stays installed for good.
    void Prepare() {
        ::setenv("TMPDIR", m_folder.Path().GetData(), 1);
        CXInstallCrashHandler();
        CXInstallCrashHandler();
    }
    TempFolder m_folder;
};

TEST_F(Crash, LeavesATraceAndDiesOfTheSignal) {
    const std::pair<int, std::string> rows[] = {
        {SIGSEGV, "SIGSEGV"}, {SIGABRT, "SIGABRT"}, {SIGFPE, "SIGFPE"}};
    for (const auto& [signal, name] : rows) {
        EXPECT_EXIT(
            {
                Prepare();
                std::raise(signal);
            },
            testing::KilledBySignal(signal), "");
        const std::string dump = m_folder.ReadFile("crashdump.dmp");
        EXPECT_EQ(dump.find("VelPatch ended by " + name + "\n"), 0u) << dump;
        EXPECT_NE(dump.find("test_core"), std::string::npos) << dump;
        m_folder.Remove("crashdump.dmp");
    }
}

TEST_F(Crash, SurvivesAnExhaustedStack) {
    EXPECT_EXIT(
        {
            Prepare();
            std::exit(Exhaust(1));
        },
        testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EQ(m_folder.ReadFile("crashdump.dmp").substr(0, 26), "VelPatch ended by SIGSEGV\n");
}

} // namespace
