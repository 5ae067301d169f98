// The wizard from its first page to the program's end: each kind of run, and what goes wrong.
#include "tests/app/WizardFixture.h"

#include "app/VelPatchWindowTargetPage.h"
#include "core/CXTime.h"
#include "tests/support/FaultFileDriver.h"

#include <thread>

namespace {

using Acts = std::vector<std::string>;
using Notes = std::vector<std::string>;

class WizardRuns : public WizardTest {
protected:
    std::string Saved() {
        VelPatchSettings settings;
        LoadSettings(settings, "com.example.quay", m_folder.Path("game"));
        return std::string(settings.username.View()) + "|" + std::string(settings.password.View()) +
               "|" + std::string(settings.streamId.View()) + "|" +
               std::string(settings.streamName.View());
    }
};

TEST_F(WizardRuns, AnOnlinePatcherLeadsThroughFivePages) {
    Configure("");
    Reply(StreamReply(), FileReply("patch"));
    m_folder.WriteFile("game.bin", "a namesake elsewhere");
    OpenWizard();
    Play({"see $velpatch_target_no_target",
          "off next",
          "pick game.bin",
          "see $velpatch_target_not_valid",
          "escape",
          "off next",
          "pick game/bin/game.bin",
          "on next",
          "press next",
          "see $velpatch_account_prompt",
          "off next",
          "type anna",
          "off next",
          "fill password s&t",
          "on next",
          "press next",
          "see $velpatch_stream_prompt",
          "see $velpatch_stream_next",
          "press change",
          "see $velpatch_stream_select",
          "choose Beta  Two",
          "press Cancel"});
    EXPECT_EQ(Wizard()->GetSettings().streamId, "42");
    Play({"press change", "choose Beta  Two", "press OK"});
    EXPECT_EQ(Wizard()->GetSettings().streamName, "Beta  Two");
    Play({"press back", "see $velpatch_account_prompt", "on next", "press next",
          "see $velpatch_stream_prompt", "press next", "see Two fixes", "press back",
          "see $velpatch_stream_prompt", "press next", "see Two fixes", "press next",
          "see $velpatch_operation_complete", "gone $velpatch_launch_now", "press $velpatch_exit",
          "end"});
    EXPECT_EQ(ReadTarget(), m_new);
    EXPECT_EQ(TakeNotes(), (Notes{"relaunch?", "registry", "shortcuts"}));
    EXPECT_EQ(Saved(), "anna|s&t|7|Beta  Two");
    EXPECT_NE(
        m_server.GetRequests().find("u=anna&p=s%26t&loc=US&id=com.example.quay&i=0&iid=quay-1"),
        std::string::npos);
    EXPECT_NE(m_server.GetRequests().find("stream=7&build=" + MD5Of(m_old["bin/game.bin"])),
              std::string::npos);
    EXPECT_TRUE(m_folder.Has("temp/velpatch-log.txt"));
}

TEST(TargetPage, FindsTheFolderThatHoldsTheAnchorFile) {
    const struct {
        const char* path;
        const char* anchorFile;
        const char* folder;
    } kCases[] = {
        {"/games/quay/bin/game.exe", "bin/game.exe", "/games/quay"},
        {"C:/Quay/BIN/Game.EXE", "./bin/game.exe", "C:/Quay"},
        {"C:/bin/game.exe", "bin/game.exe", "C:/"},
        {"/bin/game.exe", "bin/game.exe", ""},
        {"/game.exe", "bin/game.exe", ""},
        {"/games/quay/game.exe", "bin/game.exe", ""},
        {"/games/quay/bin/bin/game.exe", "bin/game.exe", "/games/quay/bin"},
        {"/games/quay/bin/game.exe2", "bin/game.exe", ""},
    };
    for (const auto& one : kCases) {
        EXPECT_EQ(VelPatchWindowTargetPage::FolderOfAnchor(one.path, one.anchorFile), one.folder)
            << one.path;
    }
}

TEST_F(WizardRuns, AnOnlineInstallerShowsTheLicenceAndStartsTheGame) {
    Configure("patch-is-installation true\n");
    WriteData("licence.txt", "Be kind to the dog.");
    SetLocalisedString("$velpatch_eula_filename", "licence.txt");
    SetLocalisedString("$velpatch_welcome_install", "$1 puts $2");
    Reply(StreamReply(), FileReply("full"));
    m_found = m_folder.Path("new/Quay");
    const std::string root = CXFileSystem::HasWindowsPaths() ? "C:/" : "/";
    OpenWizard();
    Play({"see $velpatch_window_name_install puts Quay",
          "press next",
          "see Be kind to the dog.",
          "press $velpatch_eula_decline",
          "gone Be kind",
          "press next",
          "press $velpatch_eula_agree",
          "see $velpatch_target_will_install_1",
          "see $velpatch_target_desktop_shortcut",
          "on next",
          "fill path new/Quay",
          "press next",
          "see $velpatch_target_please_select",
          "escape",
          "fill path " + root,
          "press next",
          "see $velpatch_target_root",
          "escape",
          "fill path ",
          "off next",
          "pick temp",
          "on next"});
    EXPECT_EQ(Short(Wizard()->GetConfiguration().targetPath), "/temp/Quay");
    Play({"fill path " + std::string(m_folder.Path("user").View()),
          "press next",
          "see $velpatch_target_exists",
          "press $velpatch_target_cancel",
          "see $velpatch_target_will_install_1",
          "fill path " + std::string(m_folder.Path("new/./x/../Quay/").View()),
          "press shortcut",
          "press next",
          "see $velpatch_account_prompt",
          "fill user anna",
          "fill password pw",
          "press next",
          "see $velpatch_stream_prompt",
          "press next",
          "see Two fixes",
          "see $velpatch_check_install",
          "press next",
          "see $velpatch_operation_complete",
          "see $velpatch_launch_now",
          "press $velpatch_exit",
          "end"});
    EXPECT_FALSE(GetProcessSettings().createDesktopShortcut);
    EXPECT_EQ(ReadTarget("new/Quay"), m_new);
    EXPECT_EQ(TakeNotes(),
              (Notes{"relaunch?", "registry", "shortcuts", "launch /new/Quay/bin/game.bin"}));
    EXPECT_NE(m_server.GetRequests().find("i=1&iid=quay-1"), std::string::npos);
    EXPECT_NE(m_server.GetRequests().find("&build=quay-1&"), std::string::npos);
}

TEST_F(WizardRuns, RunsThatAskNoService) {
    const std::string game(m_folder.Path("game").View());
    const struct {
        const char* what;
        std::string keys;
        std::function<void()> prepare;
        Acts acts;
        GameFiles after;
        Notes notes;
    } kRuns[] = {
        {"offline patcher",
         Offline("patch") + ForOldBuild(),
         [this] { m_found = m_folder.Path("game"); },
         {"see $velpatch_target_will_target_1", "press next", "see $velpatch_offline_description",
          "see $velpatch_check_apply_patch", "press back", "see $velpatch_target_will_target_1",
          "press next", "see $velpatch_offline_description", "press next",
          "see $velpatch_operation_complete", "close", "end"},
         m_new,
         {"relaunch?", "registry", "shortcuts"}},
        {"offline installer",
         Offline("full") + "patch-is-installation true\n",
         [this] {
             m_found = m_folder.Path("game");
             WriteTarget({{"own.txt", "kept"}});
         },
         {"press next", "press $velpatch_eula_agree", "press next", "see $velpatch_target_exists",
          "press $velpatch_target_yes", "see $velpatch_offline_description", "press next",
          "see $velpatch_operation_complete", "press launch", "press $velpatch_exit", "end"},
         {{"bin/game.bin", m_new["bin/game.bin"]},
          {"docs/readme.txt", "news"},
          {"own.txt", "kept"}},
         {"relaunch?", "registry", "shortcuts"}},
        {"uninstall",
         "",
         [this] {
             m_found = m_folder.Path("game");
             GetProcessSettings().uninstall = true;
             SetLocalisedString("$velpatch_welcome_uninstall", "Removes $1");
         },
         {"see $velpatch_window_name_install_offline", "see Removes Quay", "press next",
          "see $velpatch_target_will_delete_1", "gone $velpatch_target_browse", "press next",
          "see $velpatch_operation_complete", "gone $velpatch_launch_now", "press $velpatch_exit",
          "end"},
         {},
         {"relaunch?", "registry"}},
        {"start with a target",
         Offline("patch") + ForOldBuild(),
         [this] {
             GetProcessSettings().target = m_folder.Path("game");
             GetProcessSettings().startImmediately = true;
             GetProcessSettings().launchTargetOnExit = true;
         },
         {"see $velpatch_operation_complete", "press $velpatch_exit", "end"},
         m_new,
         {"relaunch?", "registry", "shortcuts", "launch /game/bin/game.bin"}},
    };
    for (const auto& run : kRuns) {
        SCOPED_TRACE(run.what);
        m_found.Clear();
        ResetProcess();
        ClearLocalisedStrings();
        WriteTarget(m_old);
        run.prepare();
        Configure(run.keys);
        OpenWizard();
        ASSERT_NO_FATAL_FAILURE(Play(run.acts));
        m_loop.CloseAll();
        EXPECT_EQ(ReadTarget(), run.after);
        EXPECT_EQ(TakeNotes(), run.notes);
    }
    EXPECT_EQ(m_server.CountConnections(), 0);
    EXPECT_FALSE(m_folder.Has("game/old.txt"));
}

TEST_F(WizardRuns, AnUninstallCallsTheProductByItsOwnName) {
    for (const char* name : {"", "Quay Sails"}) {
        Configure("product-name \"" + std::string(name) + "\"\ninstallation-folder-name Q\n");
        SetLocalisedString("$velpatch_welcome_uninstall", "Removes $1");
        GetProcessSettings().uninstall = true;
        m_found = m_folder.Path("none");
        OpenWizard();
        Play({"see Removes Quay", "press next", "press next", "see Failed to delete some files."});
        EXPECT_EQ(PatchPage()->GetStatus().statusText,
                  CXString::Format("Uninstalling%s", *name == 0 ? "Q" : name));
        Play({"press $velpatch_cancel", "end"});
        EXPECT_EQ(TakeNotes(), Notes{"relaunch?"});
    }
}

TEST_F(WizardRuns, SetStreamEndsBehindTheStreamPage) {
    Configure("");
    Reply(StreamReply(), "");
    GetProcessSettings().streamConfigurationOnly = true;
    GetProcessSettings().target = m_folder.Path("game");
    OpenWizard();
    Play({"press next", "fill user anna", "fill password pw", "press next",
          "see $velpatch_stream_done", "press next", "end"});
    EXPECT_EQ(Saved(), "anna|pw|42|Main");
    EXPECT_EQ(ReadTarget(), m_old);
    EXPECT_EQ(TakeNotes(), Notes{});
}

TEST_F(WizardRuns, FailuresOfTheServiceStayOnTheirPage) {
    const std::string good = FileReply("patch");
    const struct {
        const char* what;
        std::string streamCheck, streamFile;
        std::string shown; // by the sheet
        std::string heading = {};
    } kCases[] = {
        {"wrong password", "error invalid-myrollstock-details", "", "$velpatch_account_incorrect"},
        {"nothing received", "error login_details_not_received", "", "$velpatch_account_missing"},
        {"no streams", "error no-patch-streams", "", "$velpatch_account_products"},
        {"another word", "error out-of-tea", "", "$velpatch_account_error"},
        {"malformed", "\x01{{{", "", "$velpatch_account_malformed"},
        {"empty list", "good 1", "", "$velpatch_account_uptodate"},
        {"no patch", "", "error no-patches-available", "", "$velpatch_check_no_patch"},
        {"word at check", "", "error out-of-tea", "$velpatch_check_error"},
        {"malformed at check", "", "<html>", "$velpatch_check_malformed"},
    };
    Configure("");
    m_found = m_folder.Path("game");
    for (const auto& one : kCases) {
        SCOPED_TRACE(one.what);
        const bool isCheck = one.streamCheck.empty();
        Reply(isCheck ? StreamReply() : one.streamCheck, one.streamFile);
        OpenWizard();
        Play({"press next", "fill user anna", "fill password pw", "press next"});
        if (isCheck) {
            Play({"see $velpatch_stream_prompt", "press next"});
        }
        if (one.heading.empty()) {
            Play({"see " + one.shown, "escape", "gone " + one.shown});
        } else {
            Play({"see " + one.heading});
        }
        if (isCheck) {
            Play({"off next", "on back", "press back", "see $velpatch_stream_prompt"});
        } else {
            Play({"see anna", "on next", "on back", "on user"});
            EXPECT_EQ(Wizard()->GetSettings().username, "") << "a failed sign-in changes nothing";
        }
        Play({"close", "end"});
        m_folder.Remove("user/com.example.quay");
    }
}

TEST_F(WizardRuns, AServiceThatIsDownIsTold) {
    Configure("");
    m_server.SetReplies("", "");
    m_found = m_folder.Path("game");
    OpenWizard();
    Play({"press next", "fill user anna", "fill password pw", "press next",
          "see $velpatch_account_failed", "escape"});
    m_server.SetReplies(ServiceServer::Ok(StreamReply()), "");
    Play({"press next", "see $velpatch_stream_prompt", "press next",
          "see Failed to access patch server. Please check your internet connection", "escape",
          "off next", "press back", "close", "end"});
}

TEST_F(WizardRuns, AWindowThatWaitsForTheServiceClosesAtOnce) {
    Configure("");
    for (const std::string script : {"rollstockstreamcheck", "getstreamfile"}) {
        SCOPED_TRACE(script);
        m_server.Hold(script);
        Reply(StreamReply(), "good 1");
        m_found = m_folder.Path("game");
        OpenWizard();
        Play({"press next", "fill user anna", "fill password pw", "press next"});
        if (script == "getstreamfile") {
            Play({"see $velpatch_stream_prompt", "press next", "see $velpatch_check_patches"});
        } else {
            Play({"off user", "off password"});
        }
        Play({"see Spinner", "off next", "off back", "close", "end"});
        m_server.Release();
        EXPECT_EQ(Saved(), script == "getstreamfile" ? "anna|pw|42|Main" : "|||");
    }
}

TEST_F(WizardRuns, ATargetThatDoesNotFitIsRefusedBeforeOrByTheTask) {
    const auto huge = [this] {
        WriteData("huge.txt", ControlTextOf({CreateFileOp("x", "y").With(&TestOperation::effort,
                                                                         int64_t{1} << 60)}));
        WriteData("huge.bin", "x");
    };
    const struct {
        const char* what;
        std::string keys;
        std::function<void()> prepare;
        Acts acts;
    } kCases[] = {
        {"another build",
         Offline("patch") + "patch-anchor-checksum 0\n",
         [] {},
         {"see $velpatch_check_invalid_target_2", "escape", "see $velpatch_check_invalid_target_3",
          "off next", "press back"}},
        {"no anchor file",
         Offline("patch") + ForOldBuild(),
         [this] { m_folder.Remove("game/bin"); },
         {"see $velpatch_check_invalid_target_1", "escape", "see $velpatch_check_invalid_target_3",
          "off next", "press back"}},
        {"damaged file",
         Offline("patch"),
         [this] {
             m_folder.WriteFile("game/bin/game.bin", "");
             m_folder.Remove("game/old.txt");
         },
         {"see $velpatch_offline_description", "press next", "see $velpatch_details_heading",
          "see $velpatch_task_checksum_mismatch", "escape", "see $velpatch_operation_failed",
          "press back", "see $velpatch_offline_description", "press back"}},
        {"damaged data",
         Offline("torn") + ForOldBuild(),
         [this] {
             WriteData("torn.txt", m_server.GetApplicationFolder().ReadFile("data/patch.txt"));
             WriteData("torn.bin", "not deflated at all");
         },
         {"see $velpatch_offline_description", "press next",
          "see $velpatch_task_failed_apply_patches_file", "escape",
          "see $velpatch_operation_failed", "press back", "see $velpatch_offline_description",
          "press back"}},
        {"no room",
         Offline("huge") + ForOldBuild(),
         huge,
         {"see $velpatch_offline_description", "press next",
          "see $velpatch_task_insufficient_space", "escape", "press $velpatch_back",
          "see $velpatch_offline_description", "press back"}},
    };
    for (const auto& one : kCases) {
        SCOPED_TRACE(one.what);
        m_found = m_folder.Path("game");
        WriteTarget(m_old);
        one.prepare();
        const GameFiles before = ReadTarget();
        Configure(one.keys == Offline("patch")
                      ? one.keys + "patch-anchor-checksum " + MD5Of(before.at("bin/game.bin"))
                      : one.keys);
        OpenWizard();
        Play({"press next"});
        Play(one.acts);
        Play({"see $velpatch_target_will_target_1", "close", "end"});
        EXPECT_EQ(ReadTarget(), before);
    }
}

TEST_F(WizardRuns, APromptIsAnsweredAndAClosedWindowRevertsTheWork) {
    Configure(Offline("patch") + ForOldBuild());
    const std::string control = m_server.GetApplicationFolder().ReadFile("data/patch.txt");
    GetProcessSettings().target = m_folder.Path("game");
    GetProcessSettings().startImmediately = true;
    m_server.GetApplicationFolder().Remove("data/patch.txt");
    WriteData("patch.txt", "velpatch-version 9");
    OpenWizard();
    Play({"see $velpatch_task_failed_read_source_data", "press retry",
          "see $velpatch_task_failed_read_source_data", "close",
          "see Cancel patch attempt and revert changes?", "press Continue Patching",
          "gone Cancel patch attempt", "close", "escape", "gone Cancel patch attempt"});
    WriteData("patch.txt", control);
    Play({"press retry", "see $velpatch_operation_complete", "close", "end"});
    EXPECT_EQ(ReadTarget(), m_new);
}

TEST_F(WizardRuns, ABusyFileIsTriedAgainUntilItIsFree) {
    Configure(Offline("patch") + ForOldBuild());
    GetProcessSettings().target = m_folder.Path("game");
    GetProcessSettings().startImmediately = true;
    FaultFileDriver driver;
    driver.Fail(FileFault::Busy, 1, 1000, FileOp::Rename, "game.bin");
    const ScopedFileDriver use(driver);
    OpenWizard();
    Play({"see $velpatch_task_failed_move_file", "see $velpatch_details_heading",
          "see failed with result -", "press retry", "see $velpatch_task_failed_move_file"});
    driver.Heal();
    Play({"press retry", "see $velpatch_operation_complete", "close", "end"});
    EXPECT_EQ(ReadTarget(), m_new);
}

TEST_F(WizardRuns, AnInstallationFromDiscsAsksForThem) {
    const auto volume = [](uint32_t index, const std::string& payload) {
        return "VePa" + BigEndian(0, 4) + StreamString("") + BigEndian(index, 4) + BigEndian(2, 4) +
               BigEndian(payload.size(), 8) + payload;
    };
    const std::string data = m_server.GetApplicationFolder().ReadFile("data/full.bin");
    m_server.GetApplicationFolder().WriteFile("patch-1.bin", volume(0, data.substr(0, 20)));
    m_folder.WriteFile("disc/second.bin", volume(1, data.substr(20)));
    m_folder.WriteFile("disc/second.txt", volume(1, data.substr(20)));
    Configure("patch-control-file full.txt\npatch-is-installation true\n");
    m_found = m_folder.Path("new");
    OpenWizard();
    Play({"press next", "press $velpatch_eula_agree", "press next",
          "see $velpatch_offline_description", "press next",
          "see $velpatch_task_failed_copying_payload_data", "escape",
          "see $velpatch_operation_failed", "press back", "see $velpatch_offline_description"});
    EXPECT_FALSE(m_folder.Has("new")) << "nobody had the disc";
    m_user.HoldPicks(true);
    Play({"press next"});
    ASSERT_TRUE(Until([this] { return m_user.CountPicks() == 1; }));
    EXPECT_EQ(m_user.GetPick().prompt, "$please_insert_disc");
    EXPECT_EQ(m_user.GetPick().startFolder, CXFileSystem::GetApplicationFolder());
    EXPECT_EQ(m_user.GetPick().fileName, "*.bin");
    m_user.AnswerPick(m_folder.Path("disc/second.bin"));
    Play({"see $velpatch_operation_complete", "press launch", "press $velpatch_exit", "end"});
    EXPECT_EQ(ReadTarget("new"), m_new);
}

TEST_F(WizardRuns, AWindowClosedInMidWorkLeavesTheTargetAsItWas) {
    Configure("");
    const std::string reply = FileReply("patch");
    const std::string kReading = "see $velpatch_task_reading_configuration";
    const std::string kDownload = "see $velpatch_task_downloading_installation_data_mib";
    const std::string kPrompt = "see $velpatch_task_failed_read_source_data";
    const std::string kAsk = "see Cancel patch attempt and revert changes?";
    const struct {
        const char* what;
        std::string held; // by the service
        Acts acts;
    } kCases[] = {
        {"cancel while reading", "/patch.txt", {kReading, "press $velpatch_cancel", "end"}},
        {"close while loading", "/patch.bin", {kDownload, "close", kAsk, "press Quit", "end"}},
        {"cancel while loading", "/patch.bin", {kDownload, "press $velpatch_cancel", "end"}},
        {"close at a prompt", "/none.bin", {kPrompt, "close", kAsk, "press Quit", "end"}},
        {"cancel at a prompt", "/none.bin", {kPrompt, "press $velpatch_cancel", "end"}},
    };
    for (const auto& one : kCases) {
        SCOPED_TRACE(one.what);
        m_server.Hold(one.held);
        m_server.SetReplies("", "");
        VelPatchSettings settings;
        settings.patchControlFile =
            (m_server.GetBase() + (one.acts[0] == kPrompt ? "none.txt" : "patch.txt")).c_str();
        settings.patchDataFile = (m_server.GetBase() + "patch.bin").c_str();
        SaveSettings(settings, "com.example.quay", m_folder.Path("game"));
        GetProcessSettings().target = m_folder.Path("game");
        GetProcessSettings().startImmediately = true;
        OpenWizard();
        Play({one.acts[0]});
        std::thread service([&] {
            CXSleep(300);
            if (one.acts[0] == kReading) { // which is not cut short, since the file is small
                m_server.Release();
            }
        });
        Play({one.acts.begin() + 1, one.acts.end()});
        service.join();
        m_server.Release();
        EXPECT_EQ(ReadTarget(), m_old);
        EXPECT_EQ(m_folder.Tree("temp").size(), 1U) << "the log alone stays";
    }
}

TEST_F(WizardRuns, AWindowClosedBetweenTwoFilesUndoesTheFirst) {
    Configure(Offline("patch") + ForOldBuild());
    for (const Acts& acts :
         {Acts{"press $velpatch_cancel", "end"},
          Acts{"close", "see Cancel patch attempt and revert changes?", "press Quit", "end"}}) {
        SCOPED_TRACE(acts.front());
        GetProcessSettings().target = m_folder.Path("game");
        GetProcessSettings().startImmediately = true;
        FaultFileDriver driver;
        driver.Hold(FileOp::OpenWrite, "readme");
        const ScopedFileDriver use(driver);
        OpenWizard();
        ASSERT_TRUE(Until([&] { return driver.IsHolding(); }));
        Play({"see $velpatch_task_installing"});
        std::thread disk([&] {
            CXSleep(500);
            driver.Release();
        });
        Play(acts);
        disk.join();
        EXPECT_EQ(ReadTarget(), m_old);
        EXPECT_GT(driver.CountCalls(FileOp::RemoveFile), 0U) << "the first was made";
    }
}

TEST_F(WizardRuns, ADamagedCopySaysSoAndGoes) {
    WriteData("patch-config.txt", "");
    LoadApplicationConfiguration();
    OpenWizard();
    Play({"see This application is damaged. Please redownload it.", "press OK", "end"});
}

TEST_F(WizardRuns, ARelaunchEndsThisProcessAndItsFailureIsTold) {
    Configure(Offline("patch") + ForOldBuild());
    GetProcessSettings().target = m_folder.Path("game");
    GetProcessSettings().startImmediately = true;
    m_relaunch = {VelPatchRelaunchResult::Failed, "Unable to relaunch"};
    OpenWizard();
    Play({"see Unable to relaunch", "escape", "see $velpatch_ready_to_begin", "close", "end"});
    EXPECT_FALSE(Wizard() != nullptr);

    GetProcessSettings().target = m_folder.Path("game");
    m_services.relaunchIfNeeded = [](const CXString&, bool) {
        GetProcessSettings().relaunched = true;
        return VelPatchRelaunchOutcome{VelPatchRelaunchResult::Relaunched, CXString()};
    };
    OpenWizard();
    EXPECT_TRUE(m_application->IsLeaving());
    Play({"end"});
    EXPECT_EQ(ReadTarget(), m_old);
}

TEST_F(WizardRuns, MenusAreThereAndPicturesNeedNotBe) {
    Configure("");
    SetLocalisedString("$velpatch_help_url", "https://help.example/");
    WriteData("patch.bmp", "no picture");
    OpenWizard();
    EXPECT_FALSE(Shows("Bitmap")) << "one is damaged, one isn't there";
    Play({"menu about-app", "see $velpatch_about", "escape", "menu show-help",
          "menu close-front-window", "end"});
    EXPECT_EQ(TakeNotes(), Notes{"open https://help.example/"});
}

} // namespace
