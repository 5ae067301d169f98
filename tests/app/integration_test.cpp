// What an installation leaves in the system, what an uninstall takes back, and what is found again.
#include "app/VelPatchRegistryTree.h"
#include "app/VelPatchSystemIntegration.h"
#include "core/CXFileSystem.h"
#include "core/CXPlatformText.h"
#include "core/CXTime.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "patch/VelPatchTask_Uninstall.h"
#include "runtime/CXRuntime.h"
#include "tests/support/Environment.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

namespace {

using Folder = CXFileSystem::KnownFolder;
using Root = VelPatchRegistryRoot;

class Integration : public testing::Test {
protected:
    Integration() {
        VelPatchRegistry::SetCurrent(&m_registry);
        m_configuration.targetPath = m_folder.Path("game");
        m_configuration.anchorFile = "bin/RSNE.exe";
        m_configuration.installationId = "rowan-2";
        m_configuration.installationFolderName = "Rowan Sails";
        m_configuration.startMenuShortcutFolder = "Works/Rowan";
        // On Windows the folders are the system's own.
        m_name = "Rowan " + Text(CXFileSystem::GetFileName(m_folder.Path()));
        m_configuration.shortcutFilename = CXString(m_name + ".lnk");
    }
    ~Integration() override {
        VelPatchRegistry::SetCurrent(nullptr);
        for (const Folder folder : {Folder::StartMenu, Folder::Desktop}) {
            for (const std::string& link : ListLinks(folder)) {
                CXFileSystem::DeleteFile(CXFileSystem::Join(Base(folder), CXString(link)));
            }
        }
    }

    CXString Base(Folder folder) const {
        const CXString known = CXFileSystem::GetKnownFolder(folder);
        return folder == Folder::StartMenu ? CXFileSystem::Join(known, "Works/Rowan") : known;
    }
    /// Our shortcuts in one of the two folders, sorted.
    std::vector<std::string> ListLinks(Folder folder) const {
        std::vector<CXFileEntry> entries;
        CXFileSystem::Enumerate(Base(folder), entries);
        std::vector<std::string> links;
        for (const CXFileEntry& entry : entries) {
            if (entry.name.View().substr(0, m_name.size()) == m_name) {
                links.push_back(Text(entry.name));
            }
        }
        return links;
    }
    std::string Link(const std::string& number = std::string()) const {
        return m_name + number + Text(CXFileSystem::GetLinkExtension());
    }
    void SetEdits(const std::string& text) {
        m_edits = new DNMemoryValue;
        TextConfig::Parse(text.data(), text.size(), *m_edits);
        m_configuration.registryEdits = m_edits;
    }
    /// One text of the registry, or its failure.
    std::string Read(Root root, const CXString& path, const CXString& name) {
        CXString text;
        const CXResult result = m_registry.ReadString(root, path, name, text);
        return result == kCXResultOK ? Text(text) : std::to_string(result);
    }

    const TempFolder m_folder;
    const ScopedVariable m_data{"XDG_DATA_HOME", Text(m_folder.Path("user/data"))};
    const ScopedVariable m_desktop{"XDG_DESKTOP_DIR", Text(m_folder.Path("user/desk"))};
    const ScopedVariable m_config{"XDG_CONFIG_HOME", Text(m_folder.Path("user/config"))};
    VelPatchRegistryTree m_registry;
    VelPatchConfiguration m_configuration;
    VelPatchProcessSettings m_process;
    DNValueRef m_edits;
    std::string m_name;
};

void Uninstall(const CXString& target) {
    CXRuntime::Start();
    {
        VelPatchTask_Uninstall task("");
        ASSERT_TRUE(task.Begin(target));
        task.Go();
        TaskStatus status;
        for (int i = 0; i < 3000 && status.state != kTaskStateFinished; i++) {
            CXSleep(10);
            task.GetStatus(status);
            ASSERT_NE(status.state, uint32_t{kTaskStatePrompt});
        }
    }
    CXRuntime::Stop();
}

TEST_F(Integration, InstallTwiceThenUninstall) {
    m_folder.WriteFile("game/bin/RSNE.exe", std::string(1000, 'x'));
    m_folder.WriteFile("game/deep/er/file", std::string(535, 'x'));
    const std::string key =
        "Uninstall\\" + Text(RegistryKeyOfTarget("rowan-2", m_configuration.targetPath));
    SetEdits("0\n{\nroot HKLM\npath \"Kept\"\nname First\ntype STRING\nvalue stays\n}\n"
             "1\n{\nroot HKLM\npath \"Uninstall\\$(TARGETPATHKEY)\"\nname \"\"\ntype STRING\n"
             "value \"Rowan\"\n}\n"
             "2\n{\nroot HKLM\npath \"Uninstall\\$(TARGETPATHKEY)\"\nname Size\ntype STRING\n"
             "value \"$(INSTALLSIZE)\"\n}\n"
             "3\n{\nroot HKCU\npath List\nname \"$(iterative_key)\"\ntype STRING\n"
             "value \"$(ANCHORPATH)\"\n}\n"
             "4\n{\nroot HKCU\npath List\nname \"$(iterative_key)\"\ntype STRING\n"
             "value \"everybody's\"\n}\n"
             "5\n{\nroot HKCU\npath Old\nname \"\"\ntype DELETE\n}\n"
             "6\n{\nroot HKCU\npath List\nname Number\ntype DWORD\nvalue 7\n}\n");
    m_registry.SetString(Root::CurrentUser, "Old", "x", "of an earlier product");
    m_registry.SetString(Root::CurrentUser, "List", "2", "another's");

    const CXString hash = CXString(key);
    for (int run = 0; run < 2; run++) {
        ApplyRegistryEdits(m_configuration, false);
        EXPECT_EQ(Read(Root::LocalMachine, "Kept", "First"), "stays");
        EXPECT_EQ(Read(Root::LocalMachine, hash, ""), "Rowan");
        EXPECT_EQ(Read(Root::LocalMachine, hash, "Size"), run == 0 ? "1" : "2") << "KiB";
        EXPECT_EQ(Read(Root::CurrentUser, "List", "1"),
                  Text(ToWindowsPath(m_folder.Path("game/bin/RSNE.exe"))));
        EXPECT_EQ(Read(Root::CurrentUser, "List", "3"), "everybody's");
        EXPECT_EQ(Read(Root::CurrentUser, "List", "4"), "-7") << "each text once";
        EXPECT_EQ(Read(Root::CurrentUser, "Old", "x"), "-7");
        CreateShortcutsAndUninstallList(m_configuration, m_process);
        m_folder.WriteFile("game/more", std::string(1000, 'x'));
    }
    const std::vector<std::string> two = {Link(" (1)"), Link()};
    EXPECT_EQ(ListLinks(Folder::StartMenu), two);
    EXPECT_EQ(ListLinks(Folder::Desktop), two);

    m_process.uninstall = true;
    Uninstall(m_configuration.targetPath);
    ApplyRegistryEdits(m_configuration, true);
    CreateShortcutsAndUninstallList(m_configuration, m_process);
    EXPECT_FALSE(m_folder.Has("game"));
    // The list names the shortcuts of the first run.
    const std::vector<std::string> one = {Link(" (1)")};
    EXPECT_EQ(ListLinks(Folder::StartMenu), one);
    EXPECT_EQ(ListLinks(Folder::Desktop), one);
    EXPECT_EQ(Read(Root::LocalMachine, "Kept", "First"), "stays");
    std::vector<VelPatchRegistryValue> values;
    EXPECT_EQ(m_registry.ListStrings(Root::LocalMachine, hash, values), kCXResultNotFound);
    ASSERT_EQ(m_registry.ListStrings(Root::CurrentUser, "List", values), kCXResultOK);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(Row(values[0].name, values[0].data, values[1].name, values[1].data),
              "2|another's|3|everybody's");
    EXPECT_EQ(m_registry.DeleteValue(Root::CurrentUser, "List", "Number"), kCXResultNotFound);
}

TEST_F(Integration, Shortcuts) {
    m_process.createDesktopShortcut = false;
    for (int run = 0; run < 12; run++) {
        CreateShortcutsAndUninstallList(m_configuration, m_process);
    }
    EXPECT_EQ(ListLinks(Folder::StartMenu).size(), 10u);
    EXPECT_TRUE(
        CXFileSystem::Exists(CXFileSystem::Join(Base(Folder::StartMenu), CXString(Link(" (9)")))));
    EXPECT_TRUE(ListLinks(Folder::Desktop).empty());
    if (!CXFileSystem::HasWindowsPaths()) {
        const std::string path = "user/data/applications/Works/Rowan/" + Link();
        EXPECT_EQ(m_folder.ReadFile(path),
                  Text(MakeDesktopEntry(m_name, m_folder.Path("game/bin/RSNE.exe"),
                                        m_folder.Path("game/bin"))));
        EXPECT_EQ(m_folder.GetMode(path), 0755u);
    }
    m_process.createDesktopShortcut = true;
    m_configuration.shortcutFilename.Clear();
    CreateShortcutsAndUninstallList(m_configuration, m_process);
    EXPECT_TRUE(ListLinks(Folder::Desktop).empty());
}

TEST_F(Integration, FindsTheInstalledTarget) {
    const std::pair<const char*, const char*> cases[] = {
        {"\"C:\\Games\\Rowan\\RSNE.exe\" --installcontent \"%1\"", "C:/Games/Rowan"},
        {"\"\\home\\a b\\Rowan\\RSNE.exe\" --installcontent \"%1\" --more", "/home/a b/Rowan"},
        {"\"\\RSNE.exe\" --installcontent \"%1\"", ""},
        {"C:\\Games\\RSNE.exe\" --installcontent \"%1\"", ""},
        {"\"C:\\Games\\RSNE.exe\" \"%1\"", ""},
        {"\"", ""},
        {"", ""},
    };
    EXPECT_EQ(FindInstalledTarget(m_configuration, false), "");
    for (const auto& [command, target] : cases) {
        m_registry.SetString(Root::ClassesRoot, "RSPFile\\Shell\\Open\\Command", "", command);
        EXPECT_EQ(Text(FindInstalledTarget(m_configuration, false)), target) << command;
    }
    EXPECT_EQ(FindInstalledTarget(m_configuration, true), CXFileSystem::GetApplicationFolder());
    m_configuration.isInstallation = true;
    EXPECT_EQ(Text(FindInstalledTarget(m_configuration, false)),
              (CXFileSystem::HasWindowsPaths() ? std::string("C:/Program Files")
                                               : Text(m_folder.Path("user/data"))) +
                  "/Mostrel Works/Rowan Sails");
}

TEST_F(Integration, ReadsTheDisplayName) {
    const CXString key =
        CXString::Format("SOFTWARE\\Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\%s",
                         RegistryKeyOfTarget("rowan-2", m_configuration.targetPath).GetData());
    EXPECT_EQ(ReadUninstallDisplayName(m_configuration), "");
    for (const size_t length : {254U, 255U}) {
        const std::string name(length, 'n');
        m_registry.SetString(Root::LocalMachine, key, "DisplayName", CXString(name));
        EXPECT_EQ(Text(ReadUninstallDisplayName(m_configuration)), length == 254 ? name : "");
    }
}

} // namespace
