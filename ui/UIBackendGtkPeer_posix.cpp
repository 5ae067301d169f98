#include "ui/UIBackendGtk_posix.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kPeerKey = "velpatch-peer";

int32_t Logical(int pixels) {
    return static_cast<int32_t>(std::ceil(pixels / UIBackendGtk::GetScale()));
}

/// The length of the longest word, in pixels: below it a label would cut letters off.
int LongestWord(GtkWidget* widget, absl::string_view text) {
    int longest = 0;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find_first_of(" \n\t", at);
        end = end == absl::string_view::npos ? text.size() : end;
        if (end > at) {
            const CXString word(text.substr(at, end - at));
            PangoLayout* layout = GTK::gtk_widget_create_pango_layout(widget, word.GetData());
            int width = 0;
            GTK::pango_layout_get_pixel_size(layout, &width, nullptr);
            GTK::g_object_unref(layout);
            longest = std::max(longest, width);
        }
        at = end + 1;
    }
    return longest;
}

/// A word that is broken is a path or an address most likely, into which no hyphen belongs. For the
/// rest of the process.
PangoAttrList* WithoutHyphens() {
    static PangoAttrList* const list = [] {
        PangoAttrList* made = GTK::pango_attr_list_new();
        GTK::pango_attr_list_insert(made, GTK::pango_attr_insert_hyphens_new(FALSE));
        return made;
    }();
    return list;
}

} // namespace

UIPeerGtk::~UIPeerGtk() {
    if (m_window != nullptr) {
        m_window->Remove(this);
    }
    if (m_widget == nullptr) {
        return;
    }
    GTK::Disconnect(m_widget, this);
    GTK::Disconnect(m_control, this);
    GTK::g_object_set_data(reinterpret_cast<GObject*>(m_widget), kPeerKey, nullptr);
    GTK::g_object_set_data(reinterpret_cast<GObject*>(m_control), kPeerKey, nullptr);
    GTK::gtk_widget_destroy(m_widget);
    GTK::g_object_unref(m_widget);
}

void UIPeerGtk::Adopt(GtkWidget* outer, GtkWidget* control, const CXString& name) {
    m_widget = outer;
    m_control = control;
    GTK::g_object_ref_sink(outer);
    GTK::g_object_set_data(reinterpret_cast<GObject*>(outer), kPeerKey, this);
    GTK::g_object_set_data(reinterpret_cast<GObject*>(control), kPeerKey, this);
    GTK::gtk_widget_set_name(control, name.GetData());
}

UIPeerGtk* UIPeerGtk::OfWidget(GtkWidget* widget) {
    for (; widget != nullptr; widget = GTK::gtk_widget_get_parent(widget)) {
        void* peer = GTK::g_object_get_data(reinterpret_cast<GObject*>(widget), kPeerKey);
        if (peer != nullptr) {
            return static_cast<UIPeerGtk*>(peer);
        }
    }
    return nullptr;
}

void UIPeerGtk::SetRect(const UIRect& rect) {
    if (rect == m_rect) {
        return;
    }
    m_rect = rect;
    if (m_window != nullptr) {
        m_window->QueueLayout();
    }
}

void UIPeerGtk::SetState(const UIPeerState& state) {
    const Quiet quiet(*this);
    m_state = state;
    GTK::gtk_widget_set_sensitive(m_widget, state.enabled);
    GTK::gtk_widget_set_visible(m_widget, state.shown);
}

void UIPeerGtk::SetAccessibleName(const CXString& name) {
    GTK::atk_object_set_name(GTK::gtk_widget_get_accessible(m_control), name.GetData());
}

void UIPeerGtk::Focus(bool) {
    const Quiet quiet(*this);
    GTK::gtk_widget_grab_focus(m_control);
}

UIIntrinsic UIPeerGtk::Measure(int32_t) {
    return MeasureWidget();
}

UIIntrinsic UIPeerGtk::MeasureWidget() {
    // A hidden widget answers zero.
    const bool wasShown = GTK::gtk_widget_get_visible(m_widget) != FALSE;
    GTK::gtk_widget_set_visible(m_widget, TRUE);
    GtkRequisition least{};
    GtkRequisition natural{};
    GTK::gtk_widget_get_preferred_size(m_widget, &least, &natural);
    GTK::gtk_widget_set_visible(m_widget, wasShown);
    UIIntrinsic result;
    result.min = {Logical(least.width), Logical(least.height)};
    result.natural = {Logical(natural.width), Logical(natural.height)};
    result.baseline = result.natural.height;
    return result;
}

UIIntrinsic UIPeerGtk::MeasureText(const CXString& text, int32_t forWidth) {
    PangoLayout* layout = GTK::gtk_widget_create_pango_layout(m_control, text.GetData());
    if (forWidth >= 0) {
        const double pixels = std::max(1.0, std::floor(forWidth * UIBackendGtk::GetScale()));
        GTK::pango_layout_set_width(layout, static_cast<int>(pixels) * PANGO_SCALE);
        GTK::pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
        GTK::pango_layout_set_attributes(layout, WithoutHyphens());
    }
    int width = 0;
    int height = 0;
    GTK::pango_layout_get_pixel_size(layout, &width, &height);
    const int baseline = GTK::pango_layout_get_baseline(layout) / PANGO_SCALE;
    GTK::g_object_unref(layout);
    UIIntrinsic result;
    result.natural = {Logical(width), Logical(height)};
    result.min = {std::min(Logical(LongestWord(m_control, text.View())), kUILongestWord),
                  result.natural.height};
    result.baseline = Logical(baseline);
    result.heightFollowsWidth = true;
    return result;
}

void UIPeerGtk::WrapLabel(GtkLabel* label) {
    GTK::gtk_label_set_line_wrap(label, TRUE);
    GTK::gtk_label_set_line_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
    GTK::gtk_label_set_attributes(label, WithoutHyphens());
}
