// The one seam between the window's elements and the system's controls.
//
// A backend makes peers: one native control each. All logic that can be shared stands above this
// header: the tree of elements, layout, focus order, what keys do, menus' command states, sheets.
// A backend draws, measures, turns what the user does into calls of the sink, and waits.
//
// Threads: everything here is for the main thread, `UIBackend::Wake` excepted.
//
// Units: logical (see UITypes.h). A backend multiplies by the scale of the window, rounds each edge
// for itself (so that neighbours that touch still touch) and, when the scale changes, puts its
// peers anew by their last rectangles before it calls `PeerMetricsChanged`.
//
// Texts: UTF-8, shown as they are; "\n" breaks lines in labels, everywhere else it is a blank. No
// character is a mnemonic mark.
//
// Ownership: an element owns its peer; deleting a peer removes the control from the screen. The
// children of a window or sheet are deleted before it, and a sheet before the window it hangs on.
// A sink outlives its peer.
//
// Re-entrancy: a sink may do anything before it returns, which includes deleting the peer that
// called it and that peer's window, making and showing others, and `PostQuit`. A backend touches
// nothing of the peer after a call. The other way round, nothing that the toolkit calls on a
// peer or backend calls a sink before it returns: SetText on an edit isn't a text change, SetValue
// on a list isn't a selection, Focus and Raise tell of the activation later, as a message of its
// own in `RunOne`.
#pragma once

#include "ui/CXBitmap.h"
#include "ui/UIRichText.h"
#include "ui/UITypes.h"

#include <functional>
#include <memory>
#include <vector>

/// Which control a peer is; its accessible role follows from it.
enum class UIKind : uint8_t {
    /// A top-level window of fixed size with title, close and minimise buttons. No parent.
    Window,
    /// A dialog over a window or another sheet, or (parent null) over nothing. It is a top-level
    /// window of its own without a minimise button, centred over its parent, always above it.
    /// While it is shown, its parent (and that one's parents) take no mouse, key, menu or close
    /// button, but paint, measure and follow all calls as ever: it looks modal and blocks nothing.
    /// When it is hidden or deleted, its parent becomes active, with the focus where it was.
    Sheet,
    /// Text on the window's background, not focusable. Left and top aligned, wraps at its width.
    Label,
    /// A push button, one line of text in the middle. Focusable.
    Button,
    /// A check box with text beside it, which wraps. Focusable.
    Check,
    /// One line of editable text. Focusable, also when read-only.
    Edit,
    /// A bar with a value of 0 to 16,384; -1: something moves along it, without a measure.
    Progress,
    /// A small sign that turns as long as it is shown.
    Spinner,
    /// A picture of the size of its pixels in logical units, stretched to its rectangle.
    Bitmap,
    /// A framed, read-only, scrolling view of styled text on the text background. Focusable;
    /// arrows, Page Up, Page Down, Home and End scroll it, text can be selected and copied.
    RichText,
    /// A framed, scrolling list of one-line entries of which one or none is selected. Focusable.
    List,
};

/// What the user did with a control. Called after the control shows the new state.
enum class UIPeerEvent : uint8_t {
    Pressed,  ///< Button (value 0); Check (value: the new state, 0 or 1: it has toggled by itself)
    Selected, ///< List: value is the index that is selected now, -1: none
    Chosen,   ///< List: an entry was double-clicked; Selected, if it changed, came before
};

/// Receives what the user does. The base does nothing, so that an element overrides what its
/// control can say.
class UIPeerSink {
public:
    virtual ~UIPeerSink() = default;
    virtual void PeerAction(UIPeerEvent, int32_t) {}
    /// Edit: the user changed the text (typed, pasted, undid); it is new already.
    virtual void PeerTextChanged() {}
    /// Window, Sheet: the close button, Alt+F4 or the like. The backend closes nothing by itself.
    virtual void PeerCloseAsked() {}
    /// Window, Sheet: it became, or is no longer, the active one.
    virtual void PeerActivated(bool) {}
    /// Window: the user is about to look into a menu; `UIBackend::SetMenus` may be called at once,
    /// with the same menus and other states.
    virtual void PeerMenusOpening() {}
    /// Window: an enabled menu item was chosen.
    virtual void PeerMenu(const CXString&) {}
    /// Window, Sheet: measures may have changed (the user's text size, contrast, scale).
    virtual void PeerMetricsChanged() {}
    /// Window: another process sent data (WM_COPYDATA on Windows). True accepts it, the sender then
    /// sees the answer 1, else 0. `bytes` is as sent.
    virtual bool PeerCopyData(uint64_t, absl::string_view) { return false; }
};

/// A word of a label that is wider than this (logical pixels), as a path without blanks is, may be
/// broken: it doesn't widen the label's least size.
inline constexpr int32_t kUILongestWord = 200;

/// Bits of `UIPeer::DlgCode`, with the values of WM_GETDLGCODE.
inline constexpr uint32_t kUIDlgWantsArrows = 1;
inline constexpr uint32_t kUIDlgWantsTab = 2;
inline constexpr uint32_t kUIDlgWantsAllKeys = 4;
inline constexpr uint32_t kUIDlgHasSelection = 8;
inline constexpr uint32_t kUIDlgButton = 0x2000;
inline constexpr uint32_t kUIDlgStatic = 0x100;

/// What a control of this kind answers: edits want arrows and have a selection, lists and rich text
/// want arrows, buttons and check boxes say that they are buttons, the rest is static. Nobody
/// wants Tab or all keys, so that the whole window works by keyboard.
uint32_t UIStandardDlgCode(UIKind kind);
/// Whether two menu bars differ in the items' texts and states alone, so that what is on the screen
/// can be brought up to date in place.
bool UISameMenuShape(const std::vector<UIMenu>& one, const std::vector<UIMenu>& other);
/// Whether controls of this kind take the focus (when shown and enabled).
bool UIKindIsFocusable(UIKind kind);

/// One native control. It is made hidden, enabled, without text, value 0 (List: -1), rectangle
/// empty, and shows when told. Calls that don't fit the kind do nothing.
class UIPeer {
public:
    virtual ~UIPeer() = default;
    UIPeer() = default;
    UIPeer(const UIPeer&) = delete;
    UIPeer& operator=(const UIPeer&) = delete;

    virtual UIKind GetKind() const = 0;

    /// Window, Sheet: the title. Label, Button, Check, Edit: the text. Same text: no flicker, and
    /// an edit keeps its cursor; another text puts the cursor of an edit at the end.
    virtual void SetText(const CXString& text) = 0;
    /// Edit: what stands in it now, unmasked; others: the last `SetText`.
    virtual CXString GetText() = 0;
    /// Check: 0, 1. Progress: 0 to 16,384, or -1. List: the selected index (scrolled into view), or
    /// -1. Out of range is clamped (a list: -1).
    virtual void SetValue(int32_t value) = 0;
    virtual int32_t GetValue() = 0;
    /// Where it stands in its window. Window, Sheet: only the size counts, it is that of the client
    /// area without menu bar and frame; the first time that it is shown a window stands in the
    /// middle of the screen, a sheet in the middle of its parent.
    virtual void SetRect(const UIRect& rect) = 0;
    /// Showing a window or sheet activates it. A control that has the focus and is hidden or
    /// disabled loses it to nobody; the toolkit gives it to another.
    virtual void SetState(const UIPeerState& state) = 0;
    /// Button: the look of the one that Enter presses. No more than a look.
    virtual void SetDefaultLook(bool isDefault) = 0;
    /// List: replaces all entries; nothing is selected afterwards.
    virtual void SetItems(const std::vector<CXString>& items) = 0;
    /// RichText: replaces the text and scrolls to its beginning.
    virtual void SetRichText(const UIRichText& text) = 0;
    /// Bitmap: shows a copy of the picture; an empty one shows nothing.
    virtual void SetImage(const CXBitmap& image) = 0;
    /// The name that assistive technology reads (an edit has the text of its label). Buttons and
    /// labels are read by their text unless this is set; never empty for a focusable control.
    virtual void SetAccessibleName(const CXString& name) = 0;

    /// What the control would like to measure with its present text and font; works while hidden.
    /// `forWidth` is the width at which text wraps, -1: as wide as it likes.
    /// Label, Check: `natural` is the wrapped size, `min.width` that of the longest word,
    /// `heightFollowsWidth` set. Button: `min` equals `natural`, frame and some air included, and
    /// at least 75 wide. Edit: one line with its frame, natural width 160, min 60. Progress:
    /// 160 by about 16. Spinner: square, about 20. Bitmap: the pixels. RichText, List: min 80 by
    /// 60, natural 320 by 160. Window, Sheet: nothing.
    virtual UIIntrinsic Measure(int32_t forWidth) = 0;

    /// Gives it the keyboard focus (and makes its window the one that has it once it is active);
    /// `selectAll` selects the text of an edit. Window, Sheet: no control has the focus.
    virtual void Focus(bool selectAll) = 0;
    /// What keys it wants for itself, as WM_GETDLGCODE answers.
    virtual uint32_t DlgCode() { return UIStandardDlgCode(GetKind()); }
    /// Edit, RichText: whether the command could do something now, and doing it. A masked edit
    /// copies nothing. An edit that is changed by it calls `PeerTextChanged` as after typing (the
    /// one exception to the rule on re-entrancy above).
    virtual bool CanEdit(UIEditCommand) { return false; }
    virtual void DoEdit(UIEditCommand) {}

    /// Window, Sheet: brings it to the front and activates it, out of the minimised state too.
    virtual void Raise() {}
    virtual bool IsMinimised() { return false; }
};

/// A native message on its way to its control.
struct UIMessage {
    UIPeer* window = nullptr; ///< top-most parent (Window or Sheet) of what it is for; may be null
    UIPeer* focus = nullptr;  ///< control that has the focus in that window; null: none or foreign
    bool isKeyDown = false;   ///< `key` says which (Windows: WM_KEYDOWN and not WM_SYSKEYDOWN)
    UIKey key;
    const void* native = nullptr; ///< MSG*, GdkEvent* or whatever the backend has; may be null
};

/// The main loop's side of `UIBackend::RunOne`.
class UILoopClient {
public:
    virtual ~UILoopClient() = default;
    /// A message was fetched. False: the loop is to end; drop it.
    virtual bool BeforeMessage() = 0;
    /// Asked of every message before its control sees it. True: consumed, the control never does.
    /// While a menu or the like is open that takes the keys, those are not key messages here.
    virtual bool Route(const UIMessage& message) = 0;
    /// The message is done with, consumed or dispatched. Steps tasks, so anything may happen.
    virtual void AfterMessage() = 0;
};

/// Makes peers and waits for messages.
class UIBackend {
public:
    virtual ~UIBackend() = default;
    UIBackend() = default;
    UIBackend(const UIBackend&) = delete;
    UIBackend& operator=(const UIBackend&) = delete;

    /// "headless", "gtk", "win32".
    virtual const char* GetName() const = 0;

    /// Makes a control in `parent`, which is a Window or Sheet; for those it is what they hang on
    /// (Window: null; Sheet: Window, Sheet or null). Controls made later lie above earlier ones.
    /// `sink` isn't owned. `name` tells it from its siblings in tests and in accessibility
    /// tools; it is never shown and need not be unique.
    virtual std::unique_ptr<UIPeer> Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                         const CXString& name) = 0;

    /// Gives a Window its menu bar, or none. The same menus and items with other texts or states
    /// replace the old ones without flicker. Shortcuts are shown beside the items, as the
    /// system writes them, but must not act: the toolkit routes keys.
    virtual void SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) = 0;

    /// The control of this Window or Sheet that has the keyboard focus, or gets it as soon as the
    /// window is the active one; null when no control of ours has it.
    virtual UIPeer* GetFocus(UIPeer* window) = 0;

    /// Shows the system's dialog for a file or folder over `owner` (Window, Sheet or null), which
    /// is blocked meanwhile as by a sheet. Returns at once, and nothing is shown before it has
    /// returned. `done` is called once, from `RunOne`: true with the absolute program path ("/" as
    /// separator), or false when the user cancelled. It is dropped when the owner dies first.
    virtual void PickPath(UIPeer* owner, const UIPickRequest& request,
                          std::function<void(bool chosen, const CXString& path)> done) = 0;

    /// A plain box with one button that waits for the user. Only where no loop runs: before the
    /// first window, and after the last. Where the system has none, the text goes to stderr.
    virtual void ShowBox(const CXString& text, const CXString& caption) = 0;

    /// Takes and handles one message, waiting for it at most `maxWaitMs` (0: not at all):
    /// 1. fetch; none in time counts as a message without window (as a timer's would);
    /// 2. the quit message: return false;
    /// 3. `BeforeMessage` says false: drop it, return false;
    /// 4. `Route` says false: translate and dispatch it, which calls sinks;
    /// 5. `AfterMessage`, once; return true.
    /// While the system runs a loop of its own (an open menu, a window being dragged, a dialog of
    /// `PickPath`), a timer of the backend calls `AfterMessage` every 10 ms, so that tasks go on.
    virtual bool RunOne(int32_t maxWaitMs, UILoopClient& client) = 0;
    /// Puts the quit message behind those that wait.
    virtual void PostQuit() = 0;
    /// Lets a waiting `RunOne` come back at once. Any thread.
    virtual void Wake() = 0;

    /// True when the user wants the system's strong colours: pictures behind text are left out.
    virtual bool IsHighContrast() { return false; }
};
