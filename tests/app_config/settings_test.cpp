#include "app/config/VelPatchSettings.h"

#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr char kFile[] = "user/com.example.game/velpatch-settings.dat";

/// All saved fields in one line.
std::string Show(const VelPatchSettings& settings) {
    return Row(settings.username, settings.password, settings.streamId, settings.streamName,
               settings.patchControlFile, settings.patchDataFile);
}

VelPatchSettings Sample() {
    VelPatchSettings settings;
    settings.username = "anna";
    settings.password = "p\"w\r\n";
    settings.streams["id"] = "not saved";
    settings.streamId = "beta";
    settings.streamName = "B\xC3\xA9ta";
    settings.patchControlFile = "https://host/c";
    settings.patchDataFile = "https://host/d";
    return settings;
}

class Settings : public testing::Test {
protected:
    void SetUp() override { SetSettingsBaseFolder(folder.Path("user")); }
    void TearDown() override { SetSettingsBaseFolder(CXString()); }

    static VelPatchSettings Load(const char* target) {
        VelPatchSettings settings = Sample(); // must not shine through
        LoadSettings(settings, "com.example.game", target);
        EXPECT_TRUE(settings.streams.empty());
        return settings;
    }

    /// A settings file whose one record has this value.
    void WriteRecord(const std::string& value) const {
        folder.WriteFile(kFile, "\"/game\" \"" + value + "\"\r"); // none holds a quote
    }

    TempFolder folder;
};

TEST_F(Settings, RecordsOfSeveralTargets) {
    EXPECT_EQ(Show(Load("/game")), "|||||") << "no file yet";
    SaveSettings(Sample(), "com.example.game", "/game");
    VelPatchSettings other;
    other.username = "bert";
    SaveSettings(other, "com.example.game", "/other");
    EXPECT_EQ(Show(Load("/game")), Show(Sample()));
    EXPECT_EQ(Show(Load("/other")), "bert|||||");
    EXPECT_EQ(Show(Load("")), "|||||");
    LoadSettings(other, "com.example.second", "/game");
    EXPECT_EQ(Show(other), "|||||") << "another product, another file";
    EXPECT_FALSE(folder.Has(std::string(kFile) + ".tmp"));
    EXPECT_FALSE(folder.Has(std::string(kFile) + ".abku"));
    const unsigned mode = folder.GetMode(kFile);
    EXPECT_TRUE(mode == 0600 || mode == 0) << "for its owner alone, where modes exist";

    // The file is text; a value is the version word and Base64 of the strings.
    SaveSettings(VelPatchSettings(), "com.example.game", "/game");
    const std::string expected = std::string("\"/game\" \"\0\0\0\1AAAAAAAA\"\r", 23);
    EXPECT_EQ(folder.ReadFile(kFile).substr(0, expected.size()), expected);
}

TEST_F(Settings, KeysOfTargets) {
    const std::pair<const char*, const char*> cases[] = {
        {"C:\\Games\\Foo\\", "c:/games/foo"},
        {"c:/games/foo", "c:/games/foo"},
        {"C:/Games/x/../\xC3\x9Cnit//", "c:/games/\xC3\x9Cnit"},
        {"/Games/./Foo/", "/games/foo"},
        {"/", ""},
        {"C:\\", "c:"},
    };
    for (const auto& [target, key] : cases) {
        EXPECT_EQ(Text(SettingsKeyOfTarget(target)), key) << target;
    }
    SaveSettings(Sample(), "com.example.game", "C:\\Games\\Foo\\");
    EXPECT_EQ(Show(Load("c:/games/foo")), Show(Sample()));
}

TEST_F(Settings, RecordForms) {
    const auto string = [](const std::string& text) {
        return std::string(1, static_cast<char>(text.size())) + text;
    };
    const std::string four = string("a") + string("b") + string("c") + string("d");
    const std::string version0("\0\0\0\0", 4);
    const std::string version1("\0\0\0\1", 4);
    const std::string longForm("\xFF\0\0\1\0", 5);
    const struct {
        const char* what;
        std::string value;
        std::string shown;
    } cases[] = {
        {"first version", version0 + Base64Of(four + string("e") + string("f")), "a|b|c|d||"},
        {"second version", version1 + Base64Of(four + string("e") + string("f")), "a|b|c|d|e|f"},
        {"later version", std::string("\0\0\0\2", 4) + Base64Of(four), "|||||"},
        {"top bit of the version", std::string("\x80\0\0\0", 4) + Base64Of(four), "|||||"},
        {"short version", std::string("\0\0\0", 3), "|||||"},
        {"no body", version1, "|||||"},
        {"cut body", version1 + Base64Of(four), "a|b|c|d||"},
        {"cut string", version1 + Base64Of(string("a") + "\x05xy"), "a|||||"},
        {"blanks in the body",
         version1 + " " + Base64Of(four).substr(0, 3) + "\n\t" + Base64Of(four).substr(3),
         "a|b|c|d||"},
        {"bad Base64", version1 + "AW=x", "|||||"},
        {"open group", version1 + "AWE", "|||||"},
        {"long string", version0 + Base64Of(longForm + std::string(256, 'x') + string("b")),
         std::string(256, 'x') + "|b||||"},
        {"false length", version1 + Base64Of(std::string("\xFF\x7F\0\0\0", 5) + "abc" + four),
         "|||||"},
        {"forbidden length", version1 + Base64Of("\xFF\xFF\xFF\xFF\xFF" + four), "|||||"},
    };
    for (const auto& one : cases) {
        WriteRecord(one.value);
        EXPECT_EQ(Show(Load("/GAME/")), one.shown) << one.what;
    }
    folder.WriteFile(kFile, std::string("\0\xFF}{\"", 5));
    EXPECT_EQ(Show(Load("/game")), "|||||");

    // Where the length of a text changes its form.
    for (const size_t length : {254u, 255u, 5000u}) {
        VelPatchSettings settings;
        settings.streamName = CXString(std::string(length, 'n').c_str());
        SaveSettings(settings, "com.example.game", "/game");
        EXPECT_EQ(Load("/game").streamName.GetLength(), length);
    }
}

TEST_F(Settings, InterruptedReplaceIsRecovered) {
    SaveSettings(Sample(), "com.example.game", "/game");
    const std::string old = folder.ReadFile(kFile);
    folder.WriteFile(std::string(kFile) + ".abku", old);
    folder.Remove(kFile);
    EXPECT_EQ(Show(Load("/game")), Show(Sample()));
    EXPECT_TRUE(folder.Has(kFile));
    EXPECT_FALSE(folder.Has(std::string(kFile) + ".abku"));

    // Whatever call fails, once or from then on, the old or the new record is there afterwards, and
    // that of the other target in any case.
    VelPatchSettings changed = Sample();
    changed.username = "bert";
    for (const bool forever : {false, true}) {
        uint64_t failed = 0;
        for (uint64_t call = 1;; ++call) {
            SaveSettings(Sample(), "com.example.game", "/game");
            SaveSettings(changed, "com.example.game", "/other");
            FaultFileDriver driver;
            driver.Fail(FileFault::Denied, call, forever ? ~0ULL : call, FileOp::All);
            CXFileDriver* const earlier = CXFileDriver::SetCurrent(&driver);
            SaveSettings(changed, "com.example.game", "/game");
            CXFileDriver::SetCurrent(earlier);
            const std::string now = Show(Load("/game"));
            EXPECT_TRUE(now == Show(Sample()) || now == Show(changed)) << call << ": " << now;
            EXPECT_EQ(Show(Load("/other")), Show(changed)) << call << (forever ? " and on" : "");
            if (driver.CountFaults() == 0) {
                EXPECT_EQ(now, Show(changed));
                break;
            }
            ++failed;
        }
        EXPECT_GT(failed, 8u);
    }
}

TEST_F(Settings, DamagedFilesKeepTheRecordsOfOthers) {
    SaveSettings(Sample(), "com.example.game", "/other");
    const std::string good = folder.ReadFile(kFile);
    const std::string later = std::string("\"/newer\" \"\0\0\0\x09not ours\"\r", 24);
    const struct {
        const char* what;
        std::string contents;
    } cases[] = {
        {"bytes before", std::string("\xFF\0\x01 }odd\r", 9) + good},
        {"closing braces before", "}\r/third x\r} }\r" + good},
        {"bytes behind", good + std::string("\0{{{\"", 5)},
        {"an open folder behind", good + "\r\"/game\" {\r"},
        {"a closing brace behind", good + "}\rx y\r"},
        {"numbers for values", "\"/game\" 12\r/third 1.5\r" + good},
        {"our record given up", good + "\"/game\" `WHITEOUT`\r"},
        {"record of a later version", later + good},
    };
    for (const auto& one : cases) {
        folder.WriteFile(kFile, one.contents);
        EXPECT_EQ(Show(Load("/game")), "|||||") << one.what;
        SaveSettings(Sample(), "com.example.game", "/game");
        EXPECT_EQ(Show(Load("/game")), Show(Sample())) << one.what;
        EXPECT_EQ(Show(Load("/other")), Show(Sample())) << one.what;
    }
    EXPECT_EQ(folder.ReadFile(kFile).substr(0, later.size()), later) << "carried byte for byte";

    // A backup that can't be taken back holds the only records.
    folder.WriteFile(std::string(kFile) + ".abku", good);
    folder.Remove(kFile);
    FaultFileDriver driver;
    driver.Fail(FileFault::Busy, 1, 1, FileOp::Rename);
    CXFileDriver* const earlier = CXFileDriver::SetCurrent(&driver);
    SaveSettings(Sample(), "com.example.game", "/game");
    CXFileDriver::SetCurrent(earlier);
    EXPECT_EQ(Show(Load("/other")), Show(Sample()));
}

TEST_F(Settings, Override) {
    const std::pair<std::string, const char*> cases[] = {
        {Base64Of("username \"new one\"\npassword 12\nstream-id gamma"), "new one|12|gamma"},
        {Base64Of("username\nstream-id `WHITEOUT`\nother x"), "|p\"w\r\n|"},
        {Base64Of("deeper { username x\n}"), "anna|p\"w\r\n|beta"},
        {"no Base64!", "anna|p\"w\r\n|beta"},
        {"", "anna|p\"w\r\n|beta"},
    };
    for (const auto& [text, shown] : cases) {
        VelPatchSettings settings = Sample();
        ApplySettingsOverride(settings, CXString(text.c_str()));
        EXPECT_EQ(Row(settings.username, settings.password, settings.streamId), shown);
        EXPECT_EQ(settings.streams.size(), 1u);
    }
}

} // namespace
