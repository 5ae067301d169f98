// What every backend owes the toolkit. The one without a screen is always tried, the system's own
// where it is to be had (a display, or Windows).
#include "runtime/CXRuntime.h"
#include "runtime/CXThread.h"
#include "ui/HeadlessBackend.h"
#include "ui/UINativeBackend.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Peer = std::unique_ptr<UIPeer>;

/// Counts what it is told.
class CountingSink : public UIPeerSink {
public:
    void PeerAction(UIPeerEvent, int32_t) override { ++calls; }
    void PeerTextChanged() override { ++calls; }
    void PeerCloseAsked() override { ++calls; }
    int calls = 0;
};

class CountingClient : public UILoopClient {
public:
    bool BeforeMessage() override { return !quit; }
    bool Route(const UIMessage&) override { return false; }
    void AfterMessage() override { ++messages; }
    bool quit = false;
    int messages = 0;
};

/// Null for a native backend that this machine can't have. Of that one there is one in a process.
UIBackend* GetBackend(bool isNative) {
    if (isNative) {
        static const std::unique_ptr<UIBackend> s_native = UIMakeNativeBackend();
        return s_native.get();
    }
    static const std::unique_ptr<UIBackend> s_headless = std::make_unique<HeadlessBackend>();
    return s_headless.get();
}

class Backends : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        m_backend = GetBackend(GetParam());
        if (m_backend == nullptr) {
            GTEST_SKIP() << "no display";
        }
        m_window = m_backend->Make(UIKind::Window, nullptr, &m_sink, "window");
        m_window->SetText("Backend test");
        m_window->SetRect({0, 0, 550, 260});
    }
    void TearDown() override {
        m_controls.clear();
        m_window.reset();
        if (m_backend != nullptr) {
            Pump();
        }
    }
    UIPeer& Make(UIKind kind) {
        m_controls.push_back(m_backend->Make(kind, m_window.get(), &m_sink, "control"));
        m_controls.back()->SetAccessibleName("control");
        return *m_controls.back();
    }
    UIPeer& MakeShown(UIKind kind) {
        UIPeer& peer = Make(kind);
        const int32_t top = static_cast<int32_t>(m_controls.size()) * 30;
        peer.SetRect({10, top, 210, top + (kind == UIKind::List ? 90 : 24)});
        peer.SetState(UIPeerState());
        return peer;
    }
    void Pump() {
        for (int step = 0; step < 20; ++step) {
            m_backend->RunOne(2, m_client);
        }
    }

    CXRuntimeScope m_runtime;
    CountingSink m_sink;
    CountingClient m_client;
    UIBackend* m_backend = nullptr;
    Peer m_window;
    std::vector<Peer> m_controls;
};

TEST_P(Backends, KeepWhatTheyAreToldWithoutTellingItBack) {
    m_window->SetState(UIPeerState());
    const struct {
        UIKind kind;
        std::vector<std::pair<int32_t, int32_t>> values; // given, kept
    } kValues[] = {
        {UIKind::Check, {{1, 1}, {0, 0}}},
        {UIKind::Progress, {{0, 0}, {8000, 8000}, {16384, 16384}, {20000, 16384}, {-1, -1}}},
        {UIKind::List, {{-1, -1}, {0, 0}, {2, 2}, {3, -1}, {1, 1}}},
    };
    for (const auto& test : kValues) {
        UIPeer& peer = MakeShown(test.kind);
        if (test.kind == UIKind::List) {
            EXPECT_EQ(peer.GetValue(), -1);
            peer.SetItems({"one", "two & three_four", "vier: \xC3\xA4\xC3\xB6\xC3\xBC"});
        }
        for (const auto& [given, kept] : test.values) {
            peer.SetValue(given);
            Pump();
            EXPECT_EQ(peer.GetValue(), kept) << static_cast<int>(test.kind);
        }
    }
    const std::string texts[] = {"Plain", "", "A & B_C",
                                 "Gr\xC3\xB6\xC3\x9F"
                                 "e \xE2\x82\xAC"};
    for (const UIKind kind : {UIKind::Label, UIKind::Button, UIKind::Check, UIKind::Edit}) {
        UIPeer& peer = MakeShown(kind);
        EXPECT_EQ(peer.GetKind(), kind);
        for (const std::string& text : texts) {
            peer.SetText(CXString(text));
            Pump();
            EXPECT_EQ(std::string(peer.GetText().View()), text) << static_cast<int>(kind);
        }
    }
    UIPeer& secret = MakeShown(UIKind::Edit);
    secret.SetState(UIPeerState{true, true, false, true});
    secret.SetText("secret");
    Pump();
    EXPECT_EQ(secret.GetText(), "secret");
    EXPECT_EQ(m_sink.calls, 0);
}

TEST_P(Backends, MeasureSoThatNothingIsCutOff) {
    UIPeer& label = Make(UIKind::Label);
    label.SetText("Several words that can be broken into lines");
    const UIIntrinsic wide = label.Measure(-1);
    const UIIntrinsic narrow = label.Measure(wide.natural.width / 3);
    EXPECT_TRUE(wide.heightFollowsWidth);
    EXPECT_GT(wide.baseline, 0);
    EXPECT_LE(wide.baseline, wide.natural.height);
    EXPECT_GE(narrow.natural.height, 2 * wide.natural.height);
    EXPECT_LT(narrow.min.width, wide.natural.width / 2);
    EXPECT_EQ(label.Measure(wide.natural.width).natural.height, wide.natural.height);
    label.SetText("one\ntwo\nthree");
    EXPECT_GE(label.Measure(-1).natural.height, 2 * wide.natural.height);

    UIPeer& button = Make(UIKind::Button);
    button.SetText("OK");
    EXPECT_GE(button.Measure(-1).natural.width, 75);
    button.SetText("A text that makes the button wider than the least");
    const UIIntrinsic wideButton = button.Measure(-1);
    EXPECT_GT(wideButton.natural.width, 150);
    EXPECT_EQ(wideButton.min, wideButton.natural);
    EXPECT_EQ(wideButton.natural.height, button.Measure(50).natural.height); // never wraps

    UIPeer& check = Make(UIKind::Check);
    check.SetText("A long text beside a box that may be broken into lines as well");
    const int32_t whole = check.Measure(-1).natural.width;
    EXPECT_GT(check.Measure(whole / 2).natural.height, check.Measure(-1).natural.height);

    UIPeer& bitmap = Make(UIKind::Bitmap);
    const uint8_t kFile[] = {'B', 'M', 66, 0, 0, 0, 0, 0, 0, 0, 54, 0,  0, 0, 40, 0, 0,
                             0,   3,   0,  0, 0, 1, 0, 0, 0, 1, 0,  24, 0, 0, 0,  0, 0,
                             12,  0,   0,  0, 0, 0, 0, 0, 0, 0, 0,  0,  0, 0, 0,  0, 0,
                             0,   0,   0,  1, 2, 3, 4, 5, 6, 7, 8,  9,  0, 0, 0};
    CXBitmap picture;
    ASSERT_EQ(picture.Decode(kFile, sizeof(kFile)), kCXResultOK);
    bitmap.SetImage(picture);
    EXPECT_EQ(bitmap.Measure(-1).natural, (UISize{3, 1}));
    bitmap.SetImage(CXBitmap());
    for (const UIKind kind :
         {UIKind::Edit, UIKind::Progress, UIKind::Spinner, UIKind::List, UIKind::RichText}) {
        const UIIntrinsic measure = Make(kind).Measure(-1);
        EXPECT_GT(measure.min.width, 0) << static_cast<int>(kind);
        EXPECT_GT(measure.min.height, 0) << static_cast<int>(kind);
        EXPECT_LE(measure.min.width, measure.natural.width) << static_cast<int>(kind);
        EXPECT_LE(measure.min.height, measure.natural.height) << static_cast<int>(kind);
    }
}

TEST_P(Backends, TheFocusGoesWhereItIsPut) {
    UIPeer& edit = MakeShown(UIKind::Edit);
    UIPeer& button = MakeShown(UIKind::Button);
    m_window->SetState(UIPeerState());
    Pump();
    edit.Focus(true);
    Pump();
    EXPECT_EQ(m_backend->GetFocus(m_window.get()), &edit);
    button.Focus(false);
    Pump();
    EXPECT_EQ(m_backend->GetFocus(m_window.get()), &button);
    button.SetState(UIPeerState{true, false});
    Pump();
    EXPECT_NE(m_backend->GetFocus(m_window.get()), &button);
    edit.Focus(false);
    m_controls.clear(); // with the focus in one of them
    Pump();
    EXPECT_EQ(m_backend->GetFocus(m_window.get()), nullptr);
}

TEST_P(Backends, SheetsComeAndGoOverTheirWindow) {
    UIPeer& edit = MakeShown(UIKind::Edit);
    m_window->SetState(UIPeerState());
    edit.Focus(false);
    Pump();
    for (int round = 0; round < 3; ++round) {
        Peer sheet = m_backend->Make(UIKind::Sheet, m_window.get(), &m_sink, "sheet");
        sheet->SetRect({0, 0, 300, 100});
        Peer button = m_backend->Make(UIKind::Button, sheet.get(), &m_sink, "button");
        button->SetText("OK");
        button->SetRect({10, 10, 90, 34});
        button->SetState(UIPeerState());
        sheet->SetState(UIPeerState());
        button->Focus(false);
        Pump();
        EXPECT_EQ(m_backend->GetFocus(sheet.get()), button.get());
        edit.SetText("changed below the sheet"); // calls go on as ever
        EXPECT_EQ(edit.GetText(), "changed below the sheet");
        button.reset();
        sheet.reset();
        Pump();
        EXPECT_EQ(m_backend->GetFocus(m_window.get()), &edit);
    }
    EXPECT_EQ(m_sink.calls, 0);
}

TEST_P(Backends, LoopsWakeTickAndQuit) {
    m_window->SetState(UIPeerState());
    Pump();
    EXPECT_GE(m_client.messages, 20); // a tick counts as a message
    const auto start = std::chrono::steady_clock::now();
    std::thread waker([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        m_backend->Wake();
    });
    // Other messages may come before; one of the waits is cut short by the call.
    const auto age = [start] { return std::chrono::steady_clock::now() - start; };
    while (age() < std::chrono::milliseconds(50)) {
        m_backend->RunOne(30000, m_client);
    }
    waker.join();
    EXPECT_LT(age(), std::chrono::seconds(20));
    m_client.quit = true;
    EXPECT_FALSE(m_backend->RunOne(1, m_client));
    m_client.quit = false;
    m_backend->PostQuit();
    int steps = 0;
    while (m_backend->RunOne(10, m_client) && steps < 1000) {
        ++steps;
    }
    EXPECT_LT(steps, 1000);
}

TEST_P(Backends, DialogsOfTheDeadSayNothing) {
    m_window->SetState(UIPeerState());
    Pump();
    int answers = 0;
    m_backend->PickPath(m_window.get(), {}, [&answers](bool, const CXString&) { ++answers; });
    EXPECT_EQ(answers, 0);
    m_window.reset();
    Pump();
    EXPECT_EQ(answers, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, Backends, testing::Bool(),
                         [](const auto& which) { return which.param ? "Native" : "Headless"; });

} // namespace
