#include "app/config/VelPatchConfiguration.h"

#include "app/config/VelPatchLanguage.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXLanguages.h"
#include "core/CXLocalisation.h"
#include "net/CXURI.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<CXString> List(const std::vector<const char*>& texts) {
    return std::vector<CXString>(texts.begin(), texts.end());
}

TEST(SelectLanguage, PicksTheMostWantedName) {
    const struct {
        std::vector<const char*> configured;
        std::vector<const char*> preferred;
        const char* picked;
    } cases[] = {
        {{"en", "de-DE"}, {"fr-FR", "de-DE"}, "de-DE"},
        {{"en", "de-DE"}, {"fr-FR"}, "en"},
        {{"de-DE", "fr-FR"}, {"es-ES"}, "de-DE"},
        {{"de-DE", "fr-FR"}, {}, "de-DE"},
        {{"de", "en"}, {"de-DE"}, "en"}, // whole names are compared
        {{"de"}, {"DE"}, "de"},
        {{"fr-FR", "DE-de"}, {"de-DE", "fr-FR"}, "DE-de"}, // the system's order counts
        {{"de_DE"}, {"de-DE"}, "de-DE"},
        {{"en_US"}, {}, "en-US"}, // under its changed name, which the file doesn't hold
        {{"", "deXDE"}, {}, "de-DE"},
        {{"fil_PH", "en"}, {"fil-PH"}, "fil-PH"},
        {{"zh-Hans"}, {"zh-Hans"}, "zh-Hans"},
        {{"EN", "fr"}, {}, "EN"},
        {{""}, {"de"}, ""},
        {{}, {"de"}, ""},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(Text(SelectLanguage(List(one.configured), List(one.preferred))), one.picked)
            << testing::PrintToString(one.configured);
    }
}

TEST(FileURIOfPath, FormsOfPaths) {
    const std::pair<const char*, const char*> cases[] = {
        {"/opt/a b/\xC3\xBC", "file:///opt/a%20b/%c3%bc"},
        {"//server/share/x", "file://server/share/x"},
        {"C:/Games/x", "file:///C%3a/Games/x"},
        {"data/x", ""},
        {"", ""},
    };
    for (const auto& [path, uri] : cases) {
        EXPECT_EQ(Text(FileURIOfPath(path)), uri);
        if (*uri != 0) {
            EXPECT_EQ(Text(CXURI(uri).ToFilePath()), path) << "there and back";
        }
    }
}

class Configuration : public testing::Test {
protected:
    void SetUp() override {
        CXFileSystem::SetApplicationFolder(folder.Path("app"));
        OverridePreferredLanguages(List({"de-DE"}));
        Reset();
    }
    void TearDown() override {
        folder.Remove("app");
        LoadApplicationConfiguration(); // leaves no tree behind for other tests
        Reset();
        OverridePreferredLanguages(std::nullopt);
        CXFileSystem::SetApplicationFolder(CXString());
    }
    static void Reset() {
        ClearLocalisedStrings();
        GetProcessSettings().launchTargetOnExit = false;
        GetProcessSettings().uninstall = false;
    }

    void Load(const std::string& text) const {
        folder.WriteFile("app/data/patch-config.txt", text);
        ClearLocalisedStrings();
        LoadApplicationConfiguration();
    }

    bool Apply() { return ApplyConfiguration(configuration, settings, title); }
    std::string Show() const {
        return Row(configuration.anchorFile, configuration.bundleId, configuration.installationId,
                   configuration.installationFolderName, configuration.anchorChecksum,
                   configuration.offlineDescription, configuration.startMenuShortcutFolder,
                   configuration.shortcutFilename);
    }
    /// Title, addresses, and what kind of copy this is.
    std::string Outcome() const {
        return Row(title, settings.patchControlFile, settings.patchDataFile,
                   std::string(configuration.isOffline ? "offline " : "") +
                       (configuration.isInstallation ? "installation " : "") +
                       (GetProcessSettings().launchTargetOnExit ? "launch " : ""));
    }

    TempFolder folder;
    VelPatchConfiguration configuration;
    VelPatchSettings settings;
    CXString title;
};

TEST_F(Configuration, TextsOfTheChosenLanguage) {
    const std::string file = "product-name Game\n"
                             "locales\n{\n"
                             "en\n{\n\"$hello\" \"Hello $1\"\n\"$only\" English\n}\n"
                             "de-DE {\"$hello\" \"Hallo\r\n$1\r\"\n\"$hello\" \"Tag\r\n$1\r\"\n}\n"
                             "fr_FR {\"$hello\" Bonjour\n}\n"
                             "}\n";
    Load(file);
    EXPECT_EQ(Text(FormatLocalisedString("$hello", "du")), "Tag\ndu\n");
    EXPECT_EQ(Text(GetLocalisedString("$only")), "$only") << "a missing text shows as its key";

    OverridePreferredLanguages(List({"fr-FR"}));
    Load(file);
    EXPECT_EQ(Text(GetLocalisedString("$hello")), "$hello") << "no \"fr-FR\" in the file";
    OverridePreferredLanguages(List({}));
    Load(file);
    EXPECT_EQ(Text(GetLocalisedString("$hello")), "Hello $1");
    for (const char* without : {"", "locales x", "locales {\n}", "product-name Game"}) {
        Load(without);
        EXPECT_EQ(Text(GetLocalisedString("$hello")), "$hello") << without;
    }
}

TEST_F(Configuration, FieldsOfAPatcher) {
    Load("patch-anchor-file bin/game.exe\n"
         "application-bundle-id com.example.game\n"
         "installation-id inst\n"
         "patch-anchor-checksum 0123456789abcdef0123456789abcdef\n"
         "patch-data-file data.bin\n"
         "patch-is-installation 1\n"
         "registry-edits {0 {key x\n}\n1 {key y\n}\n}\n"
         "start-menu-shortcut-folder \"My Games\"\n"
         "shortcut-filename Game\n"
         "product-name \"The Game\"\n"
         "locales {en {\"$velpatch_window_name\" \"$1 Patcher\"\n}\n}\n");
    settings.patchControlFile = "https://host/control";
    settings.patchDataFile = "https://host/data";
    configuration.anchorChecksum = "kept";
    ASSERT_TRUE(Apply());
    EXPECT_EQ(Show(), "bin/game.exe|com.example.game|inst|untitled.app|kept||My Games|Game")
        << "a checksum is taken by offline copies only";
    EXPECT_EQ(Outcome(), "The Game Patcher|https://host/control|https://host/data|")
        << "a number is no truth value";
    EXPECT_EQ(configuration.registryEdits, GetConfigurationRoot()->Get("registry-edits"));
    EXPECT_EQ(configuration.registryEdits->GetChildCount(), 2u);

    // An uninstall turns any copy into an offline installer, but after its fields were read.
    GetProcessSettings().uninstall = true;
    ASSERT_TRUE(Apply());
    EXPECT_EQ(Outcome(), "$velpatch_window_name_install_offline|https://host/control|"
                         "https://host/data|offline installation ");
}

TEST_F(Configuration, OfflineCopiesAndInstallers) {
    const std::string offline =
        "patch-control-file \"control 1.txt\"\n"
        "patch-anchor-checksum abc\n"
        "installation-folder-name game.app\n"
        "locales {en {\"$velpatch_offline_description\" \"From disc\"\n}\n}\n";
    Load(offline);
    settings.patchDataFile = "https://host/data";
    ASSERT_TRUE(Apply());
    const CXString data = CXFileSystem::Join(folder.Path("app"), "data");
    const std::string control = Text(FileURIOfPath(CXFileSystem::Join(data, "control 1.txt")));
    EXPECT_EQ(Show(), "|||game.app|abc|From disc||");
    EXPECT_EQ(Outcome(), Row("$velpatch_window_name_offline", control, "", "offline "));

    Load(offline + "patch-data-file data.bin\npatch-is-installation true\n");
    configuration.anchorChecksum.Clear();
    ASSERT_TRUE(Apply());
    EXPECT_TRUE(configuration.anchorChecksum.IsEmpty());
    EXPECT_EQ(Outcome(), Row("$velpatch_window_name_install_offline", control,
                             FileURIOfPath(CXFileSystem::Join(data, "data.bin")),
                             "offline installation launch "));

    Load("patch-is-installation TRUE\npatch-control-file\n");
    ASSERT_TRUE(Apply());
    EXPECT_EQ(Text(title), "$velpatch_window_name_install");
}

TEST_F(Configuration, ADamagedCopyChangesNothing) {
    configuration.bundleId = "kept";
    title = "kept";
    for (const char* text : {"", "; nothing\n"}) {
        Load(text);
        EXPECT_FALSE(Apply());
    }
    folder.Remove("app");
    LoadApplicationConfiguration();
    EXPECT_FALSE(Apply());
    EXPECT_EQ(Text(configuration.bundleId), "kept");
    EXPECT_EQ(Text(title), "kept");
}

} // namespace
