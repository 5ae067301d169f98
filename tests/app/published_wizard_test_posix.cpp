// The wizard and a studio's service: what the kit publishes, served by nginx.
#include "tests/app/WizardFixture.h"

#include "core/CXTime.h"

#include <cstdio>

namespace {

/// The service of a game in two builds; it stops with the object.
class PublishedService {
public:
    PublishedService(const GameFiles& build1, const GameFiles& build2) {
        for (const auto& [name, files] : {std::pair("build1/", build1), {"build2/", build2}}) {
            for (const auto& [path, contents] : files) {
                m_folder.WriteFile(name + path, contents);
            }
        }
        m_folder.WriteFile("service.txt", kService);
        // The test's own program folder, before the fixture moves it.
        const CXString programs = CXFileSystem::GetParent(CXFileSystem::GetModulePath());
        const CXString command = CXString::Format(
            "exec python3 tests/app/published_service.py '%s' '%s'",
            CXFileSystem::Join(programs, "velpatch-kit").GetData(), m_folder.Path().GetData());
        m_process = popen(command.GetData(), "we");
        Await("port");
        m_port = m_folder.ReadFile("port");
        m_port.erase(m_port.find_last_not_of('\n') + 1);
    }
    ~PublishedService() { pclose(m_process); }
    PublishedService(const PublishedService&) = delete;
    PublishedService& operator=(const PublishedService&) = delete;

    bool IsUp() const { return !m_port.empty() && m_port != "failed"; }
    std::string GetBase() const { return "https://localhost:" + m_port + "/up/"; }
    std::string GetRoot() const { return m_folder.ReadFile("root.crt"); }
    void Kill() {
        std::fputs("\n", m_process);
        std::fflush(m_process);
        Await("stopped");
    }
    /// Gives a published file, known by its contents, others.
    void Exchange(const std::string& contents, const std::string& others) const {
        for (const auto& [path, entry] : m_folder.Tree("site")) {
            if (entry.type == 'f' && entry.contents == contents) {
                m_folder.WriteFile("site/" + path, others);
            }
        }
    }
    /// Takes a published file, known by its contents, from its place; or brings it back.
    void Hide(const std::string& contents, bool hidden) const {
        for (const auto& [path, entry] : m_folder.Tree("site")) {
            if (entry.type == 'f' && entry.contents == contents) {
                const std::string shown = hidden ? path : path.substr(0, path.rfind('~'));
                std::filesystem::rename(
                    m_folder.Path("site/" + path).GetData(),
                    m_folder.Path("site/" + (hidden ? path + "~" : shown)).GetData());
            }
        }
    }
    std::string Read(const std::string& name) const { return m_folder.ReadFile(name); }

private:
    static constexpr const char* kService = R"(base-address "https://localhost:@PORT@/up/"
server
{
    listen "127.0.0.1:@PORT@"
    certificate "server.crt"
    certificate-key "server.key"
}
streams
{
    live
    {
        name "Live"
        anchor-file "bin/game.bin"
        builds
        {
            one
            {
                folder "build1"
                control "patch/patch-control.txt"
                data "patch/patch-data.bin"
                description "Brings you to build 2."
            }
            two
            {
                folder "build2"
            }
        }
        installations
        {
            quay-1
            {
                control "full/patch-control.txt"
                data "full/patch-data.bin"
                description "Installs build 2."
            }
        }
    }
    beta
    {
        name "Beta  Two"
        anchor-file "bin/game.bin"
        builds
        {
            one
            {
                folder "build1"
            }
        }
    }
}
products
{
    quay
    {
        bundle-id "com.example.quay"
        streams
        {
            live
            beta
        }
    }
    other
    {
        bundle-id "com.example.other"
        streams
        {
            beta
        }
    }
}
accounts
{
    "anna & söhne"
    {
        password "wind + tide %"
        products
        {
            quay
        }
    }
    ben
    {
        password "pw"
        products
        {
            other
        }
    }
}
)";

    void Await(const std::string& file) const {
        for (int i = 0; i < 30000 && !m_folder.Has(file); ++i) {
            CXSleep(10);
        }
    }

    TempFolder m_folder;
    FILE* m_process = nullptr;
    std::string m_port;
};

class PublishedWizard : public WizardTest {
protected:
    PublishedWizard() {
        std::string& game = m_new["bin/game.bin"];
        uint32_t noise = 1; // a data file that is longer than a page of nginx's own
        for (game.clear(); game.size() < 90000;) {
            noise = noise * 1664525U + 1013904223U;
            game += static_cast<char>(noise >> 24);
        }
        m_service = std::make_unique<PublishedService>(m_old, m_new);
        m_server.GetApplicationFolder().WriteFile("data/openssl.crt", m_service->GetRoot());
        SetLocalisedString("$velpatch_stream_name", "Stream: $1");
    }
    void SetUp() override { ASSERT_TRUE(m_service->IsUp()); }

    void Serve(const std::string& keys) {
        Configure(keys + "patch-service-base \"" + m_service->GetBase() + "\"\n");
    }
    void SignIn() {
        Play({"fill user anna & s\xC3\xB6hne", "fill password wind + tide %", "press next",
              "see $velpatch_stream_prompt"});
    }

    std::unique_ptr<PublishedService> m_service;
};

TEST_F(PublishedWizard, APatcherFromAWrongPasswordToTheNewestBuild) {
    Serve("");
    m_found = m_folder.Path("game");
    const std::string data = m_service->Read("patch/patch-data.bin");
    m_service->Hide(data, true);
    OpenWizard();
    Play({"see $velpatch_target_will_target_1", "press next", "see $velpatch_account_prompt",
          "fill user anna", "fill password wind", "press next", "see $velpatch_account_incorrect",
          "escape", "fill user ben", "fill password pw", "press next",
          "see $velpatch_account_products", "escape"});
    SignIn();
    Play({"see Stream: Live", "press change", "choose Beta  Two", "press OK",
          "see Stream: Beta  Two", "press next", "see $velpatch_check_no_patch", "off next",
          "press back", "press change", "choose Live", "press OK", "press next",
          "see Brings you to build 2.", "press next",
          "see $velpatch_task_failed_to_download_installation_data", "see Result: -", "press retry",
          "see $velpatch_task_failed_to_download_installation_data"});
    m_service->Hide(data, false);
    Play({"press retry", "see $velpatch_operation_complete", "press $velpatch_exit", "end"});
    EXPECT_EQ(ReadTarget(), m_new);
    EXPECT_EQ(TakeNotes(), (std::vector<std::string>{"relaunch?", "registry", "shortcuts"}));

    OpenWizard(); // another day
    Play({"press next", "on next", "press next", "see Stream: Live", "press next",
          "see $velpatch_check_no_patch", "off next", "close", "end"});

    WriteTarget(m_old); // a later stage of a relaunch: what the check found was remembered
    GetProcessSettings().target = m_folder.Path("game");
    GetProcessSettings().startImmediately = true;
    OpenWizard();
    Play({"see $velpatch_operation_complete", "press $velpatch_exit", "end"});
    EXPECT_EQ(ReadTarget(), m_new);
}

TEST_F(PublishedWizard, AnInstallerAndAChoiceOfStream) {
    Serve("patch-is-installation true\n");
    m_found = m_folder.Path("new/Quay");
    OpenWizard();
    Play({"see $velpatch_welcome_install", "press next", "press $velpatch_eula_agree",
          "see $velpatch_target_will_install_1", "press next"});
    SignIn();
    Play({"press next", "see Installs build 2.", "press next", "see $velpatch_operation_complete",
          "see $velpatch_launch_now", "press launch", "press $velpatch_exit", "end"});
    EXPECT_EQ(ReadTarget("new/Quay"), m_new);

    ResetProcess();
    GetProcessSettings().streamConfigurationOnly = true;
    GetProcessSettings().target = m_folder.Path("game");
    Serve("");
    OpenWizard();
    Play({"see $velpatch_target_will_target_1", "press next"});
    SignIn();
    Play({"see Stream: Live", "press change", "choose Beta  Two", "press OK",
          "see $velpatch_stream_done", "press next", "end"});
    GetProcessSettings().streamConfigurationOnly = false;
    m_found = m_folder.Path("game");
    OpenWizard();
    Play({"press next", "on next", "press next", "see Stream: Beta  Two", "close", "end"});
    EXPECT_EQ(ReadTarget(), m_old);
}

TEST_F(PublishedWizard, AServiceThatFallsSilentAtEachStep) {
    Serve("");
    m_found = m_folder.Path("game");
    const std::string reply = "good 1\nstream \"live Live\"\nstream \"beta Beta  Two\"\n"
                              "default-stream \"live\"\n";
    OpenWizard();
    Play({"press next"});
    SignIn();
    Play({"press back", "see $velpatch_account_prompt"});
    m_service->Exchange(reply, "good");
    Play({"press next", "see $velpatch_account_malformed", "escape"});
    m_service->Exchange("good", reply);
    Play({"press next", "see Stream: Live", "press next", "see Brings you to build 2.", "on next"});
    m_service->Kill();
    Play({"press next", "see $velpatch_task_failed_read_source_data",
          "see $velpatch_details_heading", "see " + m_service->GetBase() + "files/", "press retry",
          "see $velpatch_task_failed_read_source_data", "press $velpatch_cancel", "end"});
    EXPECT_EQ(ReadTarget(), m_old);

    OpenWizard();
    Play({"press next", "on next", "press next", "see $velpatch_account_failed", "escape",
          "see anna & s\xC3\xB6hne", "on next"});
    Wizard()->ShowPage(VelPatchWindow::kCheckPatch);
    Play({"see Failed to access patch server. Please check your internet connection", "escape",
          "off next", "press back", "see Stream: Live", "close", "end"});

    GetProcessSettings().target = m_folder.Path("game");
    GetProcessSettings().startImmediately = true;
    OpenWizard();
    Play({"see $velpatch_task_failed_read_source_data", "press $velpatch_cancel", "end"});
    EXPECT_EQ(ReadTarget(), m_old);
}

} // namespace
