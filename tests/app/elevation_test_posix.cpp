// How raised rights are asked for on Linux, with a stand-in for the one that asks.
#include "app/VelPatchElevation.h"
#include "app/VelPatchLaunch.h"
#include "app/VelPatchSystemIntegration.h"
#include "app/config/VelPatchSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class Elevation : public testing::Test {
protected:
    void WriteScript(const std::string& name, const std::string& lines) {
        m_folder.WriteFile(name, "#!/bin/sh\n" + lines);
        m_folder.SetMode(name, 0755);
    }
    bool Start(bool raise) {
        return VelPatchElevation::StartElevated(m_folder.Path("program"), "--a \"b  c\"   d",
                                                m_folder.Path("work"), raise);
    }

    const TempFolder m_folder;
    const ScopedVariable m_path{"PATH", Text(m_folder.Path("bin")) + ":/usr/bin:/bin"};
};

TEST_F(Elevation, HandsOnWhoseScreenAndFilesItIsFor) {
    const ScopedVariable home("HOME", "/home/a b");
    const ScopedVariable data("XDG_DATA_HOME", "");
    const ScopedVariable display("DISPLAY", ":7");
    const ScopedVariable wayland("WAYLAND_DISPLAY", "wayland-3");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/run/user/7");
    const ScopedVariable secret("VELPATCH_TEST", "not handed on by the one who asks");
    m_folder.MakeFolder("work");
    WriteScript("program",
                "printf '%s|' \"$HOME\" \"$XDG_DATA_HOME\" \"$DISPLAY\" "
                "\"$WAYLAND_DISPLAY\" \"$VELPATCH_TEST\" \"$PWD\" \"$@\" > out\nexit 3\n");
    // Takes its time, as its user does.
    WriteScript("bin/pkexec", "sleep 0.2\nexec env -i \"$@\"\n");
    const std::string words = Text(m_folder.Path("work")) + "|--a|b  c|d|";
    for (const bool raise : {false, true}) {
        EXPECT_TRUE(Start(raise));
        VelPatchElevation::WaitForStarted();
        EXPECT_EQ(m_folder.ReadFile("work/out"),
                  raise ? "/home/a b||:7|/run/user/7/wayland-3||" + words
                        : "/home/a b||:7|wayland-3|not handed on by the one who asks|" + words);
    }
    VelPatchElevation::WaitForStarted();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "nobody is left behind";
}

TEST_F(Elevation, TellsWhatDoesNotStart) {
    m_folder.MakeFolder("work");
    WriteScript("program", "echo > out\n");
    for (const char* refusal : {"exit 126\n", "sleep 0.1\nexit 127\n"}) {
        WriteScript("bin/pkexec", refusal);
        EXPECT_FALSE(Start(true)) << refusal;
    }
    m_folder.SetMode("program", 0644);
    EXPECT_FALSE(Start(false));
    EXPECT_FALSE(m_folder.Has("work/out"));
}

// A system's administrator may write anywhere, so this works as somebody else.
TEST_F(Elevation, KnowsWhereRightsAreMissing) {
    const passwd* user = getpwnam("nobody");
    const bool isRaised = geteuid() == 0;
    if (isRaised && user == nullptr) {
        GTEST_SKIP() << "needs a user";
    }
    for (const char* folder : {"mine/deep", "theirs/mine"}) {
        m_folder.MakeFolder(folder);
    }
    m_folder.SetMode("theirs", 0555);
    EXPECT_EQ(VelPatchElevation::MayWrite(m_folder.Path("theirs")), isRaised);
    if (isRaised) {
        ASSERT_EQ(chown(m_folder.Path("mine").GetData(), user->pw_uid, user->pw_gid), 0);
        ASSERT_EQ(chown(m_folder.Path("theirs/mine").GetData(), user->pw_uid, user->pw_gid), 0);
        ASSERT_EQ(seteuid(user->pw_uid), 0);
    }
    const bool canEnter = euidaccess((Text(m_folder.Path("mine")) + "/deep").c_str(), X_OK) == 0;
    std::string may;
    for (const char* path : {"mine", "mine/new/game", "theirs", "theirs/new/game", "theirs/mine"}) {
        may += VelPatchElevation::MayWrite(m_folder.Path(path)) ? "y" : "n";
    }
    if (isRaised) {
        ASSERT_EQ(seteuid(0), 0);
    }
    m_folder.SetMode("theirs", 0755);
    if (!canEnter) {
        GTEST_SKIP() << "only its owner may go to " << Text(m_folder.Path());
    }
    EXPECT_EQ(may, "yynny");
}

TEST_F(Elevation, HandsOnARequestToEnd) {
    m_folder.MakeFolder("work");
    // Long after the wait has begun.
    WriteScript("program", "trap 'echo ended > out; exit' TERM\nsleep 0.3\nkill -TERM $PPID\n"
                           "while :; do sleep 0.01; done\n");
    ASSERT_TRUE(Start(false));
    VelPatchElevation::WaitForStarted();
    EXPECT_EQ(m_folder.ReadFile("work/out"), "ended\n");
}

TEST_F(Elevation, LaunchesProgramsAndOpensTheRest) {
    const std::string out = " > '" + Text(m_folder.Path("out")) + "'\n";
    WriteScript("bin/xdg-open", "echo \"$@\"" + out);
    WriteScript("game/bin/run", "pwd" + out);
    m_folder.WriteFile("game/start.html", "page");
    const auto wait = [&](const CXString& text) {
        for (int i = 0; i < 1000 && m_folder.ReadFile("out") != Text(text) + "\n"; i++) {
            CXSleep(10);
        }
        EXPECT_EQ(m_folder.ReadFile("out"), Text(text) + "\n");
    };
    LaunchTarget(m_folder.Path("game"), "bin/run");
    wait(m_folder.Path("game/bin"));
    LaunchTarget(m_folder.Path("game"), "start.html");
    wait(m_folder.Path("game/start.html"));
    OpenAddress("https://help.example/a?b=c");
    wait("https://help.example/a?b=c");
}

// The administrator's files in a user's folders would keep the user out of them.
TEST_F(Elevation, FilesOfTheUserStayTheUsers) {
    const passwd* user = getpwnam("nobody");
    if (geteuid() != 0 || user == nullptr) {
        GTEST_SKIP() << "needs an administrator and a user";
    }
    m_folder.MakeFolder("home/data");
    for (const char* folder : {"home", "home/data"}) {
        ASSERT_EQ(chown(m_folder.Path(folder).GetData(), user->pw_uid, user->pw_gid), 0);
    }
    const ScopedVariable data("XDG_DATA_HOME", Text(m_folder.Path("home/data")));
    const ScopedVariable config("XDG_CONFIG_HOME", Text(m_folder.Path("home")));
    const ScopedVariable desktop("XDG_DESKTOP_DIR", Text(m_folder.Path("home/desk")));
    SaveSettings(VelPatchSettings(), "bundle", "/game");
    VelPatchRegistry::Platform().SetNumber(VelPatchRegistryRoot::CurrentUser, "A", "b", 1);
    VelPatchConfiguration configuration;
    configuration.targetPath = m_folder.Path("game");
    configuration.startMenuShortcutFolder = "maker/game";
    configuration.shortcutFilename = "Game.lnk";
    CreateShortcutsAndUninstallList(configuration, VelPatchProcessSettings());
    std::string files;
    for (const auto& [path, entry] : m_folder.Tree("home")) {
        struct stat info = {};
        ASSERT_EQ(lstat(m_folder.Path("home/" + path).GetData(), &info), 0);
        EXPECT_EQ(info.st_uid, user->pw_uid) << path;
        files += entry.type == 'f' ? path + " " : "";
    }
    EXPECT_EQ(files, "data/applications/maker/game/Game.desktop data/bundle/velpatch-settings.dat "
                     "data/velpatch-registry.dat desk/Game.desktop ");
}

} // namespace
