// The patch page without a screen: what is printed, and how it ends.
#include "app/VelPatchHeadlessRun.h"

#include "tests/app/WizardFixture.h"

#include "core/CXTime.h"
#include "runtime/CXTaskHost.h"
#include "tests/support/FaultFileDriver.h"

namespace {

class HeadlessRun : public WizardTest {
protected:
    /// Runs to the end and gives what was printed; sheets stand in "<" and ">".
    std::string Run(bool isTerminal, std::deque<bool> answers = {}) {
        std::string printed;
        m_user.SetSheetReader(
            [&printed](const CXString& text) { printed += "<" + std::string(text.View()) + ">"; });
        VelPatchHeadlessRun run(
            [this] { return m_application.get(); },
            {[&printed](const CXString& text) { printed += std::string(text.View()); },
             [this, &printed, seen = size_t{0}]() mutable {
                 if (m_isSlow && std::exchange(seen, printed.size()) != printed.size()) {
                     CXSleep(250); // meanwhile a task asks its next question
                 }
                 return m_server.IsHolding();
             },
             [this] { return m_user.IsIdle(); }, isTerminal, std::move(answers)});
        CXTaskHost::GetCurrent()->AddTask(&run);
        GetProcessSettings().target = m_folder.Path("game");
        GetProcessSettings().startImmediately = true;
        OpenWizard();
        EXPECT_TRUE(Until([this] { return !m_running; })) << Dump();
        m_user.SetSheetReader(nullptr);
        return printed;
    }
    bool m_isSlow = false;
};

TEST_F(HeadlessRun, SaysWhatIsDoneAndEnds) {
    Configure(Offline("patch") + ForOldBuild());
    const std::string plain = Run(false);
    EXPECT_EQ(ReadTarget(), m_new);
    EXPECT_EQ(plain.find('\r'), std::string::npos);
    EXPECT_EQ(plain.substr(plain.rfind('$')), "$velpatch_operation_complete\n");

    WriteTarget(m_old);
    const std::string terminal = Run(true);
    EXPECT_EQ(terminal.find('\r'), 0U);
    const std::string end = "\r$velpatch_operation_complete\x1B[K\n";
    ASSERT_GE(terminal.size(), end.size());
    EXPECT_EQ(terminal.substr(terminal.size() - end.size()), end);
    EXPECT_EQ(TakeNotes().size(), 6U); // relaunch, registry and shortcuts of both
}

TEST_F(HeadlessRun, QuestionsAreAnsweredAndFailuresTold) {
    Configure(Offline("patch") + ForOldBuild());
    WriteData("patch.txt", "velpatch-version 9");
    m_isSlow = true;
    const std::string printed = Run(false, {true, true});
    size_t questions = 0;
    for (size_t at = 0; (at = printed.find("failed_read_source_data", at)) != std::string::npos;
         ++at) {
        ++questions;
    }
    EXPECT_GE(questions, 3U) << printed; // two answers to try again, then "no"
    EXPECT_NE(printed.find("$velpatch_operation_failed\n<"), std::string::npos) << printed;
    EXPECT_EQ(ReadTarget(), m_old);
    WriteData("patch-config.txt", "");
    LoadApplicationConfiguration();
    EXPECT_NE(Run(false).find("<This application is damaged."), std::string::npos);
}

TEST_F(HeadlessRun, AnUninstallThatIsRefusedLeavesTheRegistry) {
    const struct {
        const char* what;
        uint64_t lastFault;
        const char* end;
        std::vector<std::string> notes;
    } kCases[] = {
        {"refused",
         1000,
         "$velpatch_operation_failed\n<Failed to delete some files.",
         {"relaunch?"}},
        {"tried again", 2, "$velpatch_operation_complete\n", {"relaunch?", "registry"}},
    };
    for (const auto& one : kCases) {
        SCOPED_TRACE(one.what);
        ResetProcess();
        GetProcessSettings().uninstall = true;
        Configure("product-name \"Quay Two\"\n");
        WriteTarget(m_old);
        FaultFileDriver driver;
        driver.Fail(FileFault::Busy, 1, one.lastFault, FileOp::RemoveFile, "old.txt");
        const ScopedFileDriver use(driver);
        const std::string printed = Run(false, {true});
        EXPECT_NE(printed.find("UninstallingQuay Two\nFailed to delete some files. Result -9.\n"),
                  std::string::npos)
            << printed;
        EXPECT_NE(printed.find(one.end), std::string::npos) << printed;
        EXPECT_EQ(TakeNotes(), one.notes);
    }
}

TEST_F(HeadlessRun, AnInterruptUndoesTheWork) {
    Configure("");
    FileReply("patch");
    m_server.Hold("/patch.bin");
    VelPatchSettings settings;
    settings.patchControlFile = (m_server.GetBase() + "patch.txt").c_str();
    settings.patchDataFile = (m_server.GetBase() + "patch.bin").c_str();
    SaveSettings(settings, "com.example.quay", m_folder.Path("game"));
    const std::string printed = Run(true);
    m_server.Release();
    EXPECT_EQ(printed.find("complete"), std::string::npos) << printed;
    EXPECT_EQ(ReadTarget(), m_old);
}

TEST_F(HeadlessRun, AFailedRelaunchIsTold) {
    Configure(Offline("patch"));
    m_relaunch = {VelPatchRelaunchResult::Failed, "Unable to relaunch"};
    EXPECT_EQ(Run(false), "<Unable to relaunch>");
}

} // namespace
