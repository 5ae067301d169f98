#include "ui/UIBackendWin32_win32.h"

#include <algorithm>
#include <cmath>
#include <commctrl.h>
#include <richedit.h>

namespace {

constexpr int32_t kBarRange = 16384;
constexpr UINT kMarqueePeriodMs = 30;
constexpr int32_t kLeastButtonWidth = 75;
constexpr int32_t kButtonHeight = 23; // Windows' own measure for its 9 point text
constexpr wchar_t kMaskLetter = 0x25cf;

/// Rich text controls want both characters at a line's end.
std::wstring Lines(const CXString& text) {
    std::wstring lines;
    for (const wchar_t letter : UIWide(text)) {
        if (letter == L'\n') {
            lines += L'\r';
        }
        lines += letter;
    }
    return lines;
}

/// A single "&" would mark the next letter in a button's text.
std::wstring WithoutMarks(const CXString& text) {
    std::wstring plain;
    for (const wchar_t letter : UIWide(text)) {
        plain.append(letter == L'&' ? 2 : 1, letter);
    }
    return plain;
}

class LabelPeer final : public UIPeerWin32 {
public:
    LabelPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Label, sink, window) {
        Create(L"STATIC", SS_LEFT | SS_NOPREFIX | SS_EDITCONTROL, 0, name);
    }
    void SetText(const CXString& text) override {
        if (text != m_text) {
            UIPeerWin32::SetText(text);
            m_window->InvalidateBehind(m_rect);
        }
    }
    UIIntrinsic Measure(int32_t forWidth) override { return MeasureText(m_text, forWidth); }
};

class ButtonPeer final : public UIPeerWin32 {
public:
    ButtonPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Button, sink, window) {
        Create(L"BUTTON", BS_PUSHBUTTON | WS_TABSTOP, 0, name);
    }
    void SetText(const CXString& text) override {
        m_text = text;
        SetWindowTextW(m_handle, WithoutMarks(text).c_str());
    }
    void SetDefaultLook(bool isDefault) override {
        SendMessageW(m_handle, BM_SETSTYLE,
                     static_cast<WPARAM>(isDefault ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON), TRUE);
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result = MeasureText(m_text, -1);
        const int32_t textHeight = result.natural.height;
        result.natural = {std::max(kLeastButtonWidth, result.natural.width + 20),
                          std::max(kButtonHeight, textHeight + 8)};
        result.min = result.natural;
        result.baseline += (result.natural.height - textHeight) / 2;
        result.heightFollowsWidth = false;
        return result;
    }
    void Notify(uint32_t code) override {
        if (code == BN_CLICKED && !IsQuiet()) {
            m_sink->PeerAction(UIPeerEvent::Pressed, 0);
        }
    }
};

class CheckPeer final : public UIPeerWin32 {
public:
    CheckPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Check, sink, window) {
        Create(L"BUTTON", BS_AUTOCHECKBOX | BS_MULTILINE | BS_VCENTER | WS_TABSTOP, 0, name);
    }
    void SetText(const CXString& text) override {
        m_text = text;
        SetWindowTextW(m_handle, WithoutMarks(text).c_str());
    }
    void SetValue(int32_t value) override {
        SendMessageW(m_handle, BM_SETCHECK,
                     static_cast<WPARAM>(value != 0 ? BST_CHECKED : BST_UNCHECKED), 0);
    }
    int32_t GetValue() override { return SendMessageW(m_handle, BM_GETCHECK, 0, 0) == BST_CHECKED; }
    UIIntrinsic Measure(int32_t forWidth) override {
        constexpr int32_t kMark = 20; // the box and the gap behind it
        UIIntrinsic result = MeasureText(m_text, forWidth < 0 ? -1 : std::max(1, forWidth - kMark));
        result.min.width += kMark;
        result.natural.width += kMark;
        constexpr int32_t kLeast = 17;
        if (result.natural.height < kLeast) {
            result.baseline += (kLeast - result.natural.height) / 2;
            result.natural.height = kLeast;
        }
        result.min.height = result.natural.height;
        return result;
    }
    void Notify(uint32_t code) override {
        if (code == BN_CLICKED && !IsQuiet()) {
            m_sink->PeerAction(UIPeerEvent::Pressed, GetValue());
        }
    }
};

class EditPeer final : public UIPeerWin32 {
public:
    EditPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Edit, sink, window) {
        Create(L"EDIT", ES_LEFT | ES_AUTOHSCROLL | WS_TABSTOP, WS_EX_CLIENTEDGE, name);
        SendMessageW(m_handle, EM_SETLIMITTEXT, 0, 0); // as long as the control can
    }
    void SetText(const CXString& text) override {
        const Quiet quiet(*this);
        if (GetText() != text) {
            SetWindowTextW(m_handle, UIWide(text).c_str());
            SendMessageW(m_handle, EM_SETSEL, static_cast<WPARAM>(-2), -1);
        }
    }
    CXString GetText() override {
        std::wstring text(static_cast<size_t>(GetWindowTextLengthW(m_handle)) + 1, L'\0');
        const int length = GetWindowTextW(m_handle, text.data(), static_cast<int>(text.size()));
        text.resize(static_cast<size_t>(length));
        return UINarrow(text.c_str());
    }
    void Place() override {
        UIPeerWin32::Place();
        // Text that was set while the control was narrower stays scrolled out of sight.
        DWORD start = 0;
        DWORD end = 0;
        SendMessageW(m_handle, EM_GETSEL, reinterpret_cast<WPARAM>(&start),
                     reinterpret_cast<LPARAM>(&end));
        SendMessageW(m_handle, EM_SETSEL, 0, 0);
        SendMessageW(m_handle, EM_SCROLLCARET, 0, 0);
        SendMessageW(m_handle, EM_SETSEL, start, static_cast<LPARAM>(end));
        SendMessageW(m_handle, EM_SCROLLCARET, 0, 0);
    }
    void SetState(const UIPeerState& state) override {
        const Quiet quiet(*this);
        UIPeerWin32::SetState(state);
        SendMessageW(m_handle, EM_SETREADONLY, state.readOnly, 0);
        const WPARAM mask = state.masked ? kMaskLetter : 0;
        if (static_cast<WPARAM>(SendMessageW(m_handle, EM_GETPASSWORDCHAR, 0, 0)) != mask) {
            SendMessageW(m_handle, EM_SETPASSWORDCHAR, mask, 0);
            InvalidateRect(m_handle, nullptr, TRUE);
        }
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result = MeasureText(CXString("Ag"), -1);
        const int32_t textHeight = result.natural.height;
        result.natural = {160, std::max(kButtonHeight, textHeight + 8)};
        result.min = {60, result.natural.height};
        result.baseline += (result.natural.height - textHeight) / 2;
        result.heightFollowsWidth = false;
        return result;
    }
    void Focus(bool selectAll) override {
        UIPeerWin32::Focus(selectAll);
        if (selectAll) {
            SendMessageW(m_handle, EM_SETSEL, 0, -1);
        }
    }
    void Notify(uint32_t code) override {
        if (code == EN_CHANGE && !IsQuiet()) {
            m_sink->PeerTextChanged();
        }
    }
    bool CanEdit(UIEditCommand command) override {
        DWORD start = 0;
        DWORD end = 0;
        SendMessageW(m_handle, EM_GETSEL, reinterpret_cast<WPARAM>(&start),
                     reinterpret_cast<LPARAM>(&end));
        const bool writable = !m_state.readOnly;
        switch (command) {
        case UIEditCommand::Undo:
            return writable && SendMessageW(m_handle, EM_CANUNDO, 0, 0) != 0;
        case UIEditCommand::Cut:
            return writable && start != end && !m_state.masked;
        case UIEditCommand::Copy:
            return start != end && !m_state.masked;
        case UIEditCommand::Paste:
            return writable && IsClipboardFormatAvailable(CF_UNICODETEXT);
        case UIEditCommand::Clear:
            return writable && start != end;
        case UIEditCommand::SelectAll:
            return GetWindowTextLengthW(m_handle) > 0;
        default:
            return false; // the control keeps one step, which undoing swaps
        }
    }
    void DoEdit(UIEditCommand command) override {
        if (!CanEdit(command)) {
            return;
        }
        switch (command) {
        case UIEditCommand::Undo:
            SendMessageW(m_handle, WM_UNDO, 0, 0);
            break;
        case UIEditCommand::Cut:
            SendMessageW(m_handle, WM_CUT, 0, 0);
            break;
        case UIEditCommand::Copy:
            SendMessageW(m_handle, WM_COPY, 0, 0);
            break;
        case UIEditCommand::Paste:
            SendMessageW(m_handle, WM_PASTE, 0, 0);
            break;
        case UIEditCommand::Clear:
            SendMessageW(m_handle, WM_CLEAR, 0, 0);
            break;
        case UIEditCommand::SelectAll:
            SendMessageW(m_handle, EM_SETSEL, 0, -1);
            break;
        default:
            break;
        }
    }
};

class ProgressPeer final : public UIPeerWin32 {
public:
    ProgressPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Progress, sink, window) {
        Create(PROGRESS_CLASSW, 0, 0, name);
        SendMessageW(m_handle, PBM_SETRANGE32, 0, kBarRange);
    }
    void SetValue(int32_t value) override {
        const int32_t wanted = value < 0 ? -1 : std::min(value, kBarRange);
        const bool moves = wanted < 0;
        if (moves != (m_value < 0)) {
            const LONG_PTR style = GetWindowLongPtrW(m_handle, GWL_STYLE);
            SetWindowLongPtrW(m_handle, GWL_STYLE,
                              moves ? style | PBS_MARQUEE : style & ~LONG_PTR{PBS_MARQUEE});
            SendMessageW(m_handle, PBM_SETMARQUEE, moves, kMarqueePeriodMs);
        }
        m_value = wanted;
        if (!moves) {
            SendMessageW(m_handle, PBM_SETPOS, static_cast<WPARAM>(wanted), 0);
        }
    }
    int32_t GetValue() override { return m_value; }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result;
        result.natural = {160, 16};
        result.min = {20, 16};
        result.baseline = 13;
        return result;
    }

private:
    int32_t m_value = 0;
};

/// Windows has no such control: eight dots, of which one after the other is dark.
class SpinnerPeer final : public UIPeerWin32 {
public:
    SpinnerPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::Spinner, sink, window) {
        Create(L"STATIC", SS_OWNERDRAW, 0, name);
        SetWindowSubclass(m_handle, Procedure, 1, reinterpret_cast<DWORD_PTR>(this));
    }
    ~SpinnerPeer() override { RemoveWindowSubclass(m_handle, Procedure, 1); }
    void SetState(const UIPeerState& state) override {
        UIPeerWin32::SetState(state);
        if (state.shown) {
            SetTimer(m_handle, kTimer, 100, nullptr);
        } else {
            KillTimer(m_handle, kTimer);
        }
    }
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result;
        result.min = result.natural = {20, 20};
        result.baseline = 16;
        return result;
    }

private:
    static constexpr UINT_PTR kTimer = 1;
    static constexpr int kDots = 8;

    static LRESULT CALLBACK Procedure(HWND handle, UINT message, WPARAM wide, LPARAM lparam,
                                      UINT_PTR, DWORD_PTR data) {
        auto* self = reinterpret_cast<SpinnerPeer*>(data);
        if (message == WM_TIMER) {
            self->m_step = (self->m_step + 1) % kDots;
            InvalidateRect(handle, nullptr, FALSE);
            return 0;
        }
        if (message == WM_PAINT) {
            PAINTSTRUCT paint;
            const HDC canvas = BeginPaint(handle, &paint);
            self->Paint(canvas);
            EndPaint(handle, &paint);
            return 0;
        }
        return DefSubclassProc(handle, message, wide, lparam);
    }
    void Paint(HDC canvas) const {
        RECT area{};
        GetClientRect(m_handle, &area);
        SendMessageW(GetParent(m_handle), WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(canvas),
                     reinterpret_cast<LPARAM>(m_handle)); // draws what lies behind
        const double middle = std::min(area.right, area.bottom) / 2.0;
        const double radius = middle * 0.72;
        const double dot = std::max(1.0, middle * 0.22);
        const HGDIOBJ oldPen = SelectObject(canvas, GetStockObject(NULL_PEN));
        for (int i = 0; i < kDots; ++i) {
            const int age = (m_step - i + kDots) % kDots;
            const HBRUSH brush = GetSysColorBrush(age == 0   ? COLOR_BTNTEXT
                                                  : age <= 2 ? COLOR_GRAYTEXT
                                                             : COLOR_BTNSHADOW);
            const HGDIOBJ oldBrush = SelectObject(canvas, brush);
            const double angle = i * 2 * 3.14159265358979 / kDots;
            const double x = middle + radius * std::sin(angle);
            const double y = middle - radius * std::cos(angle);
            Ellipse(canvas, static_cast<int>(std::lround(x - dot)),
                    static_cast<int>(std::lround(y - dot)),
                    static_cast<int>(std::lround(x + dot)) + 1,
                    static_cast<int>(std::lround(y + dot)) + 1);
            SelectObject(canvas, oldBrush);
        }
        SelectObject(canvas, oldPen);
    }

    int m_step = 0;
};

/// Has no control of its own: its window draws it as background, so that texts can lie on it.
class BitmapPeer final : public UIPeerWin32 {
public:
    BitmapPeer(UIPeerSink* sink, UIPeerWin32Window* window)
        : UIPeerWin32(UIKind::Bitmap, sink, window) {}
    ~BitmapPeer() override {
        DropPicture();
        m_state.shown = false;
        m_window->InvalidateBehind(m_rect);
    }
    void SetText(const CXString& text) override { m_text = text; }
    void SetAccessibleName(const CXString&) override {}
    void SetImage(const CXBitmap& image) override {
        DropPicture();
        if (!image.IsEmpty()) {
            Convert(image);
        }
        m_window->InvalidateBehind(m_rect);
    }
    void SetRect(const UIRect& rect) override {
        m_window->InvalidateBehind(m_rect);
        m_rect = rect;
        m_window->InvalidateBehind(m_rect);
    }
    void SetState(const UIPeerState& state) override {
        m_state = state;
        m_window->InvalidateBehind(m_rect);
    }
    void Place() override {}
    void Focus(bool) override {}
    UIIntrinsic Measure(int32_t) override {
        UIIntrinsic result;
        result.min = result.natural = m_size;
        result.baseline = m_size.height;
        return result;
    }
    void Draw(HDC canvas) override {
        if (m_picture == nullptr) {
            return;
        }
        const double scale = GetScale();
        const auto left = static_cast<int>(std::lround(m_rect.left * scale));
        const auto top = static_cast<int>(std::lround(m_rect.top * scale));
        const auto right = static_cast<int>(std::lround(m_rect.right * scale));
        const auto bottom = static_cast<int>(std::lround(m_rect.bottom * scale));
        const HDC source = CreateCompatibleDC(canvas);
        const HGDIOBJ old = SelectObject(source, m_picture);
        const BLENDFUNCTION blend{AC_SRC_OVER, 0, 255, AC_SRC_ALPHA};
        GdiAlphaBlend(canvas, left, top, right - left, bottom - top, source, 0, 0, m_size.width,
                      m_size.height, blend);
        SelectObject(source, old);
        DeleteDC(source);
    }

private:
    void DropPicture() {
        if (m_picture != nullptr) {
            DeleteObject(m_picture);
            m_picture = nullptr;
        }
        m_size = {};
    }
    void Convert(const CXBitmap& image) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = image.GetWidth();
        info.bmiHeader.biHeight = -image.GetHeight(); // rows from the top
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        void* bits = nullptr;
        m_picture = CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
        if (m_picture == nullptr) {
            return;
        }
        m_size = {image.GetWidth(), image.GetHeight()};
        const std::vector<uint8_t>& pixels = image.GetPixels();
        auto* out = static_cast<uint8_t*>(bits);
        for (size_t i = 0; i + 3 < pixels.size(); i += 4) {
            // Blue first, and the alpha multiplied in, as the system's blending wants it.
            const unsigned alpha = pixels[i + 3];
            out[i] = static_cast<uint8_t>(pixels[i + 2] * alpha / 255);
            out[i + 1] = static_cast<uint8_t>(pixels[i + 1] * alpha / 255);
            out[i + 2] = static_cast<uint8_t>(pixels[i] * alpha / 255);
            out[i + 3] = static_cast<uint8_t>(alpha);
        }
    }

    HBITMAP m_picture = nullptr;
    UISize m_size;
};

UIIntrinsic ScrollerSize() {
    UIIntrinsic result;
    result.min = {80, 60};
    result.natural = {320, 160};
    result.baseline = 16;
    return result;
}

class RichTextPeer final : public UIPeerWin32 {
public:
    RichTextPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::RichText, sink, window) {
        Create(MSFTEDIT_CLASS, ES_MULTILINE | ES_READONLY | WS_VSCROLL | WS_TABSTOP,
               WS_EX_CLIENTEDGE, name);
        SendMessageW(m_handle, EM_EXLIMITTEXT, 0, 0x7fffffff);
        SendMessageW(m_handle, EM_SETMARGINS, EC_LEFTMARGIN | EC_RIGHTMARGIN, MAKELPARAM(6, 6));
    }
    void SetRichText(const UIRichText& text) override {
        SendMessageW(m_handle, WM_SETREDRAW, FALSE, 0);
        SetWindowTextW(m_handle, L"");
        bool first = true;
        for (const UITextParagraph& paragraph : text.GetParagraphs()) {
            if (!first) {
                Append(L"\r");
            }
            first = false;
            SetLook(paragraph);
            for (const UITextRun& run : paragraph.runs) {
                SetLook(run);
                Append(Lines(run.text));
            }
        }
        Select(0, 0);
        SendMessageW(m_handle, WM_VSCROLL, SB_TOP, 0);
        SendMessageW(m_handle, WM_SETREDRAW, TRUE, 0);
        InvalidateRect(m_handle, nullptr, TRUE);
    }
    UIIntrinsic Measure(int32_t) override { return ScrollerSize(); }
    bool CanEdit(UIEditCommand command) override {
        CHARRANGE range{};
        SendMessageW(m_handle, EM_EXGETSEL, 0, reinterpret_cast<LPARAM>(&range));
        return command == UIEditCommand::SelectAll ||
               (command == UIEditCommand::Copy && range.cpMin != range.cpMax);
    }
    void DoEdit(UIEditCommand command) override {
        if (command == UIEditCommand::Copy) {
            SendMessageW(m_handle, WM_COPY, 0, 0);
        } else if (command == UIEditCommand::SelectAll) {
            Select(0, -1);
        }
    }

private:
    void Select(LONG first, LONG last) {
        CHARRANGE range{first, last};
        SendMessageW(m_handle, EM_EXSETSEL, 0, reinterpret_cast<LPARAM>(&range));
    }
    void Append(const std::wstring& text) {
        SendMessageW(m_handle, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
        Select(0x7fffffff, 0x7fffffff);
    }
    /// The letters of the window's own font, in twentieths of a point.
    LONG GetSystemHeight() const {
        LOGFONTW font{};
        GetObjectW(m_window->GetFont(), sizeof(font), &font);
        return static_cast<LONG>(std::lround(std::abs(font.lfHeight) / GetScale() * 72 / 96 * 20));
    }
    void SetLook(const UITextParagraph& paragraph) {
        constexpr WORD kAlign[] = {PFA_LEFT, PFA_CENTER, PFA_RIGHT, PFA_JUSTIFY};
        PARAFORMAT2 look{};
        look.cbSize = sizeof(look);
        look.dwMask = PFM_ALIGNMENT | PFM_STARTINDENT | PFM_OFFSET;
        look.wAlignment = kAlign[static_cast<size_t>(paragraph.align)];
        // Windows counts the other way round: the first line's place, and the others' from there.
        look.dxStartIndent = paragraph.leftIndent + paragraph.firstIndent;
        look.dxOffset = -paragraph.firstIndent;
        SendMessageW(m_handle, EM_SETPARAFORMAT, 0, reinterpret_cast<LPARAM>(&look));
    }
    void SetLook(const UITextRun& run) {
        CHARFORMAT2W look{};
        look.cbSize = sizeof(look);
        look.dwMask = CFM_BOLD | CFM_ITALIC | CFM_UNDERLINE | CFM_STRIKEOUT | CFM_SIZE | CFM_COLOR;
        look.dwEffects = (run.bold ? CFE_BOLD : 0) | (run.italic ? CFE_ITALIC : 0) |
                         (run.underline ? CFE_UNDERLINE : 0) | (run.strikeout ? CFE_STRIKEOUT : 0);
        // Twentieths of a point.
        look.yHeight = run.halfPoints > 0 ? run.halfPoints * 10 : GetSystemHeight();
        if (run.colour == UITextRun::kDefaultColour) {
            look.dwEffects |= CFE_AUTOCOLOR;
        } else {
            look.crTextColor =
                RGB((run.colour >> 16) & 255, (run.colour >> 8) & 255, run.colour & 255);
        }
        SendMessageW(m_handle, EM_SETCHARFORMAT, SCF_SELECTION, reinterpret_cast<LPARAM>(&look));
    }
};

class ListPeer final : public UIPeerWin32 {
public:
    ListPeer(UIPeerSink* sink, UIPeerWin32Window* window, const CXString& name)
        : UIPeerWin32(UIKind::List, sink, window) {
        Create(L"LISTBOX", LBS_NOTIFY | LBS_NOINTEGRALHEIGHT | WS_VSCROLL | WS_TABSTOP,
               WS_EX_CLIENTEDGE, name);
    }
    void SetItems(const std::vector<CXString>& items) override {
        SendMessageW(m_handle, WM_SETREDRAW, FALSE, 0);
        SendMessageW(m_handle, LB_RESETCONTENT, 0, 0);
        for (const CXString& item : items) {
            SendMessageW(m_handle, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(UIWide(item).c_str()));
        }
        SendMessageW(m_handle, WM_SETREDRAW, TRUE, 0);
        InvalidateRect(m_handle, nullptr, TRUE);
    }
    void Place() override {
        UIPeerWin32::Place();
        // A line that was selected while the list was lower stays at its top.
        SendMessageW(m_handle, LB_SETTOPINDEX, 0, 0);
        SetValue(GetValue());
    }
    void SetValue(int32_t value) override {
        const LRESULT count = SendMessageW(m_handle, LB_GETCOUNT, 0, 0);
        const int32_t wanted = value >= 0 && value < count ? value : -1;
        SendMessageW(m_handle, LB_SETCURSEL, static_cast<WPARAM>(wanted), 0);
    }
    int32_t GetValue() override {
        const LRESULT index = SendMessageW(m_handle, LB_GETCURSEL, 0, 0);
        return index == LB_ERR ? -1 : static_cast<int32_t>(index);
    }
    UIIntrinsic Measure(int32_t) override { return ScrollerSize(); }
    void Notify(uint32_t code) override {
        if (code == LBN_SELCHANGE) {
            m_sink->PeerAction(UIPeerEvent::Selected, GetValue());
        } else if (code == LBN_DBLCLK && GetValue() >= 0) { // also told of the room below
            m_sink->PeerAction(UIPeerEvent::Chosen, GetValue());
        }
    }
};

} // namespace

std::unique_ptr<UIPeerWin32> UIMakeWin32Control(UIKind kind, UIPeerWin32Window* window,
                                                UIPeerSink* sink, const CXString& name) {
    std::unique_ptr<UIPeerWin32> peer;
    switch (kind) {
    case UIKind::Button:
        peer = std::make_unique<ButtonPeer>(sink, window, name);
        break;
    case UIKind::Check:
        peer = std::make_unique<CheckPeer>(sink, window, name);
        break;
    case UIKind::Edit:
        peer = std::make_unique<EditPeer>(sink, window, name);
        break;
    case UIKind::Progress:
        peer = std::make_unique<ProgressPeer>(sink, window, name);
        break;
    case UIKind::Spinner:
        peer = std::make_unique<SpinnerPeer>(sink, window, name);
        break;
    case UIKind::Bitmap:
        peer = std::make_unique<BitmapPeer>(sink, window);
        break;
    case UIKind::RichText:
        peer = std::make_unique<RichTextPeer>(sink, window, name);
        break;
    case UIKind::List:
        peer = std::make_unique<ListPeer>(sink, window, name);
        break;
    default:
        peer = std::make_unique<LabelPeer>(sink, window, name);
        break;
    }
    window->Add(peer.get());
    return peer;
}
