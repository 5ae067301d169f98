#include "ui/UIBackendGtk_posix.h"

#include <algorithm>
#include <cmath>

namespace {

int Pixels(int32_t logical) {
    return static_cast<int>(std::lround(logical * UIBackendGtk::GetScale()));
}

/// GDK's number of a menu's shortcut key.
guint KeyValue(uint32_t shortcut) {
    const uint32_t code = shortcut & 0xffff;
    if (code >= 'A' && code <= 'Z') {
        return GDK_KEY_a + (code - 'A');
    }
    if (code >= kUIKeyF1 && code < kUIKeyF1 + 12) {
        return GDK_KEY_F1 + (code - kUIKeyF1);
    }
    switch (code) {
    case kUIKeyDelete:
        return GDK_KEY_Delete;
    case kUIKeyInsert:
        return GDK_KEY_Insert;
    default:
        return code; // digits are the same
    }
}

void ShowShortcut(GtkWidget* item, uint32_t shortcut) {
    if (shortcut == 0) {
        return;
    }
    auto* label =
        reinterpret_cast<GtkAccelLabel*>(GTK::gtk_bin_get_child(reinterpret_cast<GtkBin*>(item)));
    unsigned modifiers = GDK_CONTROL_MASK;
    if ((shortcut & kUIMenuShift) != 0) {
        modifiers |= GDK_SHIFT_MASK;
    }
    if ((shortcut & kUIMenuAlt) != 0) {
        modifiers |= GDK_MOD1_MASK;
    }
    GTK::gtk_accel_label_set_accel(label, KeyValue(shortcut),
                                   static_cast<GdkModifierType>(modifiers));
}

} // namespace

UIPeerGtkWindow::UIPeerGtkWindow(UIKind kind, UIPeerGtkWindow* parent, UIPeerSink* sink,
                                 const CXString& name)
    : UIPeerGtk(kind, sink, nullptr), m_parent(parent) {
    GtkWidget* window = GTK::gtk_window_new(GTK_WINDOW_TOPLEVEL);
    Adopt(window, window, name);
    GTK::gtk_window_set_resizable(GetNative(), FALSE);
    m_box = GTK::gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    m_overlay = GTK::gtk_overlay_new();
    // Carries the size of the client area. Not a GtkFixed: there a label that wraps would widen
    // the window to the length of its unwrapped text.
    m_canvas = GTK::gtk_drawing_area_new();
    GTK::gtk_container_add(reinterpret_cast<GtkContainer*>(m_overlay), m_canvas);
    GTK::gtk_box_pack_start(reinterpret_cast<GtkBox*>(m_box), m_overlay, TRUE, TRUE, 0);
    GTK::gtk_container_add(reinterpret_cast<GtkContainer*>(window), m_box);
    GTK::gtk_widget_show_all(m_box);

    // A sheet blocks the windows of its group, that is its parents, and no others.
    GtkWindowGroup* group = nullptr;
    if (parent != nullptr) {
        group = GTK::gtk_window_get_group(parent->GetNative());
        GTK::gtk_window_group_add_window(group, GetNative());
    } else {
        group = GTK::gtk_window_group_new();
        GTK::gtk_window_group_add_window(group, GetNative());
        GTK::g_object_unref(group); // the window holds it now
    }
    if (kind == UIKind::Sheet) {
        GTK::gtk_window_set_type_hint(GetNative(), GDK_WINDOW_TYPE_HINT_DIALOG);
        GTK::atk_object_set_role(GTK::gtk_widget_get_accessible(window), ATK_ROLE_DIALOG);
        GTK::gtk_window_set_modal(GetNative(), TRUE);
        if (parent != nullptr) {
            GTK::gtk_window_set_transient_for(GetNative(), parent->GetNative());
            GTK::gtk_window_set_skip_taskbar_hint(GetNative(), TRUE);
        }
    }
    GTK::gtk_window_set_position(GetNative(), parent != nullptr ? GTK_WIN_POS_CENTER_ON_PARENT
                                                                : GTK_WIN_POS_CENTER);
    GTK::Connect(m_overlay, "get-child-position", OnChildPosition, this);
    GTK::Connect(window, "delete-event", OnDelete, this);
    GTK::Connect(window, "window-state-event", OnStateEvent, this);
    GTK::Connect(window, "map-event", OnMapped, this);
    GTK::Connect(window, "notify::is-active", OnActive, this);
    UIBackendGtk::Register(this, true);
}

UIPeerGtkWindow::~UIPeerGtkWindow() {
    UIBackendGtk::Register(this, false);
    GTK::Disconnect(m_overlay, this);
    // Hidden first, so that the parent is active again before the widgets go.
    GTK::Disconnect(m_widget, this);
    for (const auto& entry : m_menuEntries) {
        GTK::Disconnect(entry->widget, entry.get());
    }
    for (GtkWidget* menu : m_menuTitles) {
        GTK::Disconnect(menu, this);
    }
    GTK::gtk_widget_hide(m_widget);
    if (m_kind == UIKind::Sheet && m_parent != nullptr &&
        GTK::gtk_widget_get_visible(m_parent->GetWidget())) {
        GTK::gtk_window_present(m_parent->GetNative());
    }
}

void UIPeerGtkWindow::SetText(const CXString& text) {
    UIPeerGtk::SetText(text);
    GTK::gtk_window_set_title(GetNative(), text.GetData());
}

void UIPeerGtkWindow::SetRect(const UIRect& rect) {
    m_rect = rect;
    FitSize();
}

void UIPeerGtkWindow::FitSize() {
    GTK::gtk_widget_set_size_request(m_canvas, Pixels(UIWidth(m_rect)), Pixels(UIHeight(m_rect)));
    QueueLayout();
}

void UIPeerGtkWindow::SetState(const UIPeerState& state) {
    const bool wasShown = m_state.shown;
    m_state = state;
    GTK::gtk_widget_set_sensitive(m_widget, state.enabled);
    if (state.shown && !wasShown) {
        GTK::gtk_window_present(GetNative());
    } else if (!state.shown && wasShown) {
        GTK::gtk_widget_hide(m_widget);
        if (m_kind == UIKind::Sheet && m_parent != nullptr) {
            GTK::gtk_window_present(m_parent->GetNative());
        }
    }
}

void UIPeerGtkWindow::Focus(bool) {
    GTK::gtk_window_set_focus(GetNative(), nullptr);
}

void UIPeerGtkWindow::Raise() {
    GTK::gtk_window_deiconify(GetNative());
    GTK::gtk_window_present(GetNative());
}

UIPeer* UIPeerGtkWindow::GetFocus() {
    GtkWidget* focus = GTK::gtk_window_get_focus(GetNative());
    UIPeerGtk* peer = OfWidget(focus);
    return peer != nullptr && peer->GetWindow() == this ? peer : nullptr;
}

void UIPeerGtkWindow::Add(UIPeerGtk* peer, bool passThrough) {
    m_peers.insert(peer);
    auto* overlay = reinterpret_cast<GtkOverlay*>(m_overlay);
    GTK::gtk_overlay_add_overlay(overlay, peer->GetWidget());
    GTK::gtk_overlay_set_overlay_pass_through(overlay, peer->GetWidget(), passThrough);
}

void UIPeerGtkWindow::Remove(UIPeerGtk* peer) {
    m_peers.erase(peer);
}

void UIPeerGtkWindow::QueueLayout() {
    GTK::gtk_widget_queue_resize(m_overlay);
}

void UIPeerGtkWindow::MetricsChanged() {
    FitSize();
    m_sink->PeerMetricsChanged();
}

gboolean UIPeerGtkWindow::OnChildPosition(GtkOverlay*, GtkWidget* child, GdkRectangle* out, void*) {
    const UIPeerGtk* peer = OfWidget(child);
    if (peer == nullptr) {
        return FALSE;
    }
    const UIRect& rect = peer->GetRect();
    out->x = Pixels(rect.left);
    out->y = Pixels(rect.top);
    out->width = std::max(1, Pixels(rect.right) - out->x);
    out->height = std::max(1, Pixels(rect.bottom) - out->y);
    return TRUE;
}

gboolean UIPeerGtkWindow::OnDelete(GtkWidget*, GdkEvent*, void* data) {
    static_cast<UIPeerGtkWindow*>(data)->m_sink->PeerCloseAsked();
    return TRUE; // whether it closes is the toolkit's affair
}

gboolean UIPeerGtkWindow::OnStateEvent(GtkWidget*, GdkEventWindowState* event, void* data) {
    static_cast<UIPeerGtkWindow*>(data)->m_minimised =
        (event->new_window_state & GDK_WINDOW_STATE_ICONIFIED) != 0;
    return FALSE;
}

gboolean UIPeerGtkWindow::OnMapped(GtkWidget*, GdkEvent*, void* data) {
    // Where no window manager gives the focus to what is new, it is taken once that is possible.
    GTK::gtk_window_present(static_cast<UIPeerGtkWindow*>(data)->GetNative());
    return FALSE;
}

void UIPeerGtkWindow::OnActive(GObject*, GParamSpec*, void* data) {
    auto* self = static_cast<UIPeerGtkWindow*>(data);
    self->m_sink->PeerActivated(GTK::gtk_window_is_active(self->GetNative()) != FALSE);
}

void UIPeerGtkWindow::SetMenus(const std::vector<UIMenu>& menus) {
    m_updatingMenus = true;
    if (!UpdateMenus(menus)) {
        BuildMenus(menus);
    }
    m_updatingMenus = false;
    m_menus = menus;
}

bool UIPeerGtkWindow::UpdateMenus(const std::vector<UIMenu>& menus) {
    if (m_menuBar == nullptr || !UISameMenuShape(menus, m_menus)) {
        return false;
    }
    size_t next = 0;
    for (const UIMenu& menu : menus) {
        for (const UIMenuItem& item : menu.items) {
            GtkWidget* widget = m_menuEntries[next++]->widget;
            GTK::gtk_menu_item_set_label(reinterpret_cast<GtkMenuItem*>(widget),
                                         item.text.GetData());
            GTK::gtk_widget_set_sensitive(widget, item.enabled);
        }
    }
    return true;
}

void UIPeerGtkWindow::BuildMenus(const std::vector<UIMenu>& menus) {
    for (const auto& entry : m_menuEntries) {
        GTK::Disconnect(entry->widget, entry.get());
    }
    m_menuEntries.clear();
    m_menuTitles.clear();
    if (m_menuBar != nullptr) {
        GTK::gtk_widget_destroy(m_menuBar);
        m_menuBar = nullptr;
    }
    if (menus.empty()) {
        return;
    }
    m_menuBar = GTK::gtk_menu_bar_new();
    for (const UIMenu& menu : menus) {
        GtkWidget* title = GTK::gtk_menu_item_new_with_label(menu.text.GetData());
        GtkWidget* popup = GTK::gtk_menu_new();
        for (const UIMenuItem& item : menu.items) {
            GtkWidget* widget = GTK::gtk_menu_item_new_with_label(item.text.GetData());
            ShowShortcut(widget, item.shortcut);
            GTK::gtk_widget_set_sensitive(widget, item.enabled);
            m_menuEntries.push_back(
                std::make_unique<MenuEntry>(MenuEntry{this, item.command, widget}));
            GTK::Connect(widget, "activate", OnMenuChosen, m_menuEntries.back().get());
            GTK::gtk_menu_shell_append(reinterpret_cast<GtkMenuShell*>(popup), widget);
        }
        GTK::gtk_menu_item_set_submenu(reinterpret_cast<GtkMenuItem*>(title), popup);
        GTK::Connect(popup, "show", OnMenuShown, this);
        m_menuTitles.push_back(popup);
        GTK::gtk_menu_shell_append(reinterpret_cast<GtkMenuShell*>(m_menuBar), title);
    }
    GTK::gtk_box_pack_start(reinterpret_cast<GtkBox*>(m_box), m_menuBar, FALSE, FALSE, 0);
    GTK::gtk_box_reorder_child(reinterpret_cast<GtkBox*>(m_box), m_menuBar, 0);
    GTK::gtk_widget_show_all(m_menuBar);
}

void UIPeerGtkWindow::OnMenuShown(GtkWidget*, void* data) {
    auto* self = static_cast<UIPeerGtkWindow*>(data);
    if (!self->m_updatingMenus) {
        self->m_sink->PeerMenusOpening();
    }
}

void UIPeerGtkWindow::OnMenuChosen(GtkMenuItem*, void* data) {
    const auto* entry = static_cast<MenuEntry*>(data);
    const CXString command = entry->command; // the entry may go while the sink is at work
    entry->window->m_sink->PeerMenu(command);
}
