#include "app/config/VelPatchCommandLine.h"

#include "core/CXFileSystem.h"
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

    static bool Parse(const std::vector<std::string>& words) {
        return ParseCommandLine(Arguments(words));
    }
    /// Target, locale, escalation stage and a letter for each flag that is set.
    static std::string Show() {
        const VelPatchProcessSettings& process = GetProcessSettings();
        const std::pair<bool, char> flags[] = {
            {process.startImmediately, 's'},     {process.launchTargetOnExit, 'l'},
            {process.selfDeleteOnExit, 'd'},     {process.streamConfigurationOnly, 'c'},
            {process.settingsOverridden, 'o'},   {process.uninstall, 'u'},
            {process.createDesktopShortcut, 'k'}};
        std::string set;
        for (const auto& [flag, letter] : flags) {
            set += flag ? std::string(1, letter) : "";
        }
        return Row(process.target, process.locale, std::to_string(process.escalationStage), set);
    }
    VelPatchSettings Saved() const {
        VelPatchSettings saved;
        LoadSettings(saved, "com.example.game", folder.Path("game"));
        return saved;
    }
    void Save(const VelPatchSettings& settings) const {
        SaveSettings(settings, "com.example.game", folder.Path("game"));
    }

    TempFolder folder;
    std::vector<VelPatchCheckRequest> asked;
    std::vector<int> exits;

private:
    CXString m_earlierFolder;
};

TEST_F(ParseCommandLineTest, FillsTheProcessSettings) {
    EXPECT_TRUE(Parse({}));
    EXPECT_EQ(Show(), "|US|0|k");
    EXPECT_TRUE(Parse({"--target", "sub/../game/", "--escalationstage", "2", "--start", "--locale",
                       "de\xC3\xA4", "--launchtargetonexit", "--selfdeleteonexit", "--setstream",
                       "--uninstall", "--no-desktop-shortcut"}));
    EXPECT_EQ(Show(), Row(folder.Path("app/game"), "DE\xC3\xA4|2|sldcu"))
        << "relative to the program's folder";
    // A second line: what a line can't unset stays, the rest follows the new one.
    EXPECT_TRUE(ParseHandedOverCommandLine("--target \"C:\\Some Folder\" --escalationstage x"));
    EXPECT_EQ(Show(), "C:/Some Folder|US|0|u");
    EXPECT_FALSE(ParseHandedOverCommandLine("  "));
    EXPECT_EQ(Show(), "C:/Some Folder|US|0|u");
    EXPECT_TRUE(Parse({"--target"}));
    EXPECT_EQ(Show(), "|US|0|u");
    EXPECT_TRUE(exits.empty());
}

TEST_F(ParseCommandLineTest, OddLines) {
    const struct {
        std::vector<std::string> words;
        std::string shown; // "@" is the program's folder
    } cases[] = {
        {{"--target", "-x"}, "|US|0|k"}, // what begins with a dash is no value
        {{"--locale"}, "||0|k"},
        {{"--target", "@/a", "--target", "@/b", "--locale"}, "@/a||0|k"},
        {{"--locale", "--target", "de", "--target", "@/b"}, "@/b|DE|0|k"},
        {{"--escalationstage", "--target", "@/a"}, "|US|0|k"}, // the stage waited first
        {{"stray", "--escalationstage", "-1", "2", "3"}, "|US|2|k"},
        {{"--start=1", "-start", "start", "--Start", "--"}, "|US|0|k"},
    };
    for (auto one : cases) {
        const auto expand = [this](std::string& text) {
            if (const size_t at = text.find('@'); at != std::string::npos) {
                text.replace(at, 1, Text(folder.Path("app")));
            }
        };
        for (std::string& word : one.words) {
            expand(word);
        }
        expand(one.shown);
        Reset();
        EXPECT_TRUE(Parse(one.words));
        EXPECT_EQ(Show(), one.shown) << testing::PrintToString(one.words);
    }
}

TEST_F(ParseCommandLineTest, CheckForPatch) {
    EXPECT_TRUE(Parse({"--checkforpatch"}));
    EXPECT_EQ(exits, std::vector<int>{2}) << "no target";
    EXPECT_TRUE(asked.empty());

    const CXString target = folder.Path("game");
    VelPatchSettings saved;
    saved.username = "anna";
    saved.password = "old";
    Save(saved);
    const std::vector<std::string> words = {"--target", Text(target), "--checkforpatch",
                                            "--settings",
                                            Base64Of("password new\nstream-id beta\n")};
    EXPECT_TRUE(Parse(words));
    ASSERT_EQ(asked.size(), 1u);
    const VelPatchCheckRequest& request = asked[0];
    EXPECT_EQ(Row(request.anchorFile, request.bundleId, request.installationId, request.target),
              Row("game.bin|com.example.game|inst-1", target));
    EXPECT_EQ(Row(request.settings.username, request.settings.password, request.settings.streamId),
              "anna|new|beta");
    EXPECT_TRUE(GetProcessSettings().settingsOverridden);
    EXPECT_EQ(Saved().password, "old") << "this run never saves";

    SetCommandLineHooks({nullptr, [this](int code) { exits.push_back(code); }});
    EXPECT_TRUE(Parse(words));
    EXPECT_EQ(exits, (std::vector<int>{2, 1, 2})) << "nobody to ask";
}

TEST_F(ParseCommandLineTest, SettingsOverrideIsSaved) {
    const std::string encoded = Base64Of("username bert\nstream-id\n");
    EXPECT_TRUE(Parse({"--settings", encoded}));
    EXPECT_FALSE(folder.Has("user")) << "without a target it is ignored";

    VelPatchSettings saved;
    saved.streamId = "beta";
    saved.streamName = "Beta";
    Save(saved);
    EXPECT_TRUE(Parse({"--settings", encoded, "--target"}));
    EXPECT_EQ(Saved().streamId, "beta") << "the value went to the first option that waited";
    EXPECT_TRUE(Parse({"--target", Text(folder.Path("game")), "--settings", encoded}));
    saved = Saved();
    EXPECT_EQ(Row(saved.username, saved.streamId, saved.streamName), "bert||Beta");
    EXPECT_FALSE(GetProcessSettings().settingsOverridden);
}

} // namespace
