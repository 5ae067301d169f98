#include "app/config/VelPatchCommandLine.h"

#include "core/CXEncoding.h"
#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<CXString> Arguments(const std::vector<std::string>& words) {
    std::vector<CXString> arguments{CXString("program")};
    for (const std::string& word : words) {
        arguments.emplace_back(word.data(), word.size());
    }
    return arguments;
}

std::string Base64(const std::string& text) {
    CXStringEdit edit;
    Base64Encode(text.data(), text.size(), edit);
    return std::string(edit.GetData(), edit.GetLength());
}

TEST(CommandLine, RecordsOptions) {
    const VelPatchOption table[] = {
        {"flag", kOptionNoValue, ""},
        {"next", kOptionNextArgument, ""},
        {"free", kOptionNextFreeArgument, ""},
        {"other", kOptionNextFreeArgument, ""},
        {"many", kOptionNextFreeArgument | kOptionMayRepeat, ""},
        {"x", kOptionNoValue, ""},
        {nullptr, 0, nullptr},
    };
    const struct {
        std::vector<std::string> words;
        std::string recorded; // name=value;...
    } cases[] = {
        {{}, ""},
        {{"--flag"}, "flag=;"},
        {{"--flag", "--flag"}, "flag=;"},
        {{"--Flag", "--unknown", "-", "--", "-u"}, ""},
        {{"--flag=1"}, ""},
        {{"--next", "--flag"}, "next=--flag;"},
        {{"--next"}, "next=;"},
        {{"--next", "a", "--next", "b", "--flag"}, "next=a;flag=;"},
        {{"--free", "a"}, "free=a;"},
        {{"--free", "--flag", "a"}, "free=a;flag=;"},
        {{"--other", "--free", "a", "b", "c"}, "other=a;free=b;"},
        {{"a", "--free", "b"}, "free=b;"}, // nothing waited for the first one
        {{"--free"}, "free=;"},
        {{"--free", "", "b"}, "free=;"}, // an empty one counts
        {{"--many", "a", "--many", "b", "--many"}, "many=a;many=b;many=;"},
        {{"--free", "a", "--free", "b"}, "free=a;"},
        {{"-xrest", "-x"}, "x=rest;"},
        {{"--x"}, "x=;"},
    };
    for (const auto& one : cases) {
        std::string recorded;
        for (const VelPatchRecordedOption& record : RecordOptions(table, Arguments(one.words))) {
            recorded += std::string(record.option->name) + "=" + Text(record.value) + ";";
        }
        EXPECT_EQ(recorded, one.recorded) << testing::PrintToString(one.words);
    }
    const VelPatchOption withUnnamed[] = {{"", kOptionNoValue, ""}, {nullptr, 0, nullptr}};
    const VelPatchRecordedOptions unnamed = RecordOptions(withUnnamed, Arguments({"a", "b"}));
    ASSERT_EQ(unnamed.size(), 1u);
    EXPECT_EQ(Text(unnamed[0].value), "a");
    EXPECT_TRUE(RecordOptions(table, {}).empty());
}

TEST(CommandLine, SplitsAHandedOverLine) {
    const struct {
        const char* line;
        std::vector<std::string> words;
    } cases[] = {
        {"", {}},
        {" \t ", {}},
        {"--target \"C:\\Some Folder\" --start", {"--target", "C:\\Some Folder", "--start"}},
        {"\ta  b\t", {"a", "b"}},
        {"\"a\"b c\"d e", {"a", "b", "c\"d", "e"}},
        {"\"\" x", {"", "x"}},
        {"\"open end", {"open end"}},
        {"\"", {""}},
    };
    for (const auto& one : cases) {
        std::vector<std::string> words;
        for (const CXString& word : SplitCommandLine(one.line)) {
            words.push_back(Text(word));
        }
        EXPECT_EQ(words, one.words) << one.line;
    }
}

/// Runs the whole parsing beside a program folder of its own.
class ParseCommandLineTest : public testing::Test {
protected:
    void SetUp() override {
        m_earlierFolder = CXFileSystem::GetCurrentDirectory();
        CXFileSystem::SetApplicationFolder(folder.Path("app"));
        folder.WriteFile("app/data/patch-config.txt", "application-bundle-id com.example.game\n"
                                                      "patch-anchor-file game.bin\n"
                                                      "installation-id inst-1\n");
        SetSettingsBaseFolder(folder.Path("user"));
        VelPatchCommandLineHooks hooks;
        hooks.checkForPatch = [this](const VelPatchCheckRequest& request) {
            asked.push_back(request);
            return 1;
        };
        hooks.exitProcess = [this](int code) { exits.push_back(code); };
        SetCommandLineHooks(hooks);
        Reset();
    }
    void TearDown() override {
        Reset();
        SetCommandLineHooks({});
        CXFileSystem::SetCurrentDirectory(m_earlierFolder);
        CXFileSystem::SetApplicationFolder(CXString());
        SetSettingsBaseFolder(CXString());
    }

    static void Reset() {
        VelPatchProcessSettings& process = GetProcessSettings();
        process.target.Clear();
        process.locale = "US";
        process.escalationStage = 0;
        process.startImmediately = process.selfDeleteOnExit = false;
        process.streamConfigurationOnly = process.launchTargetOnExit = false;
        process.settingsOverridden = process.uninstall = false;
        process.createDesktopShortcut = true;
    }

    TempFolder folder;
    std::vector<VelPatchCheckRequest> asked;
    std::vector<int> exits;

private:
    CXString m_earlierFolder;
};

TEST_F(ParseCommandLineTest, FillsTheProcessSettings) {
    const VelPatchProcessSettings& process = GetProcessSettings();
    EXPECT_TRUE(ParseCommandLine(Arguments({})));
    EXPECT_EQ(Text(process.locale), "US");
    EXPECT_EQ(process.escalationStage, 0);
    EXPECT_TRUE(process.createDesktopShortcut);

    EXPECT_TRUE(ParseCommandLine(
        Arguments({"--target", "sub/../game/", "--escalationstage", "2", "--start", "--locale",
                   "de\xC3\xA4", "--launchtargetonexit", "--selfdeleteonexit", "--setstream",
                   "--uninstall", "--no-desktop-shortcut"})));
    EXPECT_EQ(process.target, CXFileSystem::Join(folder.Path("app"), "game"))
        << "relative to the program's folder";
    EXPECT_EQ(Text(process.locale), "DE\xC3\xA4");
    EXPECT_EQ(process.escalationStage, 2);
    EXPECT_TRUE(process.startImmediately && process.launchTargetOnExit &&
                process.selfDeleteOnExit && process.streamConfigurationOnly && process.uninstall);
    EXPECT_FALSE(process.createDesktopShortcut);

    // A second line: what a line can't unset stays, the rest follows the new one.
    EXPECT_TRUE(ParseHandedOverCommandLine("--target \"C:\\Some Folder\" --escalationstage x"));
    EXPECT_EQ(Text(process.target), "C:/Some Folder");
    EXPECT_EQ(Text(process.locale), "US");
    EXPECT_EQ(process.escalationStage, 0);
    EXPECT_FALSE(process.startImmediately || process.launchTargetOnExit ||
                 process.selfDeleteOnExit || process.streamConfigurationOnly);
    EXPECT_TRUE(process.uninstall);
    EXPECT_FALSE(process.createDesktopShortcut);
    EXPECT_FALSE(ParseHandedOverCommandLine("  "));
    EXPECT_EQ(Text(process.target), "C:/Some Folder");

    EXPECT_TRUE(ParseCommandLine(Arguments({"--target"})));
    EXPECT_TRUE(process.target.IsEmpty());
    EXPECT_TRUE(exits.empty());
}

TEST_F(ParseCommandLineTest, CheckForPatch) {
    EXPECT_TRUE(ParseCommandLine(Arguments({"--checkforpatch"})));
    EXPECT_EQ(exits, std::vector<int>{2}) << "no target";
    EXPECT_TRUE(asked.empty());
    exits.clear();

    const CXString target = folder.Path("game");
    VelPatchSettings saved;
    saved.username = "anna";
    saved.password = "old";
    SaveSettings(saved, "com.example.game", target);
    const std::vector<CXString> arguments =
        Arguments({"--target", Text(target), "--checkforpatch", "--settings",
                   Base64("password new\nstream-id beta\n")});
    EXPECT_TRUE(ParseCommandLine(arguments));
    EXPECT_EQ(exits, std::vector<int>{1});
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(Text(asked[0].anchorFile), "game.bin");
    EXPECT_EQ(Text(asked[0].bundleId), "com.example.game");
    EXPECT_EQ(Text(asked[0].installationId), "inst-1");
    EXPECT_EQ(asked[0].target, target);
    EXPECT_EQ(Text(asked[0].settings.username), "anna");
    EXPECT_EQ(Text(asked[0].settings.password), "new");
    EXPECT_EQ(Text(asked[0].settings.streamId), "beta");
    EXPECT_TRUE(GetProcessSettings().settingsOverridden);
    LoadSettings(saved, "com.example.game", target);
    EXPECT_EQ(Text(saved.password), "old") << "this run never saves";

    SetCommandLineHooks({nullptr, [this](int code) { exits.push_back(code); }});
    EXPECT_TRUE(ParseCommandLine(arguments));
    EXPECT_EQ(exits.back(), 2) << "nobody to ask";
}

TEST_F(ParseCommandLineTest, SettingsOverrideIsSaved) {
    const std::string encoded = Base64("username bert\nstream-id\n");
    EXPECT_TRUE(ParseCommandLine(Arguments({"--settings", encoded})));
    EXPECT_FALSE(folder.Has("user")) << "without a target it is ignored";

    const CXString target = folder.Path("game");
    VelPatchSettings saved;
    saved.streamId = "beta";
    saved.streamName = "Beta";
    SaveSettings(saved, "com.example.game", target);
    EXPECT_TRUE(ParseCommandLine(Arguments({"--settings", encoded, "--target"})));
    LoadSettings(saved, "com.example.game", target);
    EXPECT_EQ(Text(saved.streamId), "beta") << "the value went to the first option that waited";
    EXPECT_TRUE(ParseCommandLine(Arguments({"--target", Text(target), "--settings", encoded})));
    LoadSettings(saved, "com.example.game", target);
    EXPECT_EQ(Text(saved.username), "bert");
    EXPECT_EQ(Text(saved.streamId), "");
    EXPECT_EQ(Text(saved.streamName), "Beta");
    EXPECT_FALSE(GetProcessSettings().settingsOverridden);
}

} // namespace
