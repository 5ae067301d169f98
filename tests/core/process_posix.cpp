// What CXFileSystem asks of the environment and the process table.
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace fs = CXFileSystem;

namespace {

/// Sets (or unsets) an environment variable for a scope.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const CXString& value) : m_name(name) {
        const char* earlier = getenv(name);
        m_earlier = earlier == nullptr ? "" : earlier;
        SetTestEnvironment(name, value.GetData());
    }
    ~ScopedVariable() { SetTestEnvironment(m_name, m_earlier); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const char* m_name;
    std::string m_earlier; ///< empty: not set
};

std::string WaitForFile(const TempFolder& temp, const char* name, size_t size) {
    for (int i = 0; i < 1000 && temp.ReadFile(name).size() < size; ++i) {
        CXSleep(10);
    }
    return temp.ReadFile(name);
}

} // namespace

TEST(ProcessPosix, KnownFoldersFollowTheEnvironment) {
    TempFolder temp;
    const ScopedVariable home("HOME", temp.Path());
    const ScopedVariable config("XDG_CONFIG_HOME", "relative");
    const ScopedVariable desktop("XDG_DESKTOP_DIR", "");
    const ScopedVariable tmp("TMPDIR", "/var/tmp/");
    EXPECT_EQ(fs::GetTempPath(), "/var/tmp");
    {
        const ScopedVariable data("XDG_DATA_HOME", "");
        EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::LocalAppData), temp.Path(".local/share"));
        EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::StartMenu),
                  temp.Path(".local/share/applications"));
        EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::ProgramFiles), temp.Path(".local/share"));
    }
    const ScopedVariable data("XDG_DATA_HOME", temp.Path("data/"));
    EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::LocalAppData), temp.Path("data"));
    EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::Desktop), temp.Path("Desktop"));
    temp.WriteFile(".config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n");
    EXPECT_EQ(fs::GetKnownFolder(fs::KnownFolder::Desktop), temp.Path("Schreibtisch"));
}

TEST(ProcessPosix, LaunchPassesArgumentsAndLeavesNoChild) {
    TempFolder temp;
    ASSERT_EQ(fs::Launch("/bin/sh", {"-c", "printf '%s|' \"$PWD\" \"$@\" > out", "sh", "a b", "$x"},
                         temp.Path()),
              kCXResultOK);
    const std::string expected = temp.Path().GetData() + std::string("|a b|$x|");
    EXPECT_EQ(WaitForFile(temp, "out", expected.size()), expected);
    EXPECT_EQ(fs::Launch(temp.Path("none"), {}, CXString()), kCXResultNotFound);
    EXPECT_EQ(fs::Launch("/bin/sh", {"-c", "true"}, temp.Path("none")), kCXResultNotFound);
    EXPECT_EQ(fs::Launch(temp.Path(), {}, CXString()), kCXResultAccessDenied);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(fs::OpenURL("--version"), kCXResultInvalidArgument);
}

TEST(ProcessPosix, APipeInTheTargetBlocksNobody) {
    TempFolder temp;
    ASSERT_EQ(mkfifo(temp.Path("pipe").GetData(), 0600), 0);
    CXFileDriver& driver = CXFileDriver::Platform();
    CXFileHandle file = kCXNoFile;
    ASSERT_EQ(driver.Open(temp.Path("pipe"), CXFileOpen(), file), 0U);
    char byte = 0;
    uint64_t done = 1;
    EXPECT_EQ(driver.Read(file, &byte, 1, done), 0U);
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(driver.Close(file), 0U);
}
