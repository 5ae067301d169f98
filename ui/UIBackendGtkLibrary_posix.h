// GTK 3, loaded when the first window is wanted.
//
// The program isn't linked with GTK: a run without a window neither needs nor loads it, and the
// same file serves servers and desktops. The functions that the backend calls are pointers in the
// namespace `GTK`, filled by `UILoadGTK`.
#pragma once

#define G_DISABLE_CAST_CHECKS // the cast macros then call nothing
#define GLIB_DISABLE_DEPRECATION_WARNINGS
#define GDK_DISABLE_DEPRECATION_WARNINGS
#include <gtk/gtk.h>

#undef g_object_ref // macros around the functions of the same names
#undef g_object_ref_sink

// clang-format off
#define VELPATCH_GTK_FUNCTIONS(X) \
    X(atk_object_set_name) \
    X(atk_object_set_role) \
    X(cairo_paint) \
    X(cairo_scale) \
    X(g_bytes_new) \
    X(g_bytes_unref) \
    X(g_free) \
    X(g_list_free) \
    X(g_main_context_iteration) \
    X(g_main_context_wakeup) \
    X(g_object_get) \
    X(g_object_get_data) \
    X(g_object_ref) \
    X(g_object_ref_sink) \
    X(g_object_set) \
    X(g_object_set_data) \
    X(g_object_unref) \
    X(g_signal_connect_data) \
    X(g_signal_handlers_disconnect_matched) \
    X(g_source_remove) \
    X(g_timeout_add) \
    X(g_type_check_instance_is_a) \
    X(gdk_cairo_set_source_pixbuf) \
    X(gdk_event_handler_set) \
    X(gdk_pixbuf_get_height) \
    X(gdk_pixbuf_get_width) \
    X(gdk_pixbuf_new_from_bytes) \
    X(gdk_screen_get_default) \
    X(gdk_window_get_user_data) \
    X(gtk_accel_label_set_accel) \
    X(gtk_adjustment_clamp_page) \
    X(gtk_adjustment_set_value) \
    X(gtk_bin_get_child) \
    X(gtk_box_get_type) \
    X(gtk_box_new) \
    X(gtk_box_pack_start) \
    X(gtk_box_reorder_child) \
    X(gtk_button_new_with_label) \
    X(gtk_button_set_label) \
    X(gtk_check_button_new_with_label) \
    X(gtk_clipboard_get) \
    X(gtk_container_add) \
    X(gtk_container_get_children) \
    X(gtk_css_provider_load_from_data) \
    X(gtk_css_provider_new) \
    X(gtk_dialog_add_button) \
    X(gtk_dialog_run) \
    X(gtk_dialog_set_default_response) \
    X(gtk_disable_setlocale) \
    X(gtk_drawing_area_new) \
    X(gtk_editable_copy_clipboard) \
    X(gtk_editable_cut_clipboard) \
    X(gtk_editable_delete_selection) \
    X(gtk_editable_get_selection_bounds) \
    X(gtk_editable_paste_clipboard) \
    X(gtk_editable_select_region) \
    X(gtk_editable_set_editable) \
    X(gtk_editable_set_position) \
    X(gtk_entry_get_text) \
    X(gtk_entry_grab_focus_without_selecting) \
    X(gtk_entry_new) \
    X(gtk_entry_set_input_purpose) \
    X(gtk_entry_set_text) \
    X(gtk_entry_set_visibility) \
    X(gtk_entry_set_width_chars) \
    X(gtk_file_chooser_add_filter) \
    X(gtk_file_chooser_dialog_new) \
    X(gtk_file_chooser_get_filename) \
    X(gtk_file_chooser_set_create_folders) \
    X(gtk_file_chooser_set_current_folder) \
    X(gtk_file_filter_add_pattern) \
    X(gtk_file_filter_new) \
    X(gtk_file_filter_set_name) \
    X(gtk_init_check) \
    X(gtk_label_get_layout) \
    X(gtk_label_new) \
    X(gtk_label_set_attributes) \
    X(gtk_label_set_ellipsize) \
    X(gtk_label_set_line_wrap) \
    X(gtk_label_set_line_wrap_mode) \
    X(gtk_label_set_text) \
    X(gtk_label_set_xalign) \
    X(gtk_label_set_yalign) \
    X(gtk_list_box_get_row_at_index) \
    X(gtk_list_box_get_selected_row) \
    X(gtk_list_box_new) \
    X(gtk_list_box_row_get_index) \
    X(gtk_list_box_select_row) \
    X(gtk_list_box_set_activate_on_single_click) \
    X(gtk_list_box_unselect_all) \
    X(gtk_main_do_event) \
    X(gtk_menu_bar_new) \
    X(gtk_menu_item_new_with_label) \
    X(gtk_menu_item_set_label) \
    X(gtk_menu_item_set_submenu) \
    X(gtk_menu_new) \
    X(gtk_menu_shell_append) \
    X(gtk_menu_shell_get_type) \
    X(gtk_message_dialog_new) \
    X(gtk_overlay_add_overlay) \
    X(gtk_overlay_new) \
    X(gtk_overlay_set_overlay_pass_through) \
    X(gtk_progress_bar_new) \
    X(gtk_progress_bar_pulse) \
    X(gtk_progress_bar_set_fraction) \
    X(gtk_scrolled_window_get_vadjustment) \
    X(gtk_scrolled_window_new) \
    X(gtk_scrolled_window_set_policy) \
    X(gtk_scrolled_window_set_shadow_type) \
    X(gtk_settings_get_default) \
    X(gtk_spinner_new) \
    X(gtk_spinner_start) \
    X(gtk_spinner_stop) \
    X(gtk_style_context_add_class) \
    X(gtk_style_context_add_provider_for_screen) \
    X(gtk_style_context_remove_class) \
    X(gtk_text_buffer_copy_clipboard) \
    X(gtk_text_buffer_create_tag) \
    X(gtk_text_buffer_get_bounds) \
    X(gtk_text_buffer_get_end_iter) \
    X(gtk_text_buffer_get_has_selection) \
    X(gtk_text_buffer_get_start_iter) \
    X(gtk_text_buffer_insert_with_tags) \
    X(gtk_text_buffer_place_cursor) \
    X(gtk_text_buffer_select_range) \
    X(gtk_text_buffer_set_text) \
    X(gtk_text_view_get_buffer) \
    X(gtk_text_view_new) \
    X(gtk_text_view_set_accepts_tab) \
    X(gtk_text_view_set_cursor_visible) \
    X(gtk_text_view_set_editable) \
    X(gtk_text_view_set_left_margin) \
    X(gtk_text_view_set_right_margin) \
    X(gtk_text_view_set_wrap_mode) \
    X(gtk_toggle_button_get_active) \
    X(gtk_toggle_button_set_active) \
    X(gtk_widget_create_pango_layout) \
    X(gtk_widget_destroy) \
    X(gtk_widget_get_accessible) \
    X(gtk_widget_get_allocation) \
    X(gtk_widget_get_parent) \
    X(gtk_widget_get_preferred_height) \
    X(gtk_widget_get_preferred_size) \
    X(gtk_widget_get_preferred_width) \
    X(gtk_widget_get_style_context) \
    X(gtk_widget_get_toplevel) \
    X(gtk_widget_get_visible) \
    X(gtk_widget_grab_focus) \
    X(gtk_widget_hide) \
    X(gtk_widget_queue_draw) \
    X(gtk_widget_queue_resize) \
    X(gtk_widget_set_can_focus) \
    X(gtk_widget_set_has_window) \
    X(gtk_widget_set_name) \
    X(gtk_widget_set_sensitive) \
    X(gtk_widget_set_size_request) \
    X(gtk_widget_set_visible) \
    X(gtk_widget_show) \
    X(gtk_widget_show_all) \
    X(gtk_window_deiconify) \
    X(gtk_window_get_focus) \
    X(gtk_window_get_group) \
    X(gtk_window_group_add_window) \
    X(gtk_window_group_get_current_grab) \
    X(gtk_window_group_new) \
    X(gtk_window_is_active) \
    X(gtk_window_new) \
    X(gtk_window_present) \
    X(gtk_window_set_destroy_with_parent) \
    X(gtk_window_set_focus) \
    X(gtk_window_set_modal) \
    X(gtk_window_set_position) \
    X(gtk_window_set_resizable) \
    X(gtk_window_set_skip_taskbar_hint) \
    X(gtk_window_set_title) \
    X(gtk_window_set_transient_for) \
    X(gtk_window_set_type_hint) \
    X(pango_attr_insert_hyphens_new) \
    X(pango_attr_list_insert) \
    X(pango_attr_list_new) \
    X(pango_layout_get_baseline) \
    X(pango_layout_get_pixel_size) \
    X(pango_layout_set_attributes) \
    X(pango_layout_set_width) \
    X(pango_layout_set_wrap)
// clang-format on

namespace GTK {
#define VELPATCH_GTK_DECLARE(name) inline decltype(&::name) name = nullptr;
VELPATCH_GTK_FUNCTIONS(VELPATCH_GTK_DECLARE)
#undef VELPATCH_GTK_DECLARE

/// Connects a handler, to be removed with `Disconnect` by its data.
template <typename Handler>
void Connect(void* instance, const char* signal, Handler handler, void* data) {
    g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(handler), data, nullptr,
                          static_cast<GConnectFlags>(0));
}
inline void Disconnect(void* instance, void* data) {
    g_signal_handlers_disconnect_matched(instance, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr,
                                         data);
}
} // namespace GTK

/// Loads the library and its functions, once. False if it isn't installed or too old.
bool UILoadGTK();
