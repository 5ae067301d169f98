#include "ui/UIBackendWin32_win32.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const wchar_t* kClassName = L"VelPatchWindow";
// Posted by a window to itself: the activation is told as a message of its own.
constexpr UINT kMessageActivated = WM_APP + 2;
constexpr UINT kMessageScaleChanged = 0x02e0; // WM_DPICHANGED
constexpr double kDotsPerInch = 96.0;

using GetDpiForWindowCall = UINT(WINAPI*)(HWND);
using MetricsForDpiCall = BOOL(WINAPI*)(UINT, UINT, PVOID, UINT, UINT);
using AdjustForDpiCall = BOOL(WINAPI*)(LPRECT, DWORD, BOOL, DWORD, UINT);

/// A call that only later systems have; null where it is missing.
template <typename Call> Call FindCall(const char* name) {
    const HMODULE user = GetModuleHandleW(L"user32.dll");
    return reinterpret_cast<Call>(reinterpret_cast<void*>(GetProcAddress(user, name)));
}

uint32_t DotsPerInch(HWND window) {
    static const auto call = FindCall<GetDpiForWindowCall>("GetDpiForWindow");
    if (call != nullptr && call(window) != 0) {
        return call(window);
    }
    const HDC canvas = GetDC(nullptr);
    const int dots = GetDeviceCaps(canvas, LOGPIXELSY);
    ReleaseDC(nullptr, canvas);
    return dots > 0 ? static_cast<uint32_t>(dots) : 96;
}

std::wstring MenuText(const UIMenuItem& item) {
    std::wstring text;
    for (const wchar_t letter : UIWide(item.text)) {
        text.append(letter == L'&' ? 2 : 1, letter); // a single one would mark a letter
    }
    const uint32_t code = item.shortcut & 0xffff;
    if (item.shortcut != 0) {
        text += L"\tCtrl+";
        text += (item.shortcut & kUIMenuShift) != 0 ? L"Shift+" : L"";
        text += (item.shortcut & kUIMenuAlt) != 0 ? L"Alt+" : L"";
        if (code >= kUIKeyF1 && code < kUIKeyF1 + 12) {
            text += L"F" + std::to_wstring(code - kUIKeyF1 + 1);
        } else {
            wchar_t name[32] = {};
            const UINT scan = MapVirtualKeyW(code, MAPVK_VK_TO_VSC);
            if (code > ' ' && code < 127 && std::isalnum(static_cast<int>(code)) != 0) {
                name[0] = static_cast<wchar_t>(code);
            } else {
                GetKeyNameTextW(static_cast<LONG>(scan << 16), name, 32);
            }
            text += name;
        }
    }
    return text;
}

} // namespace

void UIPeerWin32Window::RegisterClass() {
    WNDCLASSEXW description{};
    description.cbSize = sizeof(description);
    description.lpfnWndProc = Procedure;
    description.hInstance = GetModuleHandleW(nullptr);
    description.hIcon = LoadIconW(description.hInstance, MAKEINTRESOURCEW(1));
    description.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    description.hbrBackground = nullptr; // drawn in WM_ERASEBKGND, pictures and all
    description.lpszClassName = kClassName;
    RegisterClassExW(&description); // once; again it fails, which does no harm
}

UIPeerWin32Window::UIPeerWin32Window(UIKind kind, UIPeerWin32Window* parent, UIPeerSink* sink,
                                     const CXString&)
    : UIPeerWin32(kind, sink, nullptr), m_parent(parent) {
    const bool sheet = kind == UIKind::Sheet;
    const DWORD style = WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN |
                        (sheet ? static_cast<DWORD>(WS_POPUP) : static_cast<DWORD>(WS_MINIMIZEBOX));
    m_handle =
        CreateWindowExW(sheet ? WS_EX_DLGMODALFRAME : 0, kClassName, L"", style, CW_USEDEFAULT,
                        CW_USEDEFAULT, 100, 100, parent != nullptr ? parent->GetHandle() : nullptr,
                        nullptr, GetModuleHandleW(nullptr), nullptr);
    UIBackendWin32::Register(m_handle, this);
    m_scale = DotsPerInch(m_handle) / kDotsPerInch;
    MakeFont();
}

UIPeerWin32Window::~UIPeerWin32Window() {
    if (m_state.shown && m_kind == UIKind::Sheet && m_parent != nullptr) {
        m_parent->Block(false); // before it goes, or another program would become the active one
        SetActiveWindow(m_parent->GetHandle());
    }
    UIBackendWin32::Unregister(m_handle);
    for (; m_loops > 0; --m_loops) { // their ends are told to nobody now
        UIBackendWin32::NestedLoop(false);
    }
    const HMENU menus = GetMenu(m_handle);
    DestroyWindow(m_handle);
    m_handle = nullptr;
    if (menus != nullptr && IsMenu(menus)) {
        DestroyMenu(menus);
    }
    DeleteObject(m_font);
}

void UIPeerWin32Window::MakeFont() {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof(metrics);
    static const auto forDpi = FindCall<MetricsForDpiCall>("SystemParametersInfoForDpi");
    const auto dots = static_cast<UINT>(std::lround(m_scale * kDotsPerInch));
    if (forDpi == nullptr || !forDpi(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0, dots)) {
        SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0);
    }
    if (m_font != nullptr) {
        DeleteObject(m_font);
    }
    m_font = CreateFontIndirectW(&metrics.lfMessageFont);
}

void UIPeerWin32Window::ScaleChanged(uint32_t dotsPerInch, const RECT* proposed) {
    m_scale = dotsPerInch / kDotsPerInch;
    const HFONT old = m_font;
    m_font = nullptr;
    MakeFont();
    for (UIPeerWin32* peer : m_peers) {
        peer->Place();
    }
    DeleteObject(old); // no control has it any more
    if (proposed != nullptr) {
        SetWindowPos(m_handle, nullptr, proposed->left, proposed->top, 0, 0,
                     SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    FitSize(false);
    InvalidateRect(m_handle, nullptr, TRUE);
    m_sink->PeerMetricsChanged();
}

void UIPeerWin32Window::SetText(const CXString& text) {
    m_text = text;
    SetWindowTextW(m_handle, UIWide(text).c_str());
}

void UIPeerWin32Window::SetRect(const UIRect& rect) {
    m_rect = rect;
    FitSize(false);
}

void UIPeerWin32Window::FitSize(bool center) {
    const auto width = static_cast<LONG>(std::lround(UIWidth(m_rect) * m_scale));
    const auto height = static_cast<LONG>(std::lround(UIHeight(m_rect) * m_scale));
    RECT frame{0, 0, width, height};
    const auto style = static_cast<DWORD>(GetWindowLongPtrW(m_handle, GWL_STYLE));
    const auto extended = static_cast<DWORD>(GetWindowLongPtrW(m_handle, GWL_EXSTYLE));
    const BOOL hasMenu = GetMenu(m_handle) != nullptr;
    static const auto forDpi = FindCall<AdjustForDpiCall>("AdjustWindowRectExForDpi");
    if (forDpi == nullptr || !forDpi(&frame, style, hasMenu, extended,
                                     static_cast<UINT>(std::lround(m_scale * kDotsPerInch)))) {
        AdjustWindowRectEx(&frame, style, hasMenu, extended);
    }
    SIZE outer{frame.right - frame.left, frame.bottom - frame.top};
    SetWindowPos(m_handle, nullptr, 0, 0, outer.cx, outer.cy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    RECT client{};
    GetClientRect(m_handle, &client);
    if (!IsIconic(m_handle) && client.bottom < height) { // the menu bar took more than one line
        outer.cy += height - client.bottom;
        SetWindowPos(m_handle, nullptr, 0, 0, outer.cx, outer.cy,
                     SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    if (!center) {
        return;
    }
    MONITORINFO screen{};
    screen.cbSize = sizeof(screen);
    GetMonitorInfoW(MonitorFromWindow(m_parent != nullptr ? m_parent->GetHandle() : m_handle,
                                      MONITOR_DEFAULTTOPRIMARY),
                    &screen);
    const RECT& area = screen.rcWork;
    RECT over = area;
    if (m_parent != nullptr && !IsIconic(m_parent->GetHandle())) {
        GetWindowRect(m_parent->GetHandle(), &over);
    }
    const LONG left = std::max(area.left, (over.left + over.right - outer.cx) / 2);
    const LONG top = std::max(area.top, (over.top + over.bottom - outer.cy) / 2);
    SetWindowPos(m_handle, nullptr, left, top, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void UIPeerWin32Window::SetState(const UIPeerState& state) {
    const bool wasShown = m_state.shown;
    m_state = state;
    ApplyEnabled();
    if (state.shown == wasShown) {
        return;
    }
    const bool blocks = m_kind == UIKind::Sheet && m_parent != nullptr;
    if (state.shown) {
        if (!m_wasPlaced) {
            m_wasPlaced = true;
            FitSize(true);
        }
        if (blocks) {
            m_parent->Block(true);
        }
        ShowWindow(m_handle, SW_SHOW);
        SetForegroundWindow(m_handle);
    } else {
        if (blocks) {
            m_parent->Block(false);
        }
        ShowWindow(m_handle, SW_HIDE);
        if (blocks) {
            SetActiveWindow(m_parent->GetHandle());
        }
    }
}

void UIPeerWin32Window::Block(bool block) {
    m_blocks += block ? 1 : -1;
    ApplyEnabled();
}

void UIPeerWin32Window::ApplyEnabled() {
    EnableWindow(m_handle, m_state.enabled && m_blocks == 0);
}

void UIPeerWin32Window::Focus(bool) {
    FocusControl(nullptr);
}

void UIPeerWin32Window::FocusControl(HWND control) {
    m_lastFocus = control;
    if (GetActiveWindow() == m_handle) {
        SetFocus(control != nullptr ? control : m_handle);
    }
}

UIPeer* UIPeerWin32Window::GetFocusPeer() {
    const HWND focus = GetActiveWindow() == m_handle ? ::GetFocus() : m_lastFocus;
    UIPeerWin32* peer = UIBackendWin32::Find(focus);
    return peer != nullptr && peer->GetWindow() == this ? peer : nullptr;
}

void UIPeerWin32Window::Raise() {
    if (IsIconic(m_handle)) {
        ShowWindow(m_handle, SW_RESTORE);
    }
    BringWindowToTop(m_handle);
    SetForegroundWindow(m_handle);
}

void UIPeerWin32Window::Add(UIPeerWin32* peer) {
    m_peers.push_back(peer);
}

void UIPeerWin32Window::Remove(UIPeerWin32* peer) {
    m_peers.erase(std::remove(m_peers.begin(), m_peers.end(), peer), m_peers.end());
    if (m_lastFocus != nullptr && m_lastFocus == peer->GetHandle()) {
        m_lastFocus = nullptr;
    }
}

void UIPeerWin32Window::InvalidateBehind(const UIRect& rect) {
    const RECT area{static_cast<LONG>(std::floor(rect.left * m_scale)),
                    static_cast<LONG>(std::floor(rect.top * m_scale)),
                    static_cast<LONG>(std::ceil(rect.right * m_scale)),
                    static_cast<LONG>(std::ceil(rect.bottom * m_scale))};
    RedrawWindow(m_handle, &area, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
}

void UIPeerWin32Window::DrawBackground(HDC canvas, const RECT& area) {
    FillRect(canvas, &area, GetSysColorBrush(COLOR_BTNFACE));
    for (UIPeerWin32* peer : m_peers) {
        if (peer->IsShown()) {
            peer->Draw(canvas);
        }
    }
}

LRESULT UIPeerWin32Window::ColorOfStatic(HDC canvas, HWND control) {
    // See-through: what lies behind is drawn first, moved to the control's place.
    RECT place{};
    GetWindowRect(control, &place);
    MapWindowPoints(nullptr, m_handle, reinterpret_cast<POINT*>(&place), 2);
    POINT old{};
    OffsetWindowOrgEx(canvas, place.left, place.top, &old);
    DrawBackground(canvas, place);
    SetWindowOrgEx(canvas, old.x, old.y, nullptr);
    SetBkMode(canvas, TRANSPARENT);
    SetTextColor(canvas, GetSysColor(IsWindowEnabled(control) ? COLOR_BTNTEXT : COLOR_GRAYTEXT));
    return reinterpret_cast<LRESULT>(GetStockObject(NULL_BRUSH));
}

LRESULT CALLBACK UIPeerWin32Window::Procedure(HWND handle, UINT message, WPARAM wide,
                                              LPARAM lparam) {
    auto* self = static_cast<UIPeerWin32Window*>(UIBackendWin32::Find(handle));
    return self != nullptr ? self->Handle(message, wide, lparam)
                           : DefWindowProcW(handle, message, wide, lparam);
}

LRESULT UIPeerWin32Window::Handle(UINT message, WPARAM wide, LPARAM lparam) {
    const HWND handle = m_handle; // this may be gone after a call of the sink
    switch (message) {
    case WM_ERASEBKGND: {
        RECT area{};
        if (GetClipBox(reinterpret_cast<HDC>(wide), &area) == ERROR) {
            GetClientRect(handle, &area);
        }
        DrawBackground(reinterpret_cast<HDC>(wide), area);
        return 1;
    }
    case WM_CTLCOLORSTATIC: {
        const auto control = reinterpret_cast<HWND>(lparam);
        UIPeerWin32* peer = UIBackendWin32::Find(control);
        if (peer != nullptr && peer->GetKind() != UIKind::Edit) {
            return ColorOfStatic(reinterpret_cast<HDC>(wide), control);
        }
        break;
    }
    case WM_COMMAND:
        Command(wide, lparam);
        return 0;
    case WM_INITMENUPOPUP:
        if (HIWORD(lparam) == 0 && !m_settingMenus) {
            m_sink->PeerMenusOpening();
            return 0;
        }
        break;
    case WM_CLOSE:
        m_sink->PeerCloseAsked();
        return 0;
    case WM_ACTIVATE: {
        const bool active = LOWORD(wide) != WA_INACTIVE;
        if (active) {
            SetFocus(m_lastFocus != nullptr ? m_lastFocus : handle);
        } else {
            UIPeerWin32* focus = UIBackendWin32::Find(::GetFocus());
            if (focus != nullptr && focus->GetWindow() == this) {
                m_lastFocus = focus->GetHandle();
            }
        }
        PostMessageW(handle, kMessageActivated, active, 0);
        return 0;
    }
    case kMessageActivated:
        if (m_active != (wide != 0)) {
            m_active = wide != 0;
            m_sink->PeerActivated(m_active);
        }
        return 0;
    case WM_SETFOCUS:
        return 0; // no control has it
    case kMessageScaleChanged:
        ScaleChanged(HIWORD(wide), reinterpret_cast<const RECT*>(lparam));
        return 0;
    case WM_SETTINGCHANGE:
    case WM_SYSCOLORCHANGE:
    case WM_THEMECHANGED:
        for (UIPeerWin32* peer : m_peers) {
            if (peer->GetHandle() != nullptr) {
                SendMessageW(peer->GetHandle(), message, wide, lparam);
            }
        }
        ScaleChanged(static_cast<uint32_t>(std::lround(m_scale * kDotsPerInch)), nullptr);
        return 0;
    case WM_COPYDATA: {
        const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lparam);
        const absl::string_view bytes(static_cast<const char*>(data->lpData),
                                      data->lpData != nullptr ? data->cbData : 0);
        return m_sink->PeerCopyData(data->dwData, bytes) ? 1 : 0;
    }
    case WM_ENTERMENULOOP:
    case WM_ENTERSIZEMOVE:
        ++m_loops;
        UIBackendWin32::NestedLoop(true);
        return 0;
    case WM_EXITMENULOOP:
    case WM_EXITSIZEMOVE:
        --m_loops;
        UIBackendWin32::NestedLoop(false);
        return 0;
    default:
        break;
    }
    return DefWindowProcW(handle, message, wide, lparam);
}

void UIPeerWin32Window::Command(WPARAM wide, LPARAM lparam) {
    if (lparam != 0) {
        UIPeerWin32* peer = UIBackendWin32::Find(reinterpret_cast<HWND>(lparam));
        if (peer != nullptr) {
            peer->Notify(HIWORD(wide));
        }
        return;
    }
    const size_t number = LOWORD(wide);
    if (number >= 1 && number <= m_commands.size()) {
        const CXString command = m_commands[number - 1];
        m_sink->PeerMenu(command);
    }
}

void UIPeerWin32Window::SetMenus(const std::vector<UIMenu>& menus) {
    m_settingMenus = true;
    if (!UpdateMenus(menus)) {
        const HMENU old = GetMenu(m_handle);
        m_commands.clear();
        HMENU bar = menus.empty() ? nullptr : CreateMenu();
        for (const UIMenu& menu : menus) {
            const HMENU popup = CreatePopupMenu();
            for (const UIMenuItem& item : menu.items) {
                m_commands.push_back(item.command);
                AppendMenuW(popup, item.enabled ? MF_STRING : MF_STRING | MF_GRAYED,
                            m_commands.size(), MenuText(item).c_str());
            }
            UIMenuItem title;
            title.text = menu.text;
            AppendMenuW(bar, MF_POPUP, reinterpret_cast<UINT_PTR>(popup), MenuText(title).c_str());
        }
        SetMenu(m_handle, bar);
        if (old != nullptr) {
            DestroyMenu(old);
        }
        FitSize(false);
    }
    m_settingMenus = false;
    m_menus = menus;
}

bool UIPeerWin32Window::UpdateMenus(const std::vector<UIMenu>& menus) {
    const HMENU bar = GetMenu(m_handle);
    if (bar == nullptr || !UISameMenuShape(menus, m_menus)) {
        return false;
    }
    UINT number = 0;
    for (const UIMenu& menu : menus) {
        for (const UIMenuItem& item : menu.items) {
            ++number;
            ModifyMenuW(bar, number, item.enabled ? MF_BYCOMMAND : MF_BYCOMMAND | MF_GRAYED, number,
                        MenuText(item).c_str());
        }
    }
    return true;
}
