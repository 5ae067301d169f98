// The wizard on a screen that is only data, with a product, a player's folders and a service of its
// own, and a player made of words.
#pragma once

#include "app/VelPatchApp.h"
#include "app/VelPatchWindowPatchPage.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXLog.h"
#include "patch/DeleteWithAutoRetry.h"
#include "patch/VelPatchTask_Uninstall.h"
#include "tests/app/ServiceServer.h"
#include "tests/support/Environment.h"
#include "tests/support/PatchData.h"
#include "tests/support/UIFixture.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Files by their paths in the target.
using GameFiles = std::map<std::string, std::string>;

/// Without a language the texts are their own keys, so that tests read which text is shown.
class WizardTest : public UIFixture {
protected:
    WizardTest() {
        SetSettingsBaseFolder(m_folder.Path("user"));
        m_folder.MakeFolder("user");
        m_folder.MakeFolder("temp");
        RedirectTemporaryFolder(m_folder.Path("temp").GetData());
        CXSetLogSink([](const char*) {});
        SetDeleteRetryPause(1);
        SetUninstallRetryPause(1);
        ResetProcess();
        ClearLocalisedStrings();
        WriteTarget(m_old);
        const std::vector<TestOperation> changes = {
            EditOp("bin/game.bin", "bin/game.bin", m_old["bin/game.bin"], m_new["bin/game.bin"]),
            CreateFileOp("docs/readme.txt", m_new["docs/readme.txt"]), DeleteFileOp("old.txt")};
        const std::vector<TestOperation> all = {
            CreateFileOp("bin/game.bin", m_new["bin/game.bin"]),
            CreateFileOp("docs/readme.txt", m_new["docs/readme.txt"])};
        for (const auto& [name, operations] : {std::pair("patch", changes), {"full", all}}) {
            WriteData(std::string(name) + ".txt", ControlTextOf(operations));
            WriteData(std::string(name) + ".bin", Deflated(RecordsOf(operations)));
        }
        m_services.relaunchIfNeeded = [this](const CXString&, bool) {
            Note("relaunch?");
            return m_relaunch;
        };
        m_services.applyRegistryEdits = [this](const VelPatchConfiguration&) { Note("registry"); };
        m_services.createShortcuts = [this](const VelPatchConfiguration&) { Note("shortcuts"); };
        m_services.findInstalledTarget = [this](const VelPatchConfiguration&) { return m_found; };
        m_services.readDisplayName = [](const VelPatchConfiguration&) { return CXString("Quay"); };
        m_services.launchTarget = [this](const CXString& target, const CXString& anchorFile) {
            Note("launch " + Short(CXFileSystem::Join(target, anchorFile)));
        };
        m_services.openAddress = [this](const CXString& address) {
            Note("open " + std::string(address.View()));
        };
    }
    ~WizardTest() override {
        m_loop.CloseAll();
        m_application.reset();
        SetSettingsBaseFolder(CXString());
        RedirectTemporaryFolder(
            std::filesystem::path(m_folder.Path().GetData()).parent_path().string());
        CXSetLogSink(nullptr);
        ResetProcess();
    }

    static void ResetProcess() {
        VelPatchProcessSettings& process = GetProcessSettings();
        process.target.Clear();
        process.escalationStage = 0;
        process.startImmediately = process.streamConfigurationOnly = process.uninstall = false;
        process.launchTargetOnExit = process.selfDeleteOnExit = process.relaunched = false;
        process.createDesktopShortcut = true;
        process.quitRequested = false;
    }

    // ---- The world ----

    /// A file in the program's "data" folder.
    void WriteData(const std::string& name, const std::string& contents) {
        m_server.GetApplicationFolder().WriteFile("data/" + name, contents);
    }
    void WriteTarget(const GameFiles& files) {
        m_folder.Remove("game");
        for (const auto& [path, contents] : files) {
            m_folder.WriteFile("game/" + path, contents);
        }
    }
    /// The files of the target; folders are not told.
    GameFiles ReadTarget(const std::string& name = "game") const {
        GameFiles files;
        for (const auto& [path, entry] : m_folder.Tree(name)) {
            if (entry.type == 'f') {
                files[path] = entry.contents;
            }
        }
        return files;
    }
    /// Loads a configuration of the usual keys and these.
    void Configure(const std::string& keys) {
        WriteData("patch-config.txt",
                  "application-bundle-id com.example.quay\ninstallation-id quay-1\n"
                  "installation-folder-name Quay\nproduct-name Quay\n"
                  "patch-anchor-file \"bin/game.bin\"\npatch-service-base \"" +
                      m_server.GetBase() + "\"\n" + keys);
        LoadApplicationConfiguration();
    }
    static std::string Offline(const std::string& name) {
        return "patch-control-file \"" + name + ".txt\"\npatch-data-file \"" + name + ".bin\"\n";
    }
    std::string ForOldBuild() { return "patch-anchor-checksum " + MD5Of(m_old["bin/game.bin"]); }
    /// Replies that lead to a patch or installation, which lies at an https address too.
    std::string StreamReply() const {
        return "good 1\nstream \"7 Beta  Two\"\nstream \"42 Main\"\ndefault-stream 42\n";
    }
    std::string FileReply(const std::string& name) {
        for (const char* kind : {".txt", ".bin"}) {
            m_server.SetFile("/" + name + kind,
                             m_server.GetApplicationFolder().ReadFile("data/" + name + kind));
        }
        return "good 1\npatch-control-file \"" + m_server.GetBase() + name +
               ".txt\"\npatch-data-file \"" + m_server.GetBase() + name +
               ".bin\"\ndescription \"Two fixes\"\n";
    }
    void Reply(const std::string& streamCheck, const std::string& streamFile) {
        m_server.SetReplies(ServiceServer::Ok(streamCheck), ServiceServer::Ok(streamFile));
    }

    // ---- The player ----

    void OpenWizard() {
        while (!m_user.IsIdle()) { // the quit message of a run before
            m_loop.RunOne(0);
        }
        m_running = true;
        m_quit = false;
        m_application = std::make_unique<VelPatchApp>(m_services);
        m_application->ProcessMessage(CXMessage("open-application"));
        Settle();
    }
    VelPatchWindow* Wizard() { return m_application->GetWindow(); }
    VelPatchWindowPatchPage* PatchPage() {
        return static_cast<VelPatchWindowPatchPage*>(Wizard()->GetPage());
    }

    /// Acts line by line:
    ///     see TEXT, gone TEXT     waits until the screen shows it, or no longer
    ///     press NAME, menu NAME   fill EDIT TEXT   type TEXT   pick PATH   choose TEXT
    ///     close   escape
    ///     off NAME, on NAME       the control is disabled, or not
    ///     end                     waits until the program has ended
    void Play(const std::vector<std::string>& acts) {
        for (const std::string& act : acts) {
            const size_t blank = act.find(' ');
            const std::string verb = act.substr(0, blank);
            const std::string rest = blank == std::string::npos ? "" : act.substr(blank + 1);
            const testing::AssertionResult done = Act(verb, rest);
            ASSERT_TRUE(done) << "at '" << act << "' the screen showed\n" << Dump();
        }
    }
    std::vector<std::string> TakeNotes() { return std::exchange(m_notes, {}); }
    void Note(const std::string& note) { m_notes.push_back(note); }
    std::string Short(const CXString& path) const {
        const std::string text(path.View()), base(m_folder.Path().View());
        return text.substr(0, base.size()) == base ? text.substr(base.size()) : text;
    }

    GameFiles m_old = {{"bin/game.bin", "the first build"}, {"old.txt", "gone soon"}};
    GameFiles m_new = {{"bin/game.bin", "the second build"}, {"docs/readme.txt", "news"}};
    TempFolder m_folder; // "game", "user", "temp"
    ServiceServer m_server;
    CXString m_found; // what the system knows of an installed target
    VelPatchRelaunchOutcome m_relaunch;
    VelPatchWizardServices m_services;
    std::unique_ptr<VelPatchApp> m_application;

private:
    testing::AssertionResult Holds(const std::function<bool()>& condition) {
        return Until(condition) ? testing::AssertionSuccess() : testing::AssertionFailure();
    }
    testing::AssertionResult Act(const std::string& verb, const std::string& rest) {
        if (verb == "see" || verb == "gone") {
            return Holds([&] { return Shows(rest) == (verb == "see"); });
        }
        if (verb == "end") {
            return Holds([&] { return !m_running; });
        }
        if (verb == "off" || verb == "on") {
            UIElement* control = Wizard()->GetPage()->Find(rest);
            return Holds([&] { return control->IsUsable() == (verb == "on"); });
        }
        if (verb == "fill") {
            const size_t blank = rest.find(' ');
            return Did(m_user.Fill(rest.substr(0, blank), rest.substr(blank + 1)));
        }
        if (verb == "pick") {
            m_user.AnswerPick(m_folder.Path(rest));
            return Did(m_user.Press("change"));
        }
        if (verb == "choose") {
            return Did(m_user.ClickLine("choices", rest));
        }
        return verb == "press"    ? Did(m_user.Press(rest))
               : verb == "type"   ? Did(m_user.Type(rest))
               : verb == "menu"   ? Did(m_user.ChooseMenu(rest))
               : verb == "close"  ? Did(m_user.PressClose())
               : verb == "escape" ? Did(m_user.Key(kUIKeyEscape))
                                  : testing::AssertionFailure() << "no such act";
    }

    std::vector<std::string> m_notes;
};
