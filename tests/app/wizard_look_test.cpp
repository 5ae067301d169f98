// What every page of the wizard looks like with the texts that are shipped.
#include "tests/app/WizardFixture.h"

#include "core/CXLanguages.h"
#include "core/CXStringEdit.h"
#include "stream/CXStreamTools.h"
#include "ui/UIControl.h"

namespace {

class WizardLook : public WizardTest, public testing::WithParamInterface<const char*> {
protected:
    /// Loads the shipped texts of the language, with these keys.
    void Speak(const std::string& keys) {
        CXStringEdit shipped;
        ASSERT_EQ(ReadWholeFile("data/patch-config.txt", shipped, 1 << 20), kCXResultOK);
        OverridePreferredLanguages(std::vector<CXString>{GetParam()});
        const std::string text(shipped.View());
        Configure(keys + text.substr(text.find("\nlocales") + 1));
    }
    void LooksSound(const char* where) {
        Settle();
        EXPECT_STREQ(m_user.FindFaults().GetData(), "") << where << "\n"
                                                        << m_user.Dump(true).View();
    }
};

TEST_P(WizardLook, NoPageIsCutOff) {
    const struct {
        const char* what;
        const char* keys;
        bool uninstall;
        std::vector<int32_t> pages;
    } kRuns[] = {
        {"patcher", "", false, {1, 2, 3, 4}},
        {"installer", "patch-is-installation true\n", false, {0, 1, 2, 3, 4}},
        {"uninstall", "", true, {0, 1}},
    };
    for (const char* picture : {"patch.bmp", "velpatch-background.bmp"}) {
        CXStringEdit bytes;
        ASSERT_EQ(ReadWholeFile((std::string("data/") + picture).c_str(), bytes, 1 << 20),
                  kCXResultOK);
        WriteData(picture, std::string(bytes.View()));
    }
    Reply("", "");
    for (const auto& run : kRuns) {
        GetProcessSettings().uninstall = run.uninstall;
        m_found = m_folder.Path("a folder with quite a long name/and another one/Quay");
        Speak(run.keys);
        OpenWizard();
        EXPECT_TRUE(Shows("Bitmap")) << "the pictures are there";
        for (const int32_t page : run.pages) {
            Wizard()->ShowPage(page);
            LooksSound((std::string(run.what) + " " + std::to_string(page)).c_str());
        }
        m_loop.CloseAll();
    }
}

TEST_P(WizardLook, NoStateOfTheWorkIsCutOff) {
    Speak("patch-is-installation true\n" + Offline("full"));
    const std::string control = m_server.GetApplicationFolder().ReadFile("data/full.txt");
    WriteData("full.txt", "velpatch-version 9");
    m_found = m_folder.Path("new");
    OpenWizard();
    Wizard()->ShowPage(VelPatchWindow::kPatch);
    LooksSound("at first");
    const auto isIn = [this](uint32_t state) {
        return Until([&] { return PatchPage()->GetStatus().state == state; });
    };
    ASSERT_TRUE(isIn(kTaskStatePrompt));
    LooksSound("prompt");
    PatchPage()->AnswerPrompt(false);
    ASSERT_TRUE(isIn(kTaskStateFailed));
    LooksSound("failed");
    ASSERT_TRUE(Did(m_user.Key(kUIKeyEscape)));
    WriteData("full.txt", control);
    Play({"press back"});
    Settle();
    Wizard()->ShowPage(VelPatchWindow::kPatch);
    ASSERT_TRUE(isIn(kTaskStateFinished));
    LooksSound("finished");
    EXPECT_TRUE(PatchPage()->Find("launch")->IsVisible());
}

INSTANTIATE_TEST_SUITE_P(Languages, WizardLook, testing::Values("en-US", "de-DE"));

} // namespace
