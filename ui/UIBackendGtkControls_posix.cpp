#include "ui/UIBackendGtk_posix.h"

#include "core/CXStringEdit.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int32_t kBarRange = 16384;
constexpr guint kPulseMilliseconds = 80;
constexpr int32_t kLeastButtonWidth = 75;

int Pixels(int32_t logical) {
    return static_cast<int>(std::lround(logical * UIBackendGtk::GetScale()));
}

template <typename Native> Native* As(GtkWidget* widget) {
    return reinterpret_cast<Native*>(widget);
}

class LabelPeer final : public UIPeerGtk {
public:
    LabelPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Label, sink, window) {
        GtkWidget* label = GTK::gtk_label_new("");
        Adopt(label, label, name);
        GTK::gtk_label_set_xalign(As<GtkLabel>(label), 0);
        GTK::gtk_label_set_yalign(As<GtkLabel>(label), 0);
        WrapLabel(As<GtkLabel>(label));
    }

    void SetText(const CXString& text) override {
        if (text != m_text) {
            m_text = text;
            GTK::gtk_label_set_text(As<GtkLabel>(m_control), text.GetData());
        }
    }
    UIIntrinsic Measure(int32_t forWidth) override { return MeasureText(m_text, forWidth); }
};

class ButtonPeer final : public UIPeerGtk {
public:
    ButtonPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Button, sink, window) {
        GtkWidget* button = GTK::gtk_button_new_with_label("");
        Adopt(button, button, name);
        GTK::Connect(button, "clicked", OnClicked, this);
    }

    void SetText(const CXString& text) override {
        if (text != m_text) {
            m_text = text;
            GTK::gtk_button_set_label(As<GtkButton>(m_control), text.GetData());
        }
    }
    void SetDefaultLook(bool isDefault) override {
        GtkStyleContext* style = GTK::gtk_widget_get_style_context(m_control);
        if (isDefault) {
            GTK::gtk_style_context_add_class(style, "suggested-action");
        } else {
            GTK::gtk_style_context_remove_class(style, "suggested-action");
        }
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result = MeasureWidget();
        const UIIntrinsic text = MeasureText(m_text, -1);
        result.natural.width = std::max(result.natural.width, kLeastButtonWidth);
        result.min = result.natural;
        result.baseline = (result.natural.height - text.natural.height) / 2 + text.baseline;
        return result;
    }

private:
    static void OnClicked(GtkButton*, void* data) {
        auto* self = static_cast<ButtonPeer*>(data);
        if (!self->IsQuiet()) {
            self->m_sink->PeerAction(UIPeerEvent::Pressed, 0);
        }
    }
};

class CheckPeer final : public UIPeerGtk {
public:
    CheckPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Check, sink, window) {
        GtkWidget* check = GTK::gtk_check_button_new_with_label("");
        Adopt(check, check, name);
        WrapLabel(As<GtkLabel>(GTK::gtk_bin_get_child(As<GtkBin>(check))));
        GTK::Connect(check, "toggled", OnToggled, this);
    }

    void SetText(const CXString& text) override {
        if (text != m_text) {
            m_text = text;
            GTK::gtk_label_set_text(As<GtkLabel>(GTK::gtk_bin_get_child(As<GtkBin>(m_control))),
                                    text.GetData());
        }
    }
    void SetValue(int32_t value) override {
        const Quiet quiet(*this);
        GTK::gtk_toggle_button_set_active(As<GtkToggleButton>(m_control), value != 0);
    }
    int32_t GetValue() override {
        return GTK::gtk_toggle_button_get_active(As<GtkToggleButton>(m_control)) != FALSE;
    }
    UIIntrinsic Measure(int32_t forWidth) override {
        // What the mark takes beside the text, and how high it stands.
        GtkWidget* bare = GTK::gtk_check_button_new_with_label("");
        GTK::g_object_ref_sink(bare);
        GTK::gtk_widget_show(bare);
        int width = 0;
        int height = 0;
        GTK::gtk_widget_get_preferred_width(bare, nullptr, &width);
        GTK::gtk_widget_get_preferred_height(bare, nullptr, &height);
        GTK::gtk_widget_destroy(bare);
        GTK::g_object_unref(bare);
        const double scale = UIBackendGtk::GetScale();
        const auto mark = static_cast<int32_t>(std::ceil(width / scale));
        const auto least = static_cast<int32_t>(std::ceil(height / scale));

        UIIntrinsic result = MeasureText(m_text, forWidth < 0 ? -1 : std::max(1, forWidth - mark));
        result.min.width += mark;
        result.natural.width += mark;
        if (result.natural.height < least) {
            result.baseline += (least - result.natural.height) / 2;
            result.natural.height = least;
        }
        result.min.height = result.natural.height;
        return result;
    }

private:
    static void OnToggled(GtkToggleButton*, void* data) {
        auto* self = static_cast<CheckPeer*>(data);
        if (!self->IsQuiet()) {
            self->m_sink->PeerAction(UIPeerEvent::Pressed, self->GetValue());
        }
    }
};

class EditPeer final : public UIPeerGtk {
public:
    EditPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Edit, sink, window) {
        GtkWidget* entry = GTK::gtk_entry_new();
        Adopt(entry, entry, name);
        GTK::gtk_entry_set_width_chars(As<GtkEntry>(entry), 1);
        GTK::Connect(entry, "changed", OnChanged, this);
    }

    void SetText(const CXString& text) override {
        const Quiet quiet(*this);
        if (GetText() != text) {
            GTK::gtk_entry_set_text(As<GtkEntry>(m_control), text.GetData());
            GTK::gtk_editable_set_position(As<GtkEditable>(m_control), -1);
        }
    }
    CXString GetText() override {
        return CXString(GTK::gtk_entry_get_text(As<GtkEntry>(m_control)));
    }
    void SetState(const UIPeerState& state) override {
        UIPeerGtk::SetState(state);
        GTK::gtk_editable_set_editable(As<GtkEditable>(m_control), !state.readOnly);
        GTK::gtk_entry_set_visibility(As<GtkEntry>(m_control), !state.masked);
        GTK::gtk_entry_set_input_purpose(As<GtkEntry>(m_control),
                                         state.masked ? GTK_INPUT_PURPOSE_PASSWORD
                                                      : GTK_INPUT_PURPOSE_FREE_FORM);
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result = MeasureWidget();
        const UIIntrinsic text = MeasureText(CXString("Ag"), -1);
        result.natural.width = 160;
        result.min = {60, result.natural.height};
        result.baseline = (result.natural.height - text.natural.height) / 2 + text.baseline;
        return result;
    }
    void Focus(bool selectAll) override {
        const Quiet quiet(*this);
        GTK::gtk_entry_grab_focus_without_selecting(As<GtkEntry>(m_control));
        if (selectAll) {
            GTK::gtk_editable_select_region(As<GtkEditable>(m_control), 0, -1);
        }
    }
    bool CanEdit(UIEditCommand command) override {
        const bool selected =
            GTK::gtk_editable_get_selection_bounds(As<GtkEditable>(m_control), nullptr, nullptr);
        switch (command) {
        case UIEditCommand::Cut:
            return selected && !m_state.masked && !m_state.readOnly;
        case UIEditCommand::Copy:
            return selected && !m_state.masked;
        case UIEditCommand::Paste:
            // Asking what lies there would run the loop until its owner answers.
            return !m_state.readOnly;
        case UIEditCommand::Clear:
            return selected && !m_state.readOnly;
        case UIEditCommand::SelectAll:
            return !GetText().IsEmpty();
        default:
            return false; // the control keeps no history
        }
    }
    void DoEdit(UIEditCommand command) override {
        if (!CanEdit(command)) {
            return;
        }
        auto* editable = As<GtkEditable>(m_control);
        switch (command) {
        case UIEditCommand::Cut:
            GTK::gtk_editable_cut_clipboard(editable);
            break;
        case UIEditCommand::Copy:
            GTK::gtk_editable_copy_clipboard(editable);
            break;
        case UIEditCommand::Paste:
            GTK::gtk_editable_paste_clipboard(editable);
            break;
        case UIEditCommand::Clear:
            GTK::gtk_editable_delete_selection(editable);
            break;
        case UIEditCommand::SelectAll:
            GTK::gtk_editable_select_region(editable, 0, -1);
            break;
        default:
            break;
        }
    }

private:
    static void OnChanged(GtkEditable*, void* data) {
        auto* self = static_cast<EditPeer*>(data);
        if (!self->IsQuiet()) {
            self->m_sink->PeerTextChanged();
        }
    }
};

class ProgressPeer final : public UIPeerGtk {
public:
    ProgressPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Progress, sink, window) {
        GtkWidget* bar = GTK::gtk_progress_bar_new();
        Adopt(bar, bar, name);
    }
    ~ProgressPeer() override { StopPulse(); }

    void SetValue(int32_t value) override {
        m_value = value < 0 ? -1 : std::min(value, kBarRange);
        if (m_value >= 0) {
            GTK::gtk_progress_bar_set_fraction(As<GtkProgressBar>(m_control),
                                               static_cast<double>(m_value) / kBarRange);
        }
        FollowState();
    }
    int32_t GetValue() override { return m_value; }
    void SetState(const UIPeerState& state) override {
        UIPeerGtk::SetState(state);
        FollowState();
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result = MeasureWidget();
        result.natural.width = 160;
        result.natural.height = std::max(16, result.natural.height);
        result.min = {20, result.natural.height};
        return result;
    }

private:
    void FollowState() {
        if (m_value >= 0 || !m_state.shown) {
            StopPulse();
        } else if (m_pulse == 0) {
            m_pulse = GTK::g_timeout_add(kPulseMilliseconds, OnPulse, this);
        }
    }
    void StopPulse() {
        if (m_pulse != 0) {
            GTK::g_source_remove(m_pulse);
            m_pulse = 0;
        }
    }
    static gboolean OnPulse(void* data) {
        GTK::gtk_progress_bar_pulse(
            As<GtkProgressBar>(static_cast<ProgressPeer*>(data)->m_control));
        return TRUE;
    }

    int32_t m_value = 0;
    guint m_pulse = 0;
};

class SpinnerPeer final : public UIPeerGtk {
public:
    SpinnerPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Spinner, sink, window) {
        GtkWidget* spinner = GTK::gtk_spinner_new();
        Adopt(spinner, spinner, name);
    }
    void SetState(const UIPeerState& state) override {
        UIPeerGtk::SetState(state);
        if (state.shown) {
            GTK::gtk_spinner_start(As<GtkSpinner>(m_control));
        } else {
            GTK::gtk_spinner_stop(As<GtkSpinner>(m_control));
        }
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result;
        result.min = result.natural = {20, 20};
        result.baseline = 16;
        return result;
    }
};

class BitmapPeer final : public UIPeerGtk {
public:
    BitmapPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::Bitmap, sink, window) {
        GtkWidget* area = GTK::gtk_drawing_area_new();
        // GTK draws what has a window of its own above all that hasn't, which labels are.
        GTK::gtk_widget_set_has_window(area, FALSE);
        Adopt(area, area, name);
        GTK::atk_object_set_role(GTK::gtk_widget_get_accessible(area), ATK_ROLE_IMAGE);
        GTK::Connect(area, "draw", OnDraw, this);
    }
    ~BitmapPeer() override { DropPicture(); }

    void SetImage(const CXBitmap& image) override {
        DropPicture();
        if (!image.IsEmpty()) {
            GBytes* pixels = GTK::g_bytes_new(image.GetPixels().data(), image.GetPixels().size());
            m_picture = GTK::gdk_pixbuf_new_from_bytes(pixels, GDK_COLORSPACE_RGB, TRUE, 8,
                                                       image.GetWidth(), image.GetHeight(),
                                                       image.GetWidth() * 4);
            GTK::g_bytes_unref(pixels);
        }
        GTK::gtk_widget_queue_draw(m_control);
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result;
        if (m_picture != nullptr) {
            result.natural = {GTK::gdk_pixbuf_get_width(m_picture),
                              GTK::gdk_pixbuf_get_height(m_picture)};
        }
        result.min = result.natural;
        result.baseline = result.natural.height;
        return result;
    }

private:
    void DropPicture() {
        if (m_picture != nullptr) {
            GTK::g_object_unref(m_picture);
            m_picture = nullptr;
        }
    }
    static gboolean OnDraw(GtkWidget*, cairo_t* canvas, void* data) {
        auto* self = static_cast<BitmapPeer*>(data);
        if (self->m_picture != nullptr && UIWidth(self->m_rect) > 0 && UIHeight(self->m_rect) > 0) {
            const int width = Pixels(self->m_rect.right) - Pixels(self->m_rect.left);
            const int height = Pixels(self->m_rect.bottom) - Pixels(self->m_rect.top);
            GTK::cairo_scale(
                canvas, static_cast<double>(width) / GTK::gdk_pixbuf_get_width(self->m_picture),
                static_cast<double>(height) / GTK::gdk_pixbuf_get_height(self->m_picture));
            GTK::gdk_cairo_set_source_pixbuf(canvas, self->m_picture, 0, 0);
            GTK::cairo_paint(canvas);
        }
        return FALSE;
    }

    GdkPixbuf* m_picture = nullptr;
};

GtkWidget* MakeScroller(GtkWidget* inside) {
    GtkWidget* scroller = GTK::gtk_scrolled_window_new(nullptr, nullptr);
    GTK::gtk_scrolled_window_set_policy(As<GtkScrolledWindow>(scroller), GTK_POLICY_NEVER,
                                        GTK_POLICY_AUTOMATIC);
    GTK::gtk_scrolled_window_set_shadow_type(As<GtkScrolledWindow>(scroller), GTK_SHADOW_IN);
    // What is inside takes the keys; a frame that takes them too would be a stop without a name.
    GTK::gtk_widget_set_can_focus(scroller, FALSE);
    GTK::gtk_container_add(As<GtkContainer>(scroller), inside);
    GTK::gtk_widget_show(inside);
    return scroller;
}

UIIntrinsic ScrollerSize() {
    UIIntrinsic result;
    result.min = {80, 60};
    result.natural = {320, 160};
    result.baseline = 16;
    return result;
}

class RichTextPeer final : public UIPeerGtk {
public:
    RichTextPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::RichText, sink, window) {
        GtkWidget* view = GTK::gtk_text_view_new();
        GTK::gtk_text_view_set_editable(As<GtkTextView>(view), FALSE);
        GTK::gtk_text_view_set_cursor_visible(As<GtkTextView>(view), FALSE); // arrows then scroll
        GTK::gtk_text_view_set_accepts_tab(As<GtkTextView>(view), FALSE);
        GTK::gtk_text_view_set_wrap_mode(As<GtkTextView>(view), GTK_WRAP_WORD_CHAR);
        GTK::gtk_text_view_set_left_margin(As<GtkTextView>(view), kMargin);
        GTK::gtk_text_view_set_right_margin(As<GtkTextView>(view), kMargin);
        m_buffer = GTK::gtk_text_view_get_buffer(As<GtkTextView>(view));
        Adopt(MakeScroller(view), view, name);
    }

    void SetRichText(const UIRichText& text) override {
        GTK::gtk_text_buffer_set_text(m_buffer, "", 0);
        bool first = true;
        for (const UITextParagraph& paragraph : text.GetParagraphs()) {
            GtkTextTag* block = GTK::gtk_text_buffer_create_tag(m_buffer, nullptr, nullptr);
            SetLook(block, paragraph);
            if (!first) {
                Insert("\n", block, nullptr);
            }
            first = false;
            for (const UITextRun& run : paragraph.runs) {
                GtkTextTag* tag = GTK::gtk_text_buffer_create_tag(m_buffer, nullptr, nullptr);
                SetLook(tag, run);
                Insert(run.text.View(), block, tag);
            }
        }
        GtkTextIter start;
        GTK::gtk_text_buffer_get_start_iter(m_buffer, &start);
        GTK::gtk_text_buffer_place_cursor(m_buffer, &start);
        GTK::gtk_adjustment_set_value(
            GTK::gtk_scrolled_window_get_vadjustment(As<GtkScrolledWindow>(m_widget)), 0);
    }
    UIIntrinsic Measure(int32_t) override { return ScrollerSize(); }
    bool CanEdit(UIEditCommand command) override {
        return command == UIEditCommand::SelectAll ||
               (command == UIEditCommand::Copy && GTK::gtk_text_buffer_get_has_selection(m_buffer));
    }
    void DoEdit(UIEditCommand command) override {
        if (command == UIEditCommand::Copy) {
            GTK::gtk_text_buffer_copy_clipboard(m_buffer,
                                                GTK::gtk_clipboard_get(GDK_SELECTION_CLIPBOARD));
        } else if (command == UIEditCommand::SelectAll) {
            GtkTextIter start;
            GtkTextIter end;
            GTK::gtk_text_buffer_get_bounds(m_buffer, &start, &end);
            GTK::gtk_text_buffer_select_range(m_buffer, &start, &end);
        }
    }

private:
    void Insert(absl::string_view text, GtkTextTag* block, GtkTextTag* look) {
        GtkTextIter end;
        GTK::gtk_text_buffer_get_end_iter(m_buffer, &end);
        GTK::gtk_text_buffer_insert_with_tags(m_buffer, &end, text.data(),
                                              static_cast<int>(text.size()), block, look,
                                              static_cast<void*>(nullptr));
    }
    static void SetLook(GtkTextTag* tag, const UITextParagraph& paragraph) {
        void* const end = nullptr;
        // Of the four, GTK's views don't do the last, and show it as left.
        constexpr GtkJustification kJustify[] = {GTK_JUSTIFY_LEFT, GTK_JUSTIFY_CENTER,
                                                 GTK_JUSTIFY_RIGHT, GTK_JUSTIFY_LEFT};
        GTK::g_object_set(tag, "justification",
                          static_cast<int>(kJustify[static_cast<size_t>(paragraph.align)]),
                          "left-margin", kMargin + TwentiethsToPixels(paragraph.leftIndent),
                          "indent", TwentiethsToPixels(paragraph.firstIndent), end);
    }
    static void SetLook(GtkTextTag* tag, const UITextRun& run) {
        void* const end = nullptr;
        GTK::g_object_set(
            tag, "weight", static_cast<int>(run.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL),
            "style", static_cast<int>(run.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL),
            "underline",
            static_cast<int>(run.underline ? PANGO_UNDERLINE_SINGLE : PANGO_UNDERLINE_NONE),
            "strikethrough", static_cast<int>(run.strikeout), end);
        if (run.halfPoints > 0) {
            GTK::g_object_set(tag, "size-points", run.halfPoints / 2.0, end);
        }
        if (run.colour != UITextRun::kDefaultColour) {
            const CXString colour = CXString::Format("#%06x", run.colour & 0xffffff);
            GTK::g_object_set(tag, "foreground", colour.GetData(), end);
        }
    }
    /// GTK's text views count in pixels of the display.
    static int TwentiethsToPixels(int32_t twentieths) {
        return static_cast<int>(
            std::lround(twentieths / 20.0 * 96 / 72 * UIBackendGtk::GetScale()));
    }

    static constexpr int kMargin = 6;
    GtkTextBuffer* m_buffer = nullptr; ///< the view's
};

class ListPeer final : public UIPeerGtk {
public:
    ListPeer(UIPeerSink* sink, UIPeerGtkWindow* window, const CXString& name)
        : UIPeerGtk(UIKind::List, sink, window) {
        GtkWidget* list = GTK::gtk_list_box_new();
        GTK::gtk_list_box_set_activate_on_single_click(As<GtkListBox>(list), FALSE);
        Adopt(MakeScroller(list), list, name);
        GTK::Connect(list, "row-selected", OnSelected, this);
        GTK::Connect(list, "row-activated", OnActivated, this);
        GTK::Connect(list, "size-allocate", OnPlaced, this);
    }

    void SetItems(const std::vector<CXString>& items) override {
        const Quiet quiet(*this);
        GList* rows = GTK::gtk_container_get_children(As<GtkContainer>(m_control));
        for (GList* row = rows; row != nullptr; row = row->next) {
            GTK::gtk_widget_destroy(static_cast<GtkWidget*>(row->data));
        }
        GTK::g_list_free(rows);
        for (size_t i = 0; i < items.size(); ++i) {
            GtkWidget* label = GTK::gtk_label_new(items[i].GetData());
            GTK::gtk_label_set_xalign(As<GtkLabel>(label), 0);
            GTK::gtk_label_set_ellipsize(As<GtkLabel>(label), PANGO_ELLIPSIZE_END);
            GTK::gtk_container_add(As<GtkContainer>(m_control), label);
            GtkListBoxRow* row =
                GTK::gtk_list_box_get_row_at_index(As<GtkListBox>(m_control), static_cast<int>(i));
            GTK::atk_object_set_name(
                GTK::gtk_widget_get_accessible(reinterpret_cast<GtkWidget*>(row)),
                items[i].GetData());
        }
        GTK::gtk_widget_show_all(m_control);
    }
    void SetValue(int32_t value) override {
        const Quiet quiet(*this);
        GtkListBoxRow* row =
            value < 0 ? nullptr
                      : GTK::gtk_list_box_get_row_at_index(As<GtkListBox>(m_control), value);
        if (row != nullptr) {
            GTK::gtk_list_box_select_row(As<GtkListBox>(m_control), row);
            m_reveals = true; // once the rows have their places
            GTK::gtk_widget_queue_resize(m_control);
        } else {
            GTK::gtk_list_box_unselect_all(As<GtkListBox>(m_control));
        }
    }
    int32_t GetValue() override {
        GtkListBoxRow* row = GTK::gtk_list_box_get_selected_row(As<GtkListBox>(m_control));
        return row != nullptr ? GTK::gtk_list_box_row_get_index(row) : -1;
    }
    UIIntrinsic Measure(int32_t) override { return ScrollerSize(); }
    void Focus(bool) override {
        const Quiet quiet(*this);
        // The row takes the keys, and taking the focus it scrolls into view.
        GtkListBoxRow* row = GTK::gtk_list_box_get_selected_row(As<GtkListBox>(m_control));
        if (row == nullptr) {
            row = GTK::gtk_list_box_get_row_at_index(As<GtkListBox>(m_control), 0);
        }
        GTK::gtk_widget_grab_focus(row != nullptr ? reinterpret_cast<GtkWidget*>(row) : m_control);
    }

private:
    static void OnSelected(GtkListBox*, GtkListBoxRow* row, void* data) {
        auto* self = static_cast<ListPeer*>(data);
        if (!self->IsQuiet()) { // Control and Space take the selection away
            self->m_sink->PeerAction(UIPeerEvent::Selected,
                                     row != nullptr ? GTK::gtk_list_box_row_get_index(row) : -1);
        }
    }
    static void OnPlaced(GtkWidget*, GdkRectangle*, void* data) {
        auto* self = static_cast<ListPeer*>(data);
        GtkListBoxRow* row = GTK::gtk_list_box_get_selected_row(As<GtkListBox>(self->m_control));
        if (!self->m_reveals || row == nullptr) {
            return;
        }
        GtkAllocation place{};
        GTK::gtk_widget_get_allocation(reinterpret_cast<GtkWidget*>(row), &place);
        GTK::gtk_adjustment_clamp_page(
            GTK::gtk_scrolled_window_get_vadjustment(As<GtkScrolledWindow>(self->m_widget)),
            place.y, place.y + place.height);
        self->m_reveals = false;
    }
    static void OnActivated(GtkListBox*, GtkListBoxRow* row, void* data) {
        auto* self = static_cast<ListPeer*>(data);
        if (!self->IsQuiet()) {
            self->m_sink->PeerAction(UIPeerEvent::Chosen, GTK::gtk_list_box_row_get_index(row));
        }
    }

    bool m_reveals = false; ///< the selected row is to be scrolled into view
};

std::unique_ptr<UIPeerGtk> MakeBare(UIKind kind, UIPeerGtkWindow* window, UIPeerSink* sink,
                                    const CXString& name) {
    switch (kind) {
    case UIKind::Button:
        return std::make_unique<ButtonPeer>(sink, window, name);
    case UIKind::Check:
        return std::make_unique<CheckPeer>(sink, window, name);
    case UIKind::Edit:
        return std::make_unique<EditPeer>(sink, window, name);
    case UIKind::Progress:
        return std::make_unique<ProgressPeer>(sink, window, name);
    case UIKind::Spinner:
        return std::make_unique<SpinnerPeer>(sink, window, name);
    case UIKind::Bitmap:
        return std::make_unique<BitmapPeer>(sink, window, name);
    case UIKind::RichText:
        return std::make_unique<RichTextPeer>(sink, window, name);
    case UIKind::List:
        return std::make_unique<ListPeer>(sink, window, name);
    default:
        return std::make_unique<LabelPeer>(sink, window, name);
    }
}

} // namespace

std::unique_ptr<UIPeerGtk> UIMakeGtkControl(UIKind kind, UIPeerGtkWindow* window, UIPeerSink* sink,
                                            const CXString& name) {
    std::unique_ptr<UIPeerGtk> peer = MakeBare(kind, window, sink, name);
    window->Add(peer.get(), !UIKindIsFocusable(kind));
    return peer;
}
