// A backend without a screen: windows that are only data, and a user made of calls.
#pragma once

#include "runtime/CXEvent.h"
#include "runtime/CXSafePointer.h"
#include "ui/HeadlessPeer.h"
#include "ui/UIBackend.h"

#include <deque>
#include <functional>
#include <vector>

/// Letters are 7 by 15, so layouts come out the same everywhere. For tests, and for runs where
/// there is no display. Main thread, `Wake` excepted.
///
/// What the user does is queued as the messages that a system would send, in its order, and happens
/// in `RunOne`. A user can't do everything: what is hidden, disabled, read-only or behind a sheet
/// is refused, with the reason in `GetRefusal`; when it becomes impossible only after it was
/// queued, it is dropped then, with the reason there as well.
class HeadlessBackend : public UIBackend {
public:
    HeadlessBackend() = default;
    ~HeadlessBackend() override;

    const char* GetName() const override { return "headless"; }
    std::unique_ptr<UIPeer> Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                 const CXString& name) override;
    void SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) override;
    UIPeer* GetFocus(UIPeer* window) override;
    void PickPath(UIPeer* owner, const UIPickRequest& request,
                  std::function<void(bool chosen, const CXString& path)> done) override;
    /// Kept for `GetBoxes`, and written to stderr.
    void ShowBox(const CXString& text, const CXString& caption) override;
    bool RunOne(int32_t maxWaitMs, UILoopClient& client) override;
    void PostQuit() override;
    void Wake() override { m_wake.Set(); }
    bool IsHighContrast() override { return m_highContrast; }

    // ---- What the user does ----
    // A control is named by its element's name, its text or its accessible name; the active window
    // is looked through first.

    /// Clicks a button or check box.
    bool Press(absl::string_view control);
    /// Clicks into an edit, list or rich text: it has the focus afterwards.
    bool ClickInto(absl::string_view control);
    /// Clicks a line of a list.
    bool ClickLine(absl::string_view list, absl::string_view line, bool twice = false);
    /// Types into what has the focus; refused unless that is an edit that can be changed.
    bool Type(absl::string_view text);
    /// Clicks into an edit, selects all and types.
    bool Fill(absl::string_view edit, absl::string_view text);
    /// Presses a key with the modifiers of `key`.
    bool Key(const UIKey& key);
    bool Key(uint32_t code) { return Key(UIKey{code}); }
    /// Clicks the close button of the active window.
    bool PressClose();
    /// Opens the menu and chooses an item; a disabled one is refused when its turn comes.
    bool ChooseMenu(absl::string_view command);
    /// Brings another window to the front by a click on it.
    bool SwitchTo(absl::string_view window);
    /// Minimises the active window, which stays so until it is raised.
    bool Minimise();
    /// Answers the file dialog that is open, or else the next one. A file that isn't there or isn't
    /// offered, and a folder that isn't there, can't be picked: that cancels.
    void AnswerPick(const CXString& path);
    /// Dialogs that nobody answers are cancelled at once, unless held open.
    void HoldPicks(bool hold) { m_holdPicks = hold; }
    size_t CountPicks() const { return m_picks.size(); }
    /// Another process sends data to the first window; true if it is taken.
    bool SendData(uint64_t tag, absl::string_view bytes);
    /// The user's settings: other letters, strong colours. The windows are told.
    void ChangeAppearance(UISize letterSize, bool highContrast);

    /// Whether all that the user did so far has happened.
    bool IsIdle() const { return m_queue.empty(); }
    /// Why the last refused act couldn't be done; empty if none was refused since the last call.
    CXString GetRefusal();

    // ---- What is to be seen ----

    /// All windows that are shown with all controls that are shown, one a line, in the order of
    /// making; with the rectangles if wanted.
    CXString Dump(bool withRects = false);
    /// The menu bar of the first window, one item a line.
    CXString DumpMenus();
    /// What a look at the screen would find wrong: controls cut off, outside of their window, over
    /// each other, or without a name for assistive technology. One a line; empty: all is well.
    CXString FindFaults();
    /// The control of that name, text or accessible name that is shown; null if none.
    HeadlessPeer* FindShown(absl::string_view control);
    /// Texts of the boxes so far: "caption: text".
    const std::vector<CXString>& GetBoxes() const { return m_boxes; }
    /// The request of the dialog that is open now.
    const UIPickRequest& GetPick() const { return m_picks.front().request; }
    /// Called with the text of each sheet that comes up, as the user reads it.
    void SetSheetReader(std::function<void(const CXString& text)> reader) {
        m_sheetReader = std::move(reader);
    }

    UISize GetLetterSize() const { return m_letterSize; }
    const CXString& GetClipboard() const { return m_clipboard; }
    void SetClipboard(const CXString& text) { m_clipboard = text; }

    // ---- For the peers ----

    /// A window or sheet was shown or hidden.
    void TopShown(HeadlessPeer& top);
    void PeerGone(HeadlessPeer* peer, HeadlessPeer* fallback);
    /// The active window changes now, and its sinks are told by messages.
    void Activate(HeadlessPeer* top);

private:
    struct Message {
        CXSafePointer<HeadlessPeer> target; ///< dropped when this dies; null for keys
        std::function<void(HeadlessPeer& target)> dispatch;
        UIKey key;
        bool isKey = false;
        bool isQuit = false;
    };
    struct Pick {
        CXSafePointer<HeadlessPeer> owner;
        bool hasOwner;
        UIPickRequest request;
        std::function<void(bool chosen, const CXString& path)> done;
    };

    void Queue(HeadlessPeer* target, std::function<void(HeadlessPeer& target)> dispatch);
    bool Refuse(const char* reason, absl::string_view what);
    bool IsBlocked(HeadlessPeer* top);
    /// Whether the user can reach a control now; refuses if not.
    bool CanReach(HeadlessPeer* peer, absl::string_view what);
    void FocusByClick(HeadlessPeer& peer);
    void DispatchKey(const UIKey& key);
    void QueueTyping(absl::string_view text, bool inFront);
    bool AnswerDialog();
    CXString ReadSheet(HeadlessPeer& sheet);
    void AddFaults(HeadlessPeer& peer, std::vector<CXString>& faults);

    UISize m_letterSize{7, 15};
    bool m_highContrast = false;
    bool m_holdPicks = false;
    CXEvent m_wake;
    CXString m_clipboard;
    CXString m_refusal;
    std::vector<CXString> m_boxes;
    std::vector<HeadlessPeer*> m_peers; // in the order of making
    CXSafePointer<HeadlessPeer> m_active;
    std::deque<Message> m_queue;
    std::deque<Pick> m_picks;
    std::deque<CXString> m_answers;
    std::function<void(const CXString& text)> m_sheetReader;
};
