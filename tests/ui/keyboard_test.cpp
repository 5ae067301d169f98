// What keys do, for every kind of control that may have the focus.
#include "tests/support/UIFixture.h"

#include "runtime/CXTaskHost.h"
#include "ui/CXUIApplication.h"
#include "ui/UIButton.h"
#include "ui/UICheckBox.h"
#include "ui/UIEditTextControl.h"
#include "ui/UILabel.h"
#include "ui/UIListControl.h"
#include "ui/UIMessageSheet.h"

namespace {

using Names = std::vector<std::string>;

class Keyboard : public UIFixture {
protected:
    Keyboard() : m_window(Open<RecordingWindow>()) {
        m_window->AddNew<UILabel>("label");
        m_window->AddNew<UIEditTextControl>("user");
        m_window->AddNew<UIEditTextControl>("fixed")->SetReadOnly(true);
        m_window->AddNew<UICheckBox>("check");
        m_window->AddNew<UIListControl>("list")->SetItems({"one", "two", "three"});
        m_window->AddNew<UIButton>("back", UIButtonRole::Cancel);
        m_window->AddNew<UIButton>("other");
        m_window->AddNew<UIButton>("next", UIButtonRole::Default);
        m_window->AddNew<UIButton>("second", UIButtonRole::Default);
        Settle();
    }
    void FocusOn(const char* name) {
        m_window->Find(name)->AsControl()->Focus();
        Settle();
    }
    std::string Focused() {
        UIControl* focus = m_window->GetFocus();
        return focus != nullptr ? std::string(focus->GetName().View()) : std::string("none");
    }
    std::string PressKey(const UIKey& key) {
        m_user.Key(key);
        Settle();
        return Focused();
    }

    RecordingWindow* m_window;
};

/// A control with wishes of its own.
class WishfulPeer : public HeadlessPeer {
public:
    WishfulPeer(HeadlessBackend& backend, UIPeerSink* sink, uint32_t wishes)
        : HeadlessPeer(backend, UIKind::Edit, nullptr, sink, "wishful"), m_wishes(wishes) {}
    uint32_t DlgCode() override { return m_wishes; }

private:
    uint32_t m_wishes;
};

TEST_F(Keyboard, ControlsKeepTheKeysThatTheyAskFor) {
    constexpr uint32_t kNothing = 0, kArrows = 1, kTab = 2, kAll = 4, kSelection = 8;
    const struct {
        uint32_t key;
        uint32_t keepsBy; // any of these wishes leaves the key to the control
    } kRules[] = {
        {kUIKeyTab, kTab | kAll},     {kUIKeyLeft, kArrows | kAll},
        {kUIKeyUp, kArrows | kAll},   {kUIKeyRight, kArrows | kAll},
        {kUIKeyDown, kArrows | kAll}, {kUIKeyEnter, kAll},
        {kUIKeyEscape, kAll},         {kUIKeySpace, 0xFF},
        {kUIKeyHome, 0xFF},           {'A', 0xFF},
    };
    for (const auto& rule : kRules) {
        for (const uint32_t wishes : {kNothing, kArrows, kTab, kAll, kSelection}) {
            UIPeerSink sink;
            WishfulPeer focus(m_user, &sink, wishes);
            UIMessage message;
            message.window = m_window->GetPeer();
            message.focus = &focus;
            message.isKeyDown = true;
            message.key.code = rule.key;
            const bool kept = rule.keepsBy == 0xFF || (wishes & rule.keepsBy) != 0;
            EXPECT_EQ(m_loop.Route(message), !kept) << rule.key << " with " << wishes;
        }
    }
}

TEST_F(Keyboard, TabGoesAroundTheControlsThatCanBeUsed) {
    m_window->Find("other")->SetEnabled(false);
    m_window->Find("second")->SetShown(false);
    const Names kStops = {"user", "fixed", "check", "list", "back", "next"};
    FocusOn("user");
    for (size_t step = 1; step <= kStops.size(); ++step) {
        EXPECT_EQ(PressKey({kUIKeyTab}), kStops[step % kStops.size()]);
    }
    for (size_t step = kStops.size(); step-- > 0;) {
        EXPECT_EQ(PressKey({kUIKeyTab, true}), kStops[step]);
    }
    // Nothing focused: Tab begins at the first, Shift+Tab at the last.
    m_window->GetPeer()->Focus(false);
    UIMessage message;
    message.window = m_window->GetPeer();
    message.isKeyDown = true;
    message.key = {kUIKeyTab, true};
    EXPECT_TRUE(m_loop.Route(message));
    EXPECT_EQ(Focused(), "next");
    m_window->GetPeer()->Focus(false);
    message.key = {kUIKeyTab};
    EXPECT_TRUE(m_loop.Route(message));
    EXPECT_EQ(Focused(), "user");
}

TEST_F(Keyboard, TabSelectsTheTextOfAnEdit) {
    static_cast<UIControl*>(m_window->Find("user"))->SetText("old");
    FocusOn("second");
    PressKey({kUIKeyTab});
    EXPECT_TRUE(Did(m_user.Type("new")));
    EXPECT_EQ(m_window->Find("user")->AsControl()->GetText(), "new");
}

TEST_F(Keyboard, ArrowsMoveAmongButtonsAndInsideOfLists) {
    FocusOn("back");
    EXPECT_EQ(PressKey({kUIKeyRight}), "other");
    EXPECT_EQ(PressKey({kUIKeyDown}), "next");
    EXPECT_EQ(PressKey({kUIKeyLeft}), "other");
    EXPECT_EQ(PressKey({kUIKeyUp}), "back");
    EXPECT_EQ(PressKey({kUIKeyUp}), "back"); // what comes before isn't a button
    m_window->Take();
    FocusOn("list");
    PressKey({kUIKeyDown});
    PressKey({kUIKeyDown});
    PressKey({kUIKeyUp});
    EXPECT_EQ(m_window->Take(), (Names{"UIListControl::selection-changed=0 from list",
                                       "UIListControl::selection-changed=1 from list",
                                       "UIListControl::selection-changed=0 from list"}));
}

TEST_F(Keyboard, EnterAndEscapePressTheFirstButtonOfTheirRole) {
    const Names kNext = {"action-event from next"};
    const Names kBack = {"action-event from back"};
    for (const char* focus : {"user", "check", "list", "other", "second"}) {
        FocusOn(focus);
        PressKey({kUIKeyEnter});
        EXPECT_EQ(m_window->Take(), kNext) << focus;
        PressKey({kUIKeyEscape});
        EXPECT_EQ(m_window->Take(), kBack) << focus;
    }
    // The first one counts even when it can't be pressed, and the key is used up by it.
    m_window->Find("next")->SetEnabled(false);
    PressKey({kUIKeyEnter});
    EXPECT_EQ(m_window->Take(), Names{});
    // Space presses what has the focus.
    FocusOn("other");
    PressKey({kUIKeySpace});
    FocusOn("check");
    PressKey({kUIKeySpace});
    EXPECT_EQ(m_window->Take(), (Names{"action-event from other", "action-event=1 from check"}));
}

TEST_F(Keyboard, TasksRunAfterEachMessageButAPressOfAButton) {
    struct Counter : CXTask {
        Counter() : CXTask("Counter") {}
        ~Counter() override { Detach(); }
        void Proc() override { ++count; }
        int count = 0;
    } counter;
    CXTaskHost::GetCurrent()->AddTask(&counter);
    m_loop.RunOne(0);
    const int before = counter.count;
    EXPECT_GT(before, 0);
    FocusOn("user");
    const int focused = counter.count;
    for (const uint32_t key : {kUIKeyEnter, kUIKeyEscape}) {
        m_user.Key(key);
        m_loop.RunOne(0);
    }
    EXPECT_EQ(counter.count, focused);
    m_user.Key(kUIKeyTab);
    m_loop.RunOne(0);
    EXPECT_EQ(counter.count, focused + 1);
}

TEST_F(Keyboard, HooksSeeWhatIsLeftBeforeTheMenus) {
    Names seen;
    bool takes = false;
    m_loop.SetPreTranslate([&](const UIMessage& message) {
        if (message.isKeyDown) {
            seen.push_back(std::to_string(message.key.code));
        }
        return takes;
    });
    m_service.GetMenuManager().SetMenus({{"M", {{"my-command", "C", 'K', true}}}});
    FocusOn("user");
    PressKey({kUIKeyTab});
    PressKey({'K', false, true});
    takes = true;
    PressKey({'K', false, true});
    EXPECT_EQ(seen, (Names{"75", "75"}));
}

/// Knows two commands.
class Commander : public CXUIApplication {
public:
    CXResult ProcessMessage(const CXMessage& message) override {
        if (UICommandStatus* status = CXMenuManager::GetStatus(message)) {
            status->enabled = status->command != "never";
            return kCXResultOK;
        }
        done.push_back(std::string(message.GetName().View()));
        return kCXResultOK;
    }
    Names done;
};

class Menus : public UIFixture {
protected:
    Menus() {
        m_service.GetMenuManager().SetMenus({{"A", {{"plain", "P", 'P'}, {"never", "N", 'N'}}},
                                             {"B",
                                              {{"shifted", "S", 'P' + kUIMenuShift},
                                               {"both", "B", 'P' + kUIMenuShift + kUIMenuAlt},
                                               {"edit-copy", "C", 'C'},
                                               {"edit-paste", "V", 'V'}}}});
        auto window = std::make_unique<CXUIWindow>("window");
        window->AddNew<UIEditTextControl>("edit")->SetText("text");
        window->AddNew<UIEditTextControl>("secret")->SetMasked(true);
        m_window = m_service.Open(std::move(window));
        Settle();
    }
    Commander m_commander;
    CXUIWindow* m_window;
};

TEST_F(Menus, ShortcutsGoByAllTheirModifiers) {
    const struct {
        UIKey key;
        Names done;
    } kCases[] = {
        {{'P', false, true, false}, {"plain"}},    {{'P', true, true, false}, {"shifted"}},
        {{'P', true, true, true}, {"both"}},       {{'P', false, true, true}, {}},
        {{'P', false, false, false}, {}},          {{'N', false, true, false}, {}},
        {{kUIKeyControl, false, true, false}, {}},
    };
    for (const auto& test : kCases) {
        m_user.Key(test.key);
        Settle();
        EXPECT_EQ(std::exchange(m_commander.done, {}), test.done) << test.key.code;
    }
    UIMessageSheet::Tell(m_window, "Below is blocked.");
    Settle();
    m_user.Key({'P', false, true});
    Settle();
    EXPECT_EQ(m_commander.done, Names{});
    EXPECT_FALSE(m_user.ChooseMenu("plain"));
}

TEST_F(Menus, EditCommandsActOnTheFocusAndSaySoInTheMenu) {
    EXPECT_TRUE(Did(m_user.ClickInto("edit")));
    EXPECT_FALSE(Did(m_user.ChooseMenu("edit-copy"))); // nothing selected
    UIControl* edit = m_window->Find("edit")->AsControl();
    edit->ProcessMessage(CXMessage("edit-select-all"));
    m_user.Key({'C', false, true}); // the shortcut asks for the state as well
    Settle();
    EXPECT_EQ(m_user.GetClipboard(), "text");
    m_user.SetClipboard("");
    EXPECT_TRUE(Did(m_user.ChooseMenu("edit-copy")));
    EXPECT_EQ(m_user.GetClipboard(), "text");
    EXPECT_TRUE(Did(m_user.ClickInto("secret")));
    m_user.Key({'V', false, true});
    Settle();
    UIControl* secret = m_window->Find("secret")->AsControl();
    EXPECT_EQ(secret->GetText(), "text");
    secret->ProcessMessage(CXMessage("edit-select-all"));
    EXPECT_FALSE(Did(m_user.ChooseMenu("edit-copy"))); // a password stays where it is
    EXPECT_TRUE(Did(m_user.ChooseMenu("shifted")));
    EXPECT_FALSE(Did(m_user.ChooseMenu("never")));
    EXPECT_EQ(m_commander.done, (Names{"UIEditTextControl::text-changed", "shifted"}));
}

} // namespace
