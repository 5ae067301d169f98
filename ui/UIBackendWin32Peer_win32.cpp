#include "ui/UIBackendWin32_win32.h"

#include <algorithm>
#include <cmath>
#include <initguid.h>
#include <oleacc.h>

UIPeerWin32::~UIPeerWin32() {
    if (m_window != nullptr) {
        m_window->Remove(this);
    }
    if (m_handle != nullptr) {
        UIBackendWin32::Unregister(m_handle);
        DestroyWindow(m_handle);
        if (m_window != nullptr && m_state.shown) {
            m_window->InvalidateBehind(m_rect);
        }
    }
}

void UIPeerWin32::Create(const wchar_t* windowClass, DWORD styles, DWORD extended,
                         const CXString&) {
    m_handle = CreateWindowExW(extended, windowClass, L"", WS_CHILD | styles, 0, 0, 0, 0,
                               m_window->GetHandle(), nullptr, GetModuleHandleW(nullptr), nullptr);
    UIBackendWin32::Register(m_handle, this);
    SendMessageW(m_handle, WM_SETFONT, reinterpret_cast<WPARAM>(m_window->GetFont()), FALSE);
    // So assistive technology reads the controls in the order of making.
    SetWindowPos(m_handle, HWND_BOTTOM, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
}

double UIPeerWin32::GetScale() const {
    return m_window->GetScaleFactor();
}

void UIPeerWin32::SetText(const CXString& text) {
    if (text == m_text) {
        return;
    }
    m_text = text;
    SetWindowTextW(m_handle, UIWide(text).c_str());
}

void UIPeerWin32::SetRect(const UIRect& rect) {
    if (rect == m_rect) {
        return;
    }
    if (m_state.shown) {
        m_window->InvalidateBehind(m_rect);
    }
    m_rect = rect;
    Place();
}

void UIPeerWin32::Place() {
    const double scale = GetScale();
    const auto left = static_cast<int>(std::lround(m_rect.left * scale));
    const auto top = static_cast<int>(std::lround(m_rect.top * scale));
    const auto right = static_cast<int>(std::lround(m_rect.right * scale));
    const auto bottom = static_cast<int>(std::lround(m_rect.bottom * scale));
    // Rich text has letters of its own, which this message would level.
    if (m_kind != UIKind::RichText) {
        SendMessageW(m_handle, WM_SETFONT, reinterpret_cast<WPARAM>(m_window->GetFont()), FALSE);
    }
    SetWindowPos(m_handle, nullptr, left, top, right - left, bottom - top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    if (m_state.shown) {
        InvalidateRect(m_handle, nullptr, TRUE);
    }
}

void UIPeerWin32::SetState(const UIPeerState& state) {
    const bool changed = state.shown != m_state.shown;
    m_state = state;
    EnableWindow(m_handle, state.enabled);
    if (changed) {
        ShowWindow(m_handle, state.shown ? SW_SHOWNA : SW_HIDE);
        m_window->InvalidateBehind(m_rect);
    }
}

void UIPeerWin32::SetAccessibleName(const CXString& name) {
    IAccPropServices* services = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_AccPropServices, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IAccPropServices, reinterpret_cast<void**>(&services)))) {
        services->SetHwndPropStr(m_handle, static_cast<DWORD>(OBJID_CLIENT), CHILDID_SELF,
                                 PROPID_ACC_NAME, UIWide(name).c_str());
        services->Release();
    }
}

UIIntrinsic UIPeerWin32::Measure(int32_t) {
    return {};
}

void UIPeerWin32::Focus(bool) {
    m_window->FocusControl(m_handle);
}

UIIntrinsic UIPeerWin32::MeasureText(const CXString& text, int32_t forWidth) {
    const double scale = GetScale();
    const HDC canvas = GetDC(m_handle);
    const HGDIOBJ old = SelectObject(canvas, m_window->GetFont());
    const std::wstring wide = UIWide(text);
    UINT flags = DT_CALCRECT | DT_NOPREFIX | DT_LEFT;
    RECT area{0, 0, 1 << 20, 0};
    if (forWidth >= 0) {
        flags |= DT_WORDBREAK | DT_EDITCONTROL; // the latter breaks words that are too long
        area.right = std::max<LONG>(1, static_cast<LONG>(std::floor(forWidth * scale)));
    }
    DrawTextW(canvas, wide.c_str(), static_cast<int>(wide.size()), &area, flags);
    TEXTMETRICW metrics{};
    GetTextMetricsW(canvas, &metrics);
    LONG longest = 0;
    for (size_t at = 0; at < wide.size();) {
        size_t end = wide.find_first_of(L" \n\t", at);
        end = end == std::wstring::npos ? wide.size() : end;
        SIZE size{};
        GetTextExtentPoint32W(canvas, wide.c_str() + at, static_cast<int>(end - at), &size);
        longest = std::max(longest, size.cx);
        at = end + 1;
    }
    SelectObject(canvas, old);
    ReleaseDC(m_handle, canvas);

    const auto logical = [&](LONG pixels) {
        return static_cast<int32_t>(std::ceil(static_cast<double>(pixels) / scale));
    };
    UIIntrinsic result;
    result.natural = UISize{logical(area.right), logical(std::max(area.bottom, metrics.tmHeight))};
    result.min = UISize{std::min(logical(longest), kUILongestWord), result.natural.height};
    result.baseline = logical(metrics.tmAscent);
    result.heightFollowsWidth = true;
    return result;
}
