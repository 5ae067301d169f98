#include "core/CXStringUTF16.h"
#include "ui/UINativeBackend.h"

#include "ui/UIBackendWin32_win32.h"

#include <commctrl.h>

namespace {

// Posted to the thread: a file dialog waits to be shown.
constexpr UINT kMessageRunPick = WM_APP + 1;
constexpr UINT kNestedPeriodMs = 10;

bool IsDown(int key) {
    return GetKeyState(key) < 0;
}

UIPeerWin32Window* TopOf(UIPeer* peer) {
    auto* found = static_cast<UIPeerWin32*>(peer);
    if (found == nullptr) {
        return nullptr;
    }
    return found->GetWindow() != nullptr ? found->GetWindow()
                                         : static_cast<UIPeerWin32Window*>(found);
}

} // namespace

UIBackendWin32* UIBackendWin32::s_backend = nullptr;

std::wstring UIWide(const CXString& text) {
    const CXStringUTF16 units = ToUTF16(text.View());
    std::wstring wide;
    wide.reserve(units.GetLength() / 2);
    for (const char16_t* unit = units.GetUnits(); *unit != 0; ++unit) {
        wide.push_back(static_cast<wchar_t>(*unit));
    }
    return wide;
}

CXString UINarrow(const wchar_t* text) {
    return FromUTF16(reinterpret_cast<const char16_t*>(text));
}

std::unique_ptr<UIBackend> UIMakeNativeBackend() {
    return std::make_unique<UIBackendWin32>();
}

UIBackendWin32::UIBackendWin32() : m_thread(GetCurrentThreadId()) {
    s_backend = this;
    INITCOMMONCONTROLSEX classes{sizeof(classes), ICC_STANDARD_CLASSES | ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&classes);
    LoadLibraryW(L"msftedit.dll"); // brings the rich text control; stays loaded
    UIPeerWin32Window::RegisterClass();
    // Makes the thread's queue, so that Wake finds it.
    MSG message;
    PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
}

UIBackendWin32::~UIBackendWin32() {
    if (m_nestedTimer != 0) {
        KillTimer(nullptr, m_nestedTimer);
    }
    s_backend = nullptr;
}

UIPeerWin32* UIBackendWin32::Find(HWND handle) {
    if (s_backend == nullptr) {
        return nullptr;
    }
    const auto found = s_backend->m_peers.find(handle);
    return found != s_backend->m_peers.end() ? found->second : nullptr;
}

void UIBackendWin32::Register(HWND handle, UIPeerWin32* peer) {
    s_backend->m_peers[handle] = peer;
}

void UIBackendWin32::Unregister(HWND handle) {
    if (s_backend == nullptr) {
        return;
    }
    UIPeerWin32* peer = Find(handle);
    s_backend->m_peers.erase(handle);
    if (peer == nullptr || peer->GetWindow() != nullptr) {
        return;
    }
    auto& picks = s_backend->m_picks;
    for (size_t i = picks.size(); i-- > 0;) {
        if (picks[i]->owner == peer) {
            picks[i]->done = nullptr; // an open one sees it when its dialog ends
            picks.erase(picks.begin() + static_cast<ptrdiff_t>(i));
        }
    }
}

std::unique_ptr<UIPeer> UIBackendWin32::Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                             const CXString& name) {
    if (kind == UIKind::Window || kind == UIKind::Sheet) {
        return std::make_unique<UIPeerWin32Window>(kind, TopOf(parent), sink, name);
    }
    return UIMakeWin32Control(kind, TopOf(parent), sink, name);
}

void UIBackendWin32::SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) {
    if (window != nullptr && window->GetKind() == UIKind::Window) {
        static_cast<UIPeerWin32Window*>(window)->SetMenus(menus);
    }
}

UIPeer* UIBackendWin32::GetFocus(UIPeer* window) {
    UIPeerWin32Window* top = TopOf(window);
    return top != nullptr ? top->GetFocusPeer() : nullptr;
}

void UIBackendWin32::PickPath(UIPeer* owner, const UIPickRequest& request,
                              std::function<void(bool, const CXString&)> done) {
    m_picks.push_back(std::make_shared<Pick>(Pick{TopOf(owner), request, std::move(done)}));
    // The dialog has a loop of its own, so it must not run before the caller has returned.
    PostThreadMessageW(m_thread, kMessageRunPick, 0, 0);
}

void UIBackendWin32::RunPick() {
    if (m_picks.empty()) {
        return; // its owner has gone
    }
    if (m_pickOpen) {
        return; // the next one's turn comes when it ends
    }
    const std::shared_ptr<Pick> pick = m_picks.front();
    CXString path;
    m_pickOpen = true;
    if (pick->owner != nullptr) {
        pick->owner->CountBlock(); // so that a sheet which goes meanwhile doesn't let the user in
    }
    NestedLoop(true);
    const bool chosen = UIRunWin32PickDialog(
        pick->owner != nullptr ? pick->owner->GetHandle() : nullptr, pick->request, path);
    m_pickOpen = false;
    for (size_t i = 0; i < m_picks.size(); ++i) {
        if (m_picks[i] == pick) { // so its owner lives
            m_picks.erase(m_picks.begin() + static_cast<ptrdiff_t>(i));
            if (pick->owner != nullptr) {
                pick->owner->Block(false); // a sheet that came meanwhile still keeps the user out
            }
            break;
        }
    }
    NestedLoop(false);
    if (pick->done) {
        pick->done(chosen, path);
    }
}

void UIBackendWin32::ShowBox(const CXString& text, const CXString& caption) {
    MessageBoxW(nullptr, UIWide(text).c_str(), UIWide(caption).c_str(), MB_OK | MB_ICONWARNING);
}

bool UIBackendWin32::RunOne(int32_t maxWaitMs, UILoopClient& client) {
    UILoopClient* const outer = m_client;
    m_client = &client;
    MSG native{};
    bool got = PeekMessageW(&native, nullptr, 0, 0, PM_REMOVE) != FALSE;
    if (!got && maxWaitMs > 0) {
        MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(maxWaitMs), QS_ALLINPUT,
                                    MWMO_INPUTAVAILABLE);
        got = PeekMessageW(&native, nullptr, 0, 0, PM_REMOVE) != FALSE;
    }
    bool goOn = true;
    if ((got && native.message == WM_QUIT) || !client.BeforeMessage()) {
        goOn = false;
    } else {
        UIMessage message;
        if (got && native.hwnd != nullptr) {
            message.native = &native;
            UIPeerWin32* top = Find(GetAncestor(native.hwnd, GA_ROOT));
            message.window = top;
            message.focus = top != nullptr ? TopOf(top)->GetFocusPeer() : nullptr;
            if (native.message == WM_KEYDOWN) {
                message.isKeyDown = true;
                message.key = {static_cast<uint32_t>(native.wParam), IsDown(VK_SHIFT),
                               IsDown(VK_CONTROL), IsDown(VK_MENU)};
            }
        }
        if (got && native.hwnd == nullptr && native.message == kMessageRunPick) {
            client.Route(message);
            RunPick();
        } else if (!client.Route(message) && got) {
            TranslateMessage(&native);
            DispatchMessageW(&native);
        }
        client.AfterMessage();
    }
    m_client = outer;
    return goOn;
}

void UIBackendWin32::NestedLoop(bool begins) {
    if (s_backend == nullptr) {
        return;
    }
    s_backend->m_nested += begins ? 1 : -1;
    if (s_backend->m_nested == 1 && begins) {
        s_backend->m_nestedTimer = SetTimer(nullptr, 0, kNestedPeriodMs, OnNestedTimer);
    } else if (s_backend->m_nested == 0 && s_backend->m_nestedTimer != 0) {
        KillTimer(nullptr, s_backend->m_nestedTimer);
        s_backend->m_nestedTimer = 0;
    }
    // A loop that isn't ours throws away what was posted to the thread.
    if (s_backend->m_nested == 0 && !s_backend->m_picks.empty() && !s_backend->m_pickOpen) {
        PostThreadMessageW(s_backend->m_thread, kMessageRunPick, 0, 0);
    }
}

void CALLBACK UIBackendWin32::OnNestedTimer(HWND, UINT, UINT_PTR, DWORD) {
    UIBackendWin32* self = s_backend;
    if (self == nullptr || self->m_client == nullptr || self->m_inNestedStep) {
        return;
    }
    self->m_inNestedStep = true;
    self->m_client->AfterMessage();
    self->m_inNestedStep = false;
}

void UIBackendWin32::Wake() {
    PostThreadMessageW(m_thread, WM_NULL, 0, 0);
}

bool UIBackendWin32::IsHighContrast() {
    HIGHCONTRASTW contrast{};
    contrast.cbSize = sizeof(contrast);
    return SystemParametersInfoW(SPI_GETHIGHCONTRAST, sizeof(contrast), &contrast, 0) != FALSE &&
           (contrast.dwFlags & HCF_HIGHCONTRASTON) != 0;
}
