// The backend that shows its windows through GTK 3. Private to the backend's files.
#pragma once

#include "ui/UIBackend.h"
#include "ui/UIBackendGtkLibrary_posix.h"

#include <atomic>
#include <set>
#include <vector>

class UIPeerGtkWindow;

/// What every peer has: its widget, its sink and a place in a window.
class UIPeerGtk : public UIPeer {
public:
    UIPeerGtk(UIKind kind, UIPeerSink* sink, UIPeerGtkWindow* window)
        : m_kind(kind), m_sink(sink), m_window(window) {}
    ~UIPeerGtk() override;

    UIKind GetKind() const override { return m_kind; }
    void SetText(const CXString& text) override { m_text = text; }
    CXString GetText() override { return m_text; }
    void SetValue(int32_t) override {}
    int32_t GetValue() override { return 0; }
    void SetRect(const UIRect& rect) override;
    void SetState(const UIPeerState& state) override;
    void SetDefaultLook(bool) override {}
    void SetItems(const std::vector<CXString>&) override {}
    void SetRichText(const UIRichText&) override {}
    void SetImage(const CXBitmap&) override {}
    void SetAccessibleName(const CXString& name) override;
    UIIntrinsic Measure(int32_t forWidth) override;
    void Focus(bool selectAll) override;

    GtkWidget* GetWidget() const { return m_widget; }
    UIPeerSink* GetSink() const { return m_sink; }
    UIPeerGtkWindow* GetWindow() const { return m_window; }
    const UIRect& GetRect() const { return m_rect; }
    /// The peer whose widget this is, or is inside of; null if none is.
    static UIPeerGtk* OfWidget(GtkWidget* widget);

protected:
    /// Takes the widget: `outer` is what stands in the window, `control` what is named and takes
    /// the focus (the same, or inside it).
    void Adopt(GtkWidget* outer, GtkWidget* control, const CXString& name);
    /// GTK's own wishes for the widget, also while it is hidden, in logical units.
    UIIntrinsic MeasureWidget();
    /// The size of text in the control's font; `forWidth` in logical units, -1: as wide as it is.
    UIIntrinsic MeasureText(const CXString& text, int32_t forWidth);
    /// Lets the label wrap as MeasureText measures.
    static void WrapLabel(GtkLabel* label);

    /// While one lives, signals are of our own making and are not told to the sink.
    class Quiet {
    public:
        explicit Quiet(UIPeerGtk& peer) : m_peer(peer) { ++m_peer.m_quiet; }
        ~Quiet() { --m_peer.m_quiet; }
        Quiet(const Quiet&) = delete;
        Quiet& operator=(const Quiet&) = delete;

    private:
        UIPeerGtk& m_peer;
    };
    bool IsQuiet() const { return m_quiet != 0; }

    UIKind m_kind;
    UIPeerSink* m_sink;
    UIPeerGtkWindow* m_window; ///< the window or sheet it stands in; null for those
    GtkWidget* m_widget = nullptr;
    GtkWidget* m_control = nullptr;
    CXString m_text;
    UIRect m_rect;
    UIPeerState m_state{false, true, false, false};

private:
    int32_t m_quiet = 0;
};

/// A window or sheet.
class UIPeerGtkWindow final : public UIPeerGtk {
public:
    UIPeerGtkWindow(UIKind kind, UIPeerGtkWindow* parent, UIPeerSink* sink, const CXString& name);
    ~UIPeerGtkWindow() override;

    void SetText(const CXString& text) override;
    void SetRect(const UIRect& rect) override;
    void SetState(const UIPeerState& state) override;
    UIIntrinsic Measure(int32_t) override { return {}; }
    void Focus(bool selectAll) override;
    void Raise() override;
    bool IsMinimised() override { return m_minimised; }

    void SetMenus(const std::vector<UIMenu>& menus);
    UIPeer* GetFocus();
    void Add(UIPeerGtk* peer, bool passThrough);
    void Remove(UIPeerGtk* peer);
    GtkWindow* GetNative() const { return reinterpret_cast<GtkWindow*>(m_widget); }
    /// Asks for a layout pass: some peer got another rectangle.
    void QueueLayout();
    /// Puts everything anew after a change of the scale, and tells the sink.
    void MetricsChanged();

private:
    struct MenuEntry {
        UIPeerGtkWindow* window;
        CXString command;
        GtkWidget* widget;
    };

    void FitSize();
    bool UpdateMenus(const std::vector<UIMenu>& menus);
    void BuildMenus(const std::vector<UIMenu>& menus);
    static gboolean OnChildPosition(GtkOverlay*, GtkWidget* child, GdkRectangle* out, void* data);
    static gboolean OnDelete(GtkWidget*, GdkEvent*, void* data);
    static gboolean OnStateEvent(GtkWidget*, GdkEventWindowState* event, void* data);
    static gboolean OnMapped(GtkWidget*, GdkEvent*, void* data);
    static void OnActive(GObject*, GParamSpec*, void* data);
    static void OnMenuShown(GtkWidget*, void* data);
    static void OnMenuChosen(GtkMenuItem*, void* data);

    UIPeerGtkWindow* m_parent;
    GtkWidget* m_box = nullptr;
    GtkWidget* m_overlay = nullptr;
    GtkWidget* m_canvas = nullptr;
    GtkWidget* m_menuBar = nullptr;
    std::vector<UIMenu> m_menus;
    std::vector<std::unique_ptr<MenuEntry>> m_menuEntries;
    std::vector<GtkWidget*> m_menuTitles;
    std::set<UIPeerGtk*> m_peers;
    bool m_minimised = false;
    bool m_updatingMenus = false;
};

/// Makes a control; `kind` is neither Window nor Sheet.
std::unique_ptr<UIPeerGtk> UIMakeGtkControl(UIKind kind, UIPeerGtkWindow* window, UIPeerSink* sink,
                                            const CXString& name);

/// The backend itself.
class UIBackendGtk final : public UIBackend {
public:
    UIBackendGtk();
    ~UIBackendGtk() override;

    const char* GetName() const override { return "gtk"; }
    std::unique_ptr<UIPeer> Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                 const CXString& name) override;
    void SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) override;
    UIPeer* GetFocus(UIPeer* window) override;
    void PickPath(UIPeer* owner, const UIPickRequest& request,
                  std::function<void(bool, const CXString&)> done) override;
    void ShowBox(const CXString& text, const CXString& caption) override;
    bool RunOne(int32_t maxWaitMs, UILoopClient& client) override;
    void PostQuit() override { m_quitPosted = true; }
    void Wake() override;
    bool IsHighContrast() override;

    /// Pixels of GTK to one logical unit, from the text size that the user set.
    static double GetScale();
    /// Called as a window appears or goes.
    static void Register(UIPeerGtkWindow* window, bool present);

private:
    struct Pick {
        UIBackendGtk* backend;
        UIPeerGtkWindow* owner;
        GtkWidget* dialog;
        std::function<void(bool, const CXString&)> done;
    };

    void HandleEvent(GdkEvent* event);
    void WithoutEvent(UILoopClient& client);
    void DropPicks(UIPeerGtkWindow* owner);
    static void OnEvent(GdkEvent* event, void* data);
    static gboolean OnTimeout(void* data);
    static void OnPicked(GtkDialog*, int response, void* data);
    static void OnLookChanged(GObject*, GParamSpec*, void* data);

    static UIBackendGtk* s_backend;
    static double s_scale;

    std::set<UIPeerGtkWindow*> m_windows;
    std::vector<std::unique_ptr<Pick>> m_picks;
    UILoopClient* m_client = nullptr;
    bool m_handled = false; ///< an event went through since RunOne began
    bool m_goOn = true;     ///< what RunOne is to answer
    bool m_timedOut = false;
    bool m_quitPosted = false;
    std::atomic<bool> m_woken{false};
};
