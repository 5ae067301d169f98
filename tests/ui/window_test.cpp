// Windows, sheets, messages and the main loop, as a user meets them.
#include "core/CXLocalisation.h"
#include "tests/support/TempFolder.h"
#include "tests/support/UIFixture.h"

#include "runtime/CXWorkerHost.h"
#include "ui/CXFileDialog.h"
#include "ui/CXUIApplication.h"
#include "ui/UIBitmapElement.h"
#include "ui/UIButton.h"
#include "ui/UICheckBox.h"
#include "ui/UICustomControl.h"
#include "ui/UIDescription.h"
#include "ui/UIEditTextControl.h"
#include "ui/UILabel.h"
#include "ui/UIListControl.h"
#include "ui/UIListSheet.h"
#include "ui/UIMessageSheet.h"
#include "ui/UIProgressBar.h"
#include "ui/UIRichTextSheet.h"

namespace {

using Names = std::vector<std::string>;

using Windows = UIFixture;

/// A page that handles one of its messages, and moves on by replacing itself.
class Page : public UICustomControl {
public:
    explicit Page(const CXString& name) : UICustomControl(name) {
        AddNew<UIButton>("next", UIButtonRole::Default)->SetText("Next");
        AddNew<UIEditTextControl>("edit");
    }
    CXResult ProcessMessage(const CXMessage& message) override {
        if (message.GetName() == kUIActionEvent) {
            Post("next-page");
            return kCXResultOK;
        }
        return UICustomControl::ProcessMessage(message);
    }
};

class PagedWindow : public RecordingWindow {
public:
    void Activate() override {
        RecordingWindow::Activate();
        m_page = AddNew<Page>("page 1");
    }
    CXResult ProcessMessage(const CXMessage& message) override {
        if (message.Is("next-page")) {
            Remove(m_page);
            m_page = AddNew<Page>("page 2");
            return kCXResultOK;
        }
        return RecordingWindow::ProcessMessage(message);
    }

private:
    UIElement* m_page = nullptr;
};

TEST_F(Windows, MessagesBubbleToTheFirstThatHandlesThem) {
    PagedWindow* window = Open<PagedWindow>();
    EXPECT_TRUE(Did(m_user.Fill("edit", "ab")));
    EXPECT_EQ(window->Take(), (Names{"UIEditTextControl::text-changed from edit",
                                     "UIEditTextControl::text-changed from edit"}));
    window->Find("edit")->AsControl()->SetText("by program");
    Settle();
    EXPECT_EQ(window->Take(), Names{});
    // The page goes while a message of its button is on its way, and the focus finds a new home.
    EXPECT_EQ(window->Find("page 2"), nullptr);
    EXPECT_TRUE(Did(m_user.Press("next")));
    EXPECT_EQ(window->Find("page 1"), nullptr);
    EXPECT_NE(window->Find("page 2"), nullptr);
    EXPECT_TRUE(Shows("Button \"Next\" default focus"));
    EXPECT_TRUE(Shows("Edit \"edit\": \"\""));
}

TEST_F(Windows, StatesCountThroughAllThatAnElementIsIn) {
    RecordingWindow* window = Open<RecordingWindow>();
    UICustomControl* panel = window->AddNew<UICustomControl>("panel");
    UIButton* button = panel->AddNew<UIButton>("b", UIButtonRole::Default);
    button->SetText("B");
    Settle();
    EXPECT_TRUE(Shows("Button \"B\" default focus"));
    panel->SetEnabled(false);
    EXPECT_TRUE(Shows("Button \"B\" default disabled"));
    EXPECT_FALSE(Did(m_user.Press("B")));
    button->Press();
    EXPECT_EQ(window->Take(), Names{});
    panel->SetEnabled(true);
    Settle();
    EXPECT_TRUE(Shows("Button \"B\" default focus")); // it has its focus back
    panel->SetShown(false);
    EXPECT_FALSE(Shows("Button"));
    EXPECT_FALSE(Did(m_user.Press("B")));
    panel->SetShown(true);
    panel->SetRect({100, 50, 300, 200});
    button->SetRect({10, 5, 90, 28});
    EXPECT_EQ(m_user.FindShown("b")->GetRect(), (UIRect{110, 55, 190, 78}));
    // An act that was possible when it was begun, and is not when its turn comes.
    m_user.Press("B");
    button->SetEnabled(false);
    EXPECT_FALSE(Did(true));
    EXPECT_EQ(window->Take(), Names{});
}

TEST_F(Windows, AUserCantDoEverything) {
    RecordingWindow* window = Open<RecordingWindow>();
    window->AddNew<UIEditTextControl>("edit")->SetText("\xC3\xA4");
    window->AddNew<UIEditTextControl>("fixed")->SetReadOnly(true);
    window->AddNew<UIListControl>("list")->SetItems({"one"});
    window->AddNew<UILabel>("label")->SetText("Label");
    window->AddNew<UIButton>("hidden")->SetShown(false);
    Settle();
    EXPECT_TRUE(Did(m_user.ClickInto("edit")));
    EXPECT_TRUE(Did(m_user.Type("b\xE2\x82\xAC")));
    EXPECT_TRUE(Did(m_user.Key(kUIKeyBackspace))); // a whole letter
    EXPECT_EQ(window->Find("edit")->AsControl()->GetText(), "\xC3\xA4"
                                                            "b");
    window->Find("edit")->ProcessMessage(CXMessage("edit-undo"));
    EXPECT_EQ(window->Find("edit")->AsControl()->GetText(), "\xC3\xA4"
                                                            "b\xE2\x82\xAC");
    window->Take();
    EXPECT_TRUE(Did(m_user.ClickInto("fixed"))); // to copy from
    const std::pair<const char*, std::function<bool()>> kActs[] = {
        {"type into what is read-only", [this] { return m_user.Type("x"); }},
        {"fill what is read-only", [this] { return m_user.Fill("fixed", "x"); }},
        {"press what is hidden", [this] { return m_user.Press("hidden"); }},
        {"press a text", [this] { return m_user.Press("Label"); }},
        {"click into a text", [this] { return m_user.ClickInto("label"); }},
        {"press nothing", [this] { return m_user.Press("nothing"); }},
        {"choose what isn't listed", [this] { return m_user.ClickLine("list", "two"); }},
        {"choose from no menu", [this] { return m_user.ChooseMenu("edit-copy"); }},
    };
    for (const auto& [what, act] : kActs) {
        EXPECT_FALSE(Did(act())) << what;
    }
    EXPECT_EQ(window->Take(), Names{});
}

TEST_F(Windows, TasksAndWorkersGoOnUnderASheetThatTakesTheInput) {
    PagedWindow* window = Open<PagedWindow>();
    UIElement* page = window->Find("page 1");
    UIMessageSheet::Ask(
        page, "Stop?",
        {{"Quit", "answer", UIButtonRole::None}, {"Continue", "answer", UIButtonRole::Cancel}});
    Settle();
    EXPECT_TRUE(Shows("Sheet \"Test\" 406x77 active\n  Label \"Stop?\"\n  Button \"Quit\" focus\n"
                      "  Button \"Continue\"\n"));
    EXPECT_TRUE(Shows("Window \"Test\" 400x300 blocked"));
    EXPECT_FALSE(Did(m_user.Press("next")));
    EXPECT_FALSE(Did(m_user.ClickInto("edit")));
    bool worked = false;
    CXWorkerHost::GetSingleton()->PostJob([page, &worked] {
        CXWorkerHost::GetSingleton()->PostToMain(page, [&worked] { worked = true; });
    });
    EXPECT_TRUE(Until([&worked] { return worked; }));
    window->Post("meanwhile");
    EXPECT_TRUE(Did(m_user.Press("Quit")));
    EXPECT_EQ(window->Take(), (Names{"meanwhile from Test", "answer=0"}));
    EXPECT_FALSE(Shows("Sheet"));
    EXPECT_TRUE(Shows("Button \"Next\" default focus"));
    CXWorkerHost::DeleteSingleton();
}

TEST_F(Windows, SheetsEndByAnyOfTheirWays) {
    RecordingWindow* window = Open<RecordingWindow>();
    const auto ask = [&](UIButtonRole role) {
        UIMessageSheet::Ask(window, "?",
                            {{"One", "asked", UIButtonRole::Default}, {"Two", "asked", role}});
        Settle();
    };
    const struct {
        const char* what;
        UIButtonRole role;
        std::function<bool()> act;
        Names answer;
    } kCases[] = {
        {"press", UIButtonRole::None, [this] { return m_user.Press("Two"); }, {"asked=1"}},
        {"enter", UIButtonRole::None, [this] { return m_user.Key(kUIKeyEnter); }, {"asked=0"}},
        {"escape", UIButtonRole::Cancel, [this] { return m_user.Key(kUIKeyEscape); }, {"asked=1"}},
        {"escape alone", UIButtonRole::None, [this] { return m_user.Key(kUIKeyEscape); }, {}},
        {"close", UIButtonRole::Cancel, [this] { return m_user.PressClose(); }, {"asked=1"}},
        {"close alone", UIButtonRole::None, [this] { return m_user.PressClose(); }, {}},
    };
    for (const auto& test : kCases) {
        ask(test.role);
        EXPECT_TRUE(Did(test.act())) << test.what;
        EXPECT_EQ(window->Take(), test.answer) << test.what;
        EXPECT_FALSE(m_service.HasSheet()) << test.what;
    }
    UIMessageSheet::Tell(window, "Only one button", "told");
    EXPECT_TRUE(Did(true));
    EXPECT_TRUE(Did(m_user.Key(kUIKeyEscape)));
    EXPECT_EQ(window->Take(), Names{"told=0"});
    // On nobody's behalf, and over nothing: the window stays usable.
    UIMessageSheet::Tell(nullptr, "For all");
    EXPECT_TRUE(Did(true));
    EXPECT_FALSE(Shows("blocked"));
    EXPECT_TRUE(Did(m_user.Press("OK")));
}

TEST_F(Windows, SheetsOverSheetsGoWithTheWindowBelow) {
    RecordingWindow* window = Open<RecordingWindow>();
    auto licence = std::make_unique<UIRichTextSheet>(
        "licence", window,
        std::vector<UISheetButton>{{"I Agree", "agreed", UIButtonRole::Default},
                                   {"Decline", "", UIButtonRole::Cancel}});
    UISheet* below = licence.get();
    UISheet::Show(std::move(licence));
    UIMessageSheet::Tell(window, "First", "first");
    UIMessageSheet::Tell(below, "Second", "second");
    Settle();
    EXPECT_FALSE(Did(m_user.Press("I Agree")));
    EXPECT_TRUE(Did(m_user.Press("OK")));
    EXPECT_TRUE(Shows("First"));
    EXPECT_FALSE(Shows("Second"));
    window->ProcessMessage(CXMessage(CXUIWindow::kForceClose));
    Settle();
    EXPECT_EQ(Dump(), "");
    EXPECT_TRUE(m_service.GetWindows().empty());
}

TEST_F(Windows, TheListSheetGivesTheIdOfTheChoice) {
    RecordingWindow* window = Open<RecordingWindow>();
    const auto show = [&](const char* selected) {
        UISheet::Show(std::make_unique<UIListSheet>(
            window, "Choose", std::vector<UIListSheet::Entry>{{"s", "Stable"}, {"t", "Testing"}},
            selected, "picked"));
        Settle();
    };
    show("t");
    EXPECT_TRUE(Shows("List \"Stable\" >\"Testing\" focus"));
    EXPECT_TRUE(Did(m_user.Key(kUIKeyUp)));
    EXPECT_TRUE(Did(m_user.Key(kUIKeyEnter)));
    show("t");
    EXPECT_TRUE(Did(m_user.ClickLine("choices", "Testing", true)));
    show("t");
    EXPECT_TRUE(Did(m_user.Press("Cancel")));
    show("unknown");
    EXPECT_FALSE(Did(m_user.Press("OK"))); // nothing to take
    EXPECT_TRUE(Did(m_user.ClickLine("choices", "Testing")));
    EXPECT_TRUE(Did(m_user.Press("OK")));
    EXPECT_EQ(window->Take(), (Names{"picked=s", "picked=t", "picked=t"}));
}

TEST_F(Windows, LongMessagesScroll) {
    RecordingWindow* window = Open<RecordingWindow>();
    std::string text;
    for (int line = 0; line < 200; ++line) {
        text += "line\n";
    }
    UIMessageSheet::Tell(window, CXString(text));
    EXPECT_TRUE(Did(true));
    EXPECT_FALSE(Shows("Label"));
    EXPECT_STREQ(m_user.FindFaults().GetData(), "");
    EXPECT_LT(UIHeight(m_user.FindShown("OK")->GetParent()->GetRect()), 450);
}

TEST_F(Windows, FileDialogsAnswerLaterAndOnlyToTheLiving) {
    const TempFolder folder;
    folder.WriteFile("Game.exe", "x");
    folder.WriteFile("readme.txt", "x");
    PagedWindow* window = Open<PagedWindow>();
    Names answers;
    const auto pick = [&](bool isFolder) {
        UIPickRequest request;
        request.folder = isFolder;
        request.fileName = isFolder ? "" : "game.EXE";
        CXFileDialog::Pick(*window->Find("page 1"), request,
                           [&](CXResult result, const CXString& path) {
                               answers.push_back(std::to_string(result) + " " +
                                                 std::string(CXString(path).View()));
                           });
        EXPECT_TRUE(answers.empty()); // never before Pick has returned
        Settle();
        return std::exchange(answers, {});
    };
    EXPECT_EQ(pick(false), Names{"-16 "}); // nobody answers: cancelled
    m_user.AnswerPick(folder.Path("Game.exe"));
    EXPECT_EQ(pick(false), Names{"0 " + std::string(folder.Path("Game.exe").View())});
    m_user.AnswerPick(folder.Path("readme.txt"));
    EXPECT_EQ(pick(false), Names{"-16 "});
    m_user.AnswerPick(folder.Path());
    EXPECT_EQ(pick(true), Names{"0 " + std::string(folder.Path().View())});
    m_user.GetRefusal();
    m_user.HoldPicks(true);
    EXPECT_EQ(pick(true), Names{});
    EXPECT_FALSE(Did(m_user.Press("next"))); // the dialog lies over it
    window->Post("next-page");               // the page that asked goes
    Settle();
    m_user.AnswerPick(folder.Path());
    Settle();
    EXPECT_EQ(answers, Names{});
    EXPECT_EQ(m_user.CountPicks(), 0U);
}

TEST_F(Windows, DescriptionsMakeElements) {
    SetLocalisedString("$test_name", "Name:");
    RecordingWindow* window = Open<RecordingWindow>();
    auto page = std::make_unique<UICustomControl>("page");
    UIDescription::LoadText(*page, R"(
constraints {{{
name.left = parent.left + 10
name.top = parent.top + 10
name.width = name.content-width
edit.left = name.right + padding
edit.right = parent.right - 10
edit.top = name.top
next.right = edit.right
next.top = edit.bottom + 5
}}}
children
{
    name { type "label" text "$test_name" label-for "edit" }
    edit { type "edit" masked "true" }
    check { type "check" text "plain" checked "true" hidden "true" }
    next { type "button" role "default" text "Next" disabled "true" }
    odd { type "wheel" }
}
)");
    page->SetRect({0, 0, 400, 300});
    EXPECT_TRUE(page->Find<UICheckBox>("check")->IsChecked());
    EXPECT_EQ(page->Find<UILabel>("edit"), nullptr);
    window->Add(std::move(page));
    Settle();
    EXPECT_EQ(std::string(m_user.Dump(true).View()),
              "Window \"Test\" 400x300 active\n"
              "  Label \"Name:\" (10,10 35x15)\n"
              "  Edit \"Name:\": 0 letters masked focus (53,10 337x23)\n"
              "  Button \"Next\" default disabled (315,38 75x23)\n");
    window->Find<UICheckBox>("check")->SetShown(true);
    EXPECT_TRUE(Did(m_user.Press("plain")));
    EXPECT_FALSE(window->Find<UICheckBox>("check")->IsChecked());
    ClearLocalisedStrings();
}

TEST_F(Windows, LayoutFollowsTextsAndLetters) {
    RecordingWindow* window = Open<RecordingWindow>("Test", UISize{200, 300});
    auto page = std::make_unique<UICustomControl>("page");
    UIDescription::LoadText(*page, R"(
constraints {{{
text.left = parent.left
text.right = parent.right
text.top = parent.top
below.left = parent.left
below.top = text.bottom
}}}
children
{
    text { type "label" text "short" }
    below { type "label" text "x" }
}
)");
    page->SetRect({0, 0, 200, 300});
    window->Add(std::move(page));
    Settle();
    const auto top = [this] { return m_user.FindShown("below")->GetRect().top; };
    EXPECT_EQ(top(), 15);
    window->Find<UILabel>("text")->SetText("forty letters that can't stand in a line");
    Settle();
    EXPECT_EQ(top(), 30);
    window->Find("text")->SetShown(false);
    Settle();
    EXPECT_EQ(top(), 0);
    // A page that asks for its layouts itself.
    UIElement* holder = window->Find("page");
    UIAlignmentHints hints;
    hints.noUpdateOnChildChange = true;
    holder->SetHints(hints);
    window->Find("text")->SetShown(true);
    Settle();
    EXPECT_EQ(top(), 0);
    holder->InvalidateLayout();
    Settle();
    EXPECT_EQ(top(), 30);
    UIBitmapElement* picture = window->AddNew<UIBitmapElement>("picture");
    picture->SetDecoration(true);
    EXPECT_TRUE(Shows("Bitmap"));
    m_user.ChangeAppearance({14, 30}, true);
    Settle();
    EXPECT_EQ(top(), 120);
    EXPECT_FALSE(Shows("Bitmap")); // nothing lies behind texts in strong colours
    EXPECT_STREQ(m_user.FindFaults().GetData(), "");
}

TEST_F(Windows, TheApplicationClosesAndRaisesWindows) {
    CXUIApplication application;
    RecordingWindow* first = Open<RecordingWindow>("First");
    Open<RecordingWindow>("Second");
    EXPECT_EQ(m_service.GetFrontWindow()->GetTitle(), "Second");
    EXPECT_TRUE(Did(m_user.SwitchTo("First")));
    EXPECT_EQ(m_service.GetFrontWindow(), first);
    EXPECT_TRUE(Did(m_user.Minimise()));
    EXPECT_TRUE(Shows("Window \"First\" minimised"));
    application.ProcessMessage(CXMessage("bring-window-to-front"));
    EXPECT_FALSE(Shows("minimised"));
    application.ProcessMessage(CXMessage("close-front-window"));
    Settle();
    EXPECT_FALSE(Shows("First"));
    EXPECT_EQ(m_service.GetFrontWindow()->GetTitle(), "Second");
    application.ProcessMessage(CXMessage(CXMenuManager::kQuitApplication));
    EXPECT_TRUE(Shows("Second")); // closed by a posted message
    Settle();
    EXPECT_EQ(Dump(), "");
    EXPECT_FALSE(m_quit);
    application.ProcessMessage(CXMessage(CXMenuManager::kQuitApplication));
    EXPECT_TRUE(m_quit);
    EXPECT_FALSE(m_loop.RunOne(0));
}

TEST_F(Windows, AQuitDropsTheMessageThatComesAfterIt) {
    RecordingWindow* window = Open<RecordingWindow>();
    window->AddNew<UIButton>("b");
    EXPECT_TRUE(m_user.Press("b"));
    m_quit = true;
    EXPECT_FALSE(m_loop.RunOne(0));
    EXPECT_EQ(window->Take(), Names{});
    m_quit = false;
    m_user.Press("b");
    m_user.PostQuit();
    EXPECT_TRUE(m_loop.RunOne(0)); // what came before it is handled
    EXPECT_FALSE(m_loop.RunOne(0));
    EXPECT_EQ(window->Take().size(), 1U);
}

/// Doesn't close when it is told to.
class StubbornWindow : public RecordingWindow {
public:
    CXResult ProcessMessage(const CXMessage& message) override {
        asked += message.GetName() == kForceClose ? 1 : 0;
        return kCXResultCancelled;
    }
    static inline int asked = 0;
};

TEST_F(Windows, NothingOutlivesTheLoop) {
    Open<RecordingWindow>();
    Open<StubbornWindow>();
    UIMessageSheet::Tell(m_service.GetFrontWindow(), "Still open");
    Settle();
    m_loop.CloseAll();
    EXPECT_EQ(StubbornWindow::asked, 1);
    EXPECT_TRUE(m_service.GetWindows().empty());
    EXPECT_EQ(m_service.GetFrontWindow(), nullptr);
    EXPECT_EQ(Dump(), "");
}

TEST_F(Windows, ASheetFromTheSetUpComesOverItsWindow) {
    struct Worried : RecordingWindow {
        void Activate() override {
            RecordingWindow::Activate();
            UIMessageSheet::Tell(this, "Something is wrong.", "told");
        }
    };
    CXUIWindow* window = m_service.Open(std::make_unique<Worried>());
    EXPECT_EQ(m_service.GetFrontWindow(), m_service.GetTopOf(window));
    EXPECT_TRUE(Did(m_user.Key(kUIKeyEnter)));
    EXPECT_EQ(static_cast<RecordingWindow*>(window)->Take(), Names{"told=0"});
}

TEST_F(Windows, AWindowMayCloseWhileItIsSetUp) {
    struct Hasty : RecordingWindow {
        void Activate() override {
            RecordingWindow::Activate();
            Close();
        }
    };
    EXPECT_EQ(m_service.Open(std::make_unique<Hasty>()), nullptr);
    Settle();
    EXPECT_TRUE(m_service.GetWindows().empty());
}

} // namespace
