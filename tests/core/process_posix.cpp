// What CXFileSystem asks of the environment and the process table.
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = CXFileSystem;

namespace {

std::string WaitForFile(const TempFolder& temp, const char* name, size_t size) {
    for (int i = 0; i < 1000 && temp.ReadFile(name).size() < size; ++i) {
        CXSleep(10);
    }
    return temp.ReadFile(name);
}

} // namespace

TEST(ProcessPosix, KnownFoldersFollowTheEnvironment) {
    TempFolder temp;
    const ScopedVariable home("HOME", temp.Path().GetData());
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
    const ScopedVariable data("XDG_DATA_HOME", temp.Path("data/").GetData());
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

// What an administrator's process does for the user who raised it. Only one can try.
TEST(ProcessPosix, ARaisedProcessLeavesTheUserTheirOwn) {
    const passwd* user = getpwnam("nobody");
    if (geteuid() != 0 || user == nullptr) {
        GTEST_SKIP() << "needs an administrator and a user";
    }
    TempFolder temp;
    for (std::string path = temp.Path().GetData(); path.size() > 1;) {
        path.resize(path.rfind('/'));
        struct stat folder = {};
        if (stat((path + "/").c_str(), &folder) != 0 || (folder.st_mode & S_IXOTH) == 0) {
            GTEST_SKIP() << "only its owner may go through " << path;
        }
    }
    ASSERT_EQ(chown(temp.Path().GetData(), user->pw_uid, user->pw_gid), 0);
    temp.WriteFile("secret", "");
    temp.SetMode("secret", 0600);
    temp.WriteFile("theirs", "");
    EXPECT_EQ(fs::GiveToFolderOwner(temp.Path("theirs")), kCXResultOK);

    const ScopedVariable raised("PKEXEC_UID", std::to_string(user->pw_uid));
    const char* script = "(id -u; id -g; id -G; echo $USER $LOGNAME $PKEXEC_UID; cat secret 2>&1 |"
                         "grep -c denied; echo >> theirs && echo done) > out.new; mv out.new out";
    ASSERT_EQ(fs::Launch("/bin/sh", {"-c", script}, temp.Path()), kCXResultOK);
    const std::string group = std::to_string(user->pw_gid) + "\n";
    EXPECT_EQ(WaitForFile(temp, "out", 1),
              std::to_string(user->pw_uid) + "\n" + group + group + "nobody nobody\n1\ndone\n");
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
