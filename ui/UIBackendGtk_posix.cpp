#include "ui/UIBackendGtk_posix.h"

#include "core/CXFileSystem.h"
#include "ui/UINativeBackend.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

// Heights near those of the systems' plain dialogs: the wizard's window is small, and themes for
// touch screens would not fit into it.
constexpr const char* kCompactStyle = "button{min-height:20px;padding:2px 10px}"
                                      "entry{min-height:26px;padding:0 6px}"
                                      "progressbar trough,progressbar progress{min-height:14px}"
                                      "list row{padding:2px 6px}";

// A drain of what waits, when the caller doesn't want to wait itself, ends after so many steps:
// a running animation always has one more.
constexpr int kMostIdleSteps = 64;

uint32_t KeyCode(guint value) {
    if (value >= GDK_KEY_a && value <= GDK_KEY_z) {
        return 'A' + (value - GDK_KEY_a);
    }
    if ((value >= GDK_KEY_A && value <= GDK_KEY_Z) || (value >= GDK_KEY_0 && value <= GDK_KEY_9)) {
        return value; // both are ASCII
    }
    if (value >= GDK_KEY_F1 && value <= GDK_KEY_F12) {
        return kUIKeyF1 + (value - GDK_KEY_F1);
    }
    switch (value) {
    case GDK_KEY_BackSpace:
        return kUIKeyBackspace;
    case GDK_KEY_Tab:
    case GDK_KEY_KP_Tab:
    case GDK_KEY_ISO_Left_Tab:
        return kUIKeyTab;
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
    case GDK_KEY_ISO_Enter:
        return kUIKeyEnter;
    case GDK_KEY_Shift_L:
    case GDK_KEY_Shift_R:
        return kUIKeyShift;
    case GDK_KEY_Control_L:
    case GDK_KEY_Control_R:
        return kUIKeyControl;
    case GDK_KEY_Alt_L:
    case GDK_KEY_Alt_R:
        return kUIKeyAlt;
    case GDK_KEY_Escape:
        return kUIKeyEscape;
    case GDK_KEY_space:
    case GDK_KEY_KP_Space:
        return kUIKeySpace;
    case GDK_KEY_Page_Up:
    case GDK_KEY_KP_Page_Up:
        return kUIKeyPageUp;
    case GDK_KEY_Page_Down:
    case GDK_KEY_KP_Page_Down:
        return kUIKeyPageDown;
    case GDK_KEY_End:
    case GDK_KEY_KP_End:
        return kUIKeyEnd;
    case GDK_KEY_Home:
    case GDK_KEY_KP_Home:
        return kUIKeyHome;
    case GDK_KEY_Left:
    case GDK_KEY_KP_Left:
        return kUIKeyLeft;
    case GDK_KEY_Up:
    case GDK_KEY_KP_Up:
        return kUIKeyUp;
    case GDK_KEY_Right:
    case GDK_KEY_KP_Right:
        return kUIKeyRight;
    case GDK_KEY_Down:
    case GDK_KEY_KP_Down:
        return kUIKeyDown;
    case GDK_KEY_Insert:
    case GDK_KEY_KP_Insert:
        return kUIKeyInsert;
    case GDK_KEY_Delete:
    case GDK_KEY_KP_Delete:
        return kUIKeyDelete;
    default:
        return kUIKeyNone;
    }
}

UIPeerGtkWindow* TopOf(UIPeer* peer) {
    auto* found = static_cast<UIPeerGtk*>(peer);
    if (found == nullptr) {
        return nullptr;
    }
    return found->GetWindow() != nullptr ? found->GetWindow()
                                         : static_cast<UIPeerGtkWindow*>(found);
}

/// Whether an open menu of the window, or a sheet or dialog over it, takes its input. Each window
/// has a group with a grab of its own, so the grab of the default group says nothing.
bool IsGrabbed(const UIPeerGtkWindow& window) {
    GtkWidget* grab =
        GTK::gtk_window_group_get_current_grab(GTK::gtk_window_get_group(window.GetNative()));
    return grab != nullptr &&
           (GTK::gtk_widget_get_toplevel(grab) != window.GetWidget() ||
            GTK::g_type_check_instance_is_a(&grab->parent_instance.g_type_instance,
                                            GTK::gtk_menu_shell_get_type()));
}

/// The message that an event is, for the loop's client.
UIMessage MessageOf(const GdkEvent* event) {
    UIMessage message;
    message.native = event;
    gpointer owner = nullptr;
    if (event->any.window != nullptr) {
        GTK::gdk_window_get_user_data(event->any.window, &owner);
    }
    if (owner == nullptr) {
        return message;
    }
    GtkWidget* top = GTK::gtk_widget_get_toplevel(static_cast<GtkWidget*>(owner));
    auto* window = static_cast<UIPeerGtkWindow*>(UIPeerGtk::OfWidget(top));
    if (window == nullptr) {
        return message;
    }
    if (IsGrabbed(*window)) {
        return message;
    }
    message.window = window;
    message.focus = window->GetFocus();
    if (event->type == GDK_KEY_PRESS) {
        message.isKeyDown = true;
        message.key.code = KeyCode(event->key.keyval);
        message.key.shift = (event->key.state & GDK_SHIFT_MASK) != 0;
        message.key.control = (event->key.state & GDK_CONTROL_MASK) != 0;
        message.key.alt = (event->key.state & GDK_MOD1_MASK) != 0;
    }
    return message;
}

/// The nearest folder at or above the path that exists; empty if none does.
CXString NearestFolder(CXString path) {
    while (!path.IsEmpty() && !CXFileSystem::IsDirectory(path)) {
        const CXString above = CXFileSystem::GetParent(path.View());
        if (above == path) {
            return CXString();
        }
        path = above;
    }
    return path;
}

} // namespace

UIBackendGtk* UIBackendGtk::s_backend = nullptr;
double UIBackendGtk::s_scale = 1.0;

std::unique_ptr<UIBackend> UIMakeNativeBackend() {
    const char* x11 = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    if ((x11 == nullptr || *x11 == 0) && (wayland == nullptr || *wayland == 0)) {
        return nullptr;
    }
    if (!UILoadGTK()) {
        return nullptr;
    }
    // The process stays in the "C" locale: numbers in data never follow the user's.
    GTK::gtk_disable_setlocale();
    if (!GTK::gtk_init_check(nullptr, nullptr)) {
        return nullptr;
    }
    return std::make_unique<UIBackendGtk>();
}

UIBackendGtk::UIBackendGtk() {
    s_backend = this;
    GtkCssProvider* style = GTK::gtk_css_provider_new();
    GTK::gtk_css_provider_load_from_data(style, kCompactStyle, -1, nullptr);
    GTK::gtk_style_context_add_provider_for_screen(GTK::gdk_screen_get_default(),
                                                   reinterpret_cast<GtkStyleProvider*>(style),
                                                   GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    GTK::g_object_unref(style);
    for (const char* setting :
         {"notify::gtk-xft-dpi", "notify::gtk-font-name", "notify::gtk-theme-name"}) {
        GTK::Connect(GTK::gtk_settings_get_default(), setting, OnLookChanged, this);
    }
    OnLookChanged(nullptr, nullptr, this);
    // Every event passes here before any widget sees it.
    GTK::gdk_event_handler_set(OnEvent, this, nullptr);
}

UIBackendGtk::~UIBackendGtk() {
    DropPicks(nullptr);
    GTK::Disconnect(GTK::gtk_settings_get_default(), this);
    GTK::gdk_event_handler_set([](GdkEvent* event, void*) { GTK::gtk_main_do_event(event); },
                               nullptr, nullptr);
    s_backend = nullptr;
}

double UIBackendGtk::GetScale() {
    return s_scale;
}

void UIBackendGtk::OnLookChanged(GObject*, GParamSpec*, void* data) {
    gint dots = -1; // per inch, in 1024ths
    GTK::g_object_get(GTK::gtk_settings_get_default(), "gtk-xft-dpi", &dots, nullptr);
    s_scale = dots > 0 ? std::clamp(dots / 1024.0 / 96.0, 0.5, 4.0) : 1.0;
    auto* self = static_cast<UIBackendGtk*>(data);
    const std::set<UIPeerGtkWindow*> windows = self->m_windows;
    for (UIPeerGtkWindow* window : windows) {
        if (self->m_windows.count(window) != 0) {
            window->MetricsChanged();
        }
    }
}

void UIBackendGtk::Register(UIPeerGtkWindow* window, bool present) {
    if (s_backend == nullptr) {
        return;
    }
    if (present) {
        s_backend->m_windows.insert(window);
    } else {
        s_backend->m_windows.erase(window);
        s_backend->DropPicks(window);
    }
}

std::unique_ptr<UIPeer> UIBackendGtk::Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                           const CXString& name) {
    if (kind == UIKind::Window || kind == UIKind::Sheet) {
        return std::make_unique<UIPeerGtkWindow>(kind, TopOf(parent), sink, name);
    }
    return UIMakeGtkControl(kind, TopOf(parent), sink, name);
}

void UIBackendGtk::SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) {
    if (window != nullptr && window->GetKind() == UIKind::Window) {
        static_cast<UIPeerGtkWindow*>(window)->SetMenus(menus);
    }
}

UIPeer* UIBackendGtk::GetFocus(UIPeer* window) {
    UIPeerGtkWindow* top = TopOf(window);
    return top != nullptr ? top->GetFocus() : nullptr;
}

void UIBackendGtk::PickPath(UIPeer* owner, const UIPickRequest& request,
                            std::function<void(bool, const CXString&)> done) {
    UIPeerGtkWindow* top = TopOf(owner);
    const char* title = request.prompt.GetData();
    if (request.prompt.IsEmpty()) {
        title = nullptr;
    }
    GtkWidget* dialog = GTK::gtk_file_chooser_dialog_new(
        title, top != nullptr ? top->GetNative() : nullptr,
        request.folder ? GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER : GTK_FILE_CHOOSER_ACTION_OPEN,
        nullptr, nullptr);
    // GTK brings texts of its own for these two, in the user's language.
    GTK::gtk_dialog_add_button(reinterpret_cast<GtkDialog*>(dialog), "gtk-cancel",
                               GTK_RESPONSE_CANCEL);
    GTK::gtk_dialog_add_button(reinterpret_cast<GtkDialog*>(dialog),
                               request.folder ? "gtk-ok" : "gtk-open", GTK_RESPONSE_ACCEPT);
    GTK::gtk_dialog_set_default_response(reinterpret_cast<GtkDialog*>(dialog), GTK_RESPONSE_ACCEPT);
    auto* chooser = reinterpret_cast<GtkFileChooser*>(dialog);
    GTK::gtk_file_chooser_set_create_folders(chooser, request.folder);
    const CXString start = NearestFolder(request.startFolder);
    if (!start.IsEmpty()) {
        GTK::gtk_file_chooser_set_current_folder(chooser, start.GetData());
    }
    if (!request.fileName.IsEmpty()) {
        GtkFileFilter* filter = GTK::gtk_file_filter_new();
        GTK::gtk_file_filter_set_name(filter, request.fileName.GetData());
        GTK::gtk_file_filter_add_pattern(filter, request.fileName.GetData());
        GTK::gtk_file_chooser_add_filter(chooser, filter);
    }
    GTK::gtk_window_set_modal(reinterpret_cast<GtkWindow*>(dialog), TRUE);
    m_picks.push_back(std::make_unique<Pick>(Pick{this, top, dialog, std::move(done)}));
    GTK::Connect(dialog, "response", OnPicked, m_picks.back().get());
    GTK::gtk_widget_show(dialog);
}

void UIBackendGtk::OnPicked(GtkDialog* dialog, int response, void* data) {
    auto* pick = static_cast<Pick*>(data);
    bool chosen = response == GTK_RESPONSE_ACCEPT;
    CXString path;
    if (chosen) {
        char* name = GTK::gtk_file_chooser_get_filename(reinterpret_cast<GtkFileChooser*>(dialog));
        chosen = name != nullptr;
        if (chosen) {
            path = CXFileSystem::FromForeignPath(name);
            GTK::g_free(name);
        }
    }
    auto& picks = pick->backend->m_picks;
    const auto found = std::find_if(picks.begin(), picks.end(),
                                    [&](const auto& entry) { return entry.get() == pick; });
    const std::unique_ptr<Pick> ended = std::move(*found);
    picks.erase(found);
    GTK::gtk_widget_destroy(ended->dialog);
    ended->done(chosen, path);
}

void UIBackendGtk::DropPicks(UIPeerGtkWindow* owner) {
    for (size_t i = m_picks.size(); i-- > 0;) {
        if (owner == nullptr || m_picks[i]->owner == owner) {
            GTK::Disconnect(m_picks[i]->dialog, m_picks[i].get());
            GTK::gtk_widget_destroy(m_picks[i]->dialog);
            m_picks.erase(m_picks.begin() + static_cast<ptrdiff_t>(i));
        }
    }
}

void UIBackendGtk::ShowBox(const CXString& text, const CXString& caption) {
    GtkWidget* box = GTK::gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_WARNING,
                                                 GTK_BUTTONS_CLOSE, "%s", text.GetData());
    GTK::gtk_window_set_title(reinterpret_cast<GtkWindow*>(box), caption.GetData());
    GTK::gtk_dialog_run(reinterpret_cast<GtkDialog*>(box));
    GTK::gtk_widget_destroy(box);
}

bool UIBackendGtk::RunOne(int32_t maxWaitMs, UILoopClient& client) {
    UILoopClient* const outer = m_client;
    m_client = &client;
    m_handled = false;
    m_goOn = true;
    m_timedOut = maxWaitMs <= 0;
    guint timer = 0;
    if (!m_timedOut) {
        timer = GTK::g_timeout_add(static_cast<guint>(maxWaitMs), OnTimeout, this);
    }
    for (int step = 0; !m_handled; ++step) {
        // What waits goes before a quit message and before a wake-up that nobody has seen yet.
        const bool mayWait = !m_timedOut && !m_quitPosted && !m_woken;
        const bool didSomething = GTK::g_main_context_iteration(nullptr, mayWait) != FALSE;
        if (m_handled || (didSomething && !m_timedOut) || (didSomething && step < kMostIdleSteps)) {
            continue;
        }
        if (m_quitPosted) {
            m_quitPosted = false;
            m_goOn = false;
            break;
        }
        if (m_timedOut || m_woken.exchange(false)) {
            WithoutEvent(client);
            break;
        }
    }
    if (timer != 0 && !m_timedOut) {
        GTK::g_source_remove(timer);
    }
    m_client = outer;
    return m_goOn;
}

gboolean UIBackendGtk::OnTimeout(void* data) {
    static_cast<UIBackendGtk*>(data)->m_timedOut = true;
    return FALSE; // once
}

void UIBackendGtk::WithoutEvent(UILoopClient& client) {
    m_handled = true;
    if (!client.BeforeMessage()) {
        m_goOn = false;
        return;
    }
    client.Route(UIMessage());
    client.AfterMessage();
}

void UIBackendGtk::OnEvent(GdkEvent* event, void* data) {
    static_cast<UIBackendGtk*>(data)->HandleEvent(event);
}

void UIBackendGtk::HandleEvent(GdkEvent* event) {
    UILoopClient* client = m_client;
    if (client == nullptr) { // a box outside of the loop
        GTK::gtk_main_do_event(event);
        return;
    }
    m_handled = true;
    if (!client->BeforeMessage()) {
        m_goOn = false;
        return;
    }
    if (!client->Route(MessageOf(event))) {
        GTK::gtk_main_do_event(event);
    }
    client->AfterMessage();
}

void UIBackendGtk::Wake() {
    m_woken = true;
    GTK::g_main_context_wakeup(nullptr);
}

bool UIBackendGtk::IsHighContrast() {
    gchar* theme = nullptr;
    GTK::g_object_get(GTK::gtk_settings_get_default(), "gtk-theme-name", &theme, nullptr);
    const bool strong = theme != nullptr &&
                        absl::string_view(theme).find("HighContrast") != absl::string_view::npos;
    GTK::g_free(theme);
    return strong;
}
