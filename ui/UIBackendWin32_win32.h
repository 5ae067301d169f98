// The backend that shows its windows through Win32 controls. Private to the backend's files.
#pragma once

#include "ui/UIBackend.h"

#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/win32_api.h"

class UIPeerWin32Window;

/// UTF-16 for the system's wide calls; "\n" becomes "\r\n" where `lines` is set.
std::wstring UIWide(const CXString& text);
CXString UINarrow(const wchar_t* text);

/// What every peer has: a sink, a rectangle, and (all but pictures) a native control.
class UIPeerWin32 : public UIPeer {
public:
    UIPeerWin32(UIKind kind, UIPeerSink* sink, UIPeerWin32Window* window)
        : m_kind(kind), m_sink(sink), m_window(window) {}
    ~UIPeerWin32() override;

    UIKind GetKind() const override { return m_kind; }
    void SetText(const CXString& text) override;
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

    HWND GetHandle() const { return m_handle; }
    UIPeerSink* GetSink() const { return m_sink; }
    UIPeerWin32Window* GetWindow() const { return m_window; }
    const UIRect& GetRect() const { return m_rect; }
    bool IsShown() const { return m_state.shown; }

    /// The control told its window of something (WM_COMMAND's code). May delete this.
    virtual void Notify(uint32_t) {}
    /// Pictures, which have no control of their own, are drawn by their window.
    virtual void Draw(HDC) {}
    /// Puts the control where its rectangle is at the window's scale, in the window's font.
    virtual void Place();

protected:
    /// Makes the control. `styles` beyond WS_CHILD; it begins hidden.
    void Create(const wchar_t* windowClass, DWORD styles, DWORD extended, const CXString& name);
    UIIntrinsic MeasureText(const CXString& text, int32_t forWidth);
    double GetScale() const;

    /// While one lives, what the control tells is of our own making.
    class Quiet {
    public:
        explicit Quiet(UIPeerWin32& peer) : m_peer(peer) { ++m_peer.m_quiet; }
        ~Quiet() { --m_peer.m_quiet; }
        Quiet(const Quiet&) = delete;
        Quiet& operator=(const Quiet&) = delete;

    private:
        UIPeerWin32& m_peer;
    };
    bool IsQuiet() const { return m_quiet != 0; }

    UIKind m_kind;
    UIPeerSink* m_sink;
    UIPeerWin32Window* m_window; ///< the window or sheet it stands in; null for those
    HWND m_handle = nullptr;
    CXString m_text;
    UIRect m_rect;
    UIPeerState m_state{false, true, false, false};

private:
    int32_t m_quiet = 0;
};

/// A window or sheet.
class UIPeerWin32Window final : public UIPeerWin32 {
public:
    UIPeerWin32Window(UIKind kind, UIPeerWin32Window* parent, UIPeerSink* sink,
                      const CXString& name);
    ~UIPeerWin32Window() override;

    void SetText(const CXString& text) override;
    void SetRect(const UIRect& rect) override;
    void SetState(const UIPeerState& state) override;
    UIIntrinsic Measure(int32_t) override { return {}; }
    void Focus(bool selectAll) override;
    void Raise() override;
    bool IsMinimised() override { return IsIconic(m_handle) != FALSE; }
    void Place() override {}

    void SetMenus(const std::vector<UIMenu>& menus);
    UIPeer* GetFocusPeer();
    /// Gives the control the focus, now or when the window becomes the active one.
    void FocusControl(HWND control);
    void Add(UIPeerWin32* peer);
    void Remove(UIPeerWin32* peer);
    /// Redraws what lies behind a control that is see-through.
    void InvalidateBehind(const UIRect& rect);
    HFONT GetFont() const { return m_font; }
    double GetScaleFactor() const { return m_scale; }
    /// One more, or one fewer, of what is shown over it and keeps the user out.
    void Block(bool block);
    /// The same for a dialog of the system, which disables the window itself.
    void CountBlock() { ++m_blocks; }

    static void RegisterClass();

private:
    static LRESULT CALLBACK Procedure(HWND handle, UINT message, WPARAM wide, LPARAM lparam);
    LRESULT Handle(UINT message, WPARAM wide, LPARAM lparam);
    LRESULT ColorOfStatic(HDC canvas, HWND control);
    void Command(WPARAM wide, LPARAM lparam);
    void DrawBackground(HDC canvas, const RECT& area);
    void MakeFont();
    void ScaleChanged(uint32_t dotsPerInch, const RECT* proposed);
    void FitSize(bool center);
    void ApplyEnabled();
    bool UpdateMenus(const std::vector<UIMenu>& menus);

    UIPeerWin32Window* m_parent;
    HFONT m_font = nullptr;
    double m_scale = 1.0;
    HWND m_lastFocus = nullptr; ///< has the focus when the window is active
    int32_t m_blocks = 0;
    int32_t m_loops = 0; ///< of the system's, for a menu or a drag of this window
    bool m_active = false;
    bool m_wasPlaced = false;
    bool m_settingMenus = false;
    std::vector<UIMenu> m_menus;
    std::vector<CXString> m_commands;  ///< by menu identifier, from 1
    std::vector<UIPeerWin32*> m_peers; ///< in the order of making
};

/// Makes a control; `kind` is neither Window nor Sheet.
std::unique_ptr<UIPeerWin32> UIMakeWin32Control(UIKind kind, UIPeerWin32Window* window,
                                                UIPeerSink* sink, const CXString& name);
/// Runs the system's file or folder dialog; true with a path when the user chose one.
bool UIRunWin32PickDialog(HWND owner, const UIPickRequest& request, CXString& path);

/// The backend itself.
class UIBackendWin32 final : public UIBackend {
public:
    UIBackendWin32();
    ~UIBackendWin32() override;

    const char* GetName() const override { return "win32"; }
    std::unique_ptr<UIPeer> Make(UIKind kind, UIPeer* parent, UIPeerSink* sink,
                                 const CXString& name) override;
    void SetMenus(UIPeer* window, const std::vector<UIMenu>& menus) override;
    UIPeer* GetFocus(UIPeer* window) override;
    void PickPath(UIPeer* owner, const UIPickRequest& request,
                  std::function<void(bool, const CXString&)> done) override;
    void ShowBox(const CXString& text, const CXString& caption) override;
    bool RunOne(int32_t maxWaitMs, UILoopClient& client) override;
    void PostQuit() override { PostQuitMessage(0); }
    void Wake() override;
    bool IsHighContrast() override;

    /// The peer behind a native window, or null.
    static UIPeerWin32* Find(HWND handle);
    static void Register(HWND handle, UIPeerWin32* peer);
    static void Unregister(HWND handle);
    /// The system begins or ends a loop of its own: a menu, a window being dragged, a dialog.
    static void NestedLoop(bool begins);

private:
    struct Pick {
        UIPeerWin32Window* owner;
        UIPickRequest request;
        std::function<void(bool, const CXString&)> done;
    };

    void RunPick();
    static void CALLBACK OnNestedTimer(HWND, UINT, UINT_PTR, DWORD);

    static UIBackendWin32* s_backend;

    DWORD m_thread;
    std::unordered_map<HWND, UIPeerWin32*> m_peers;
    std::vector<std::shared_ptr<Pick>> m_picks; ///< the first may be open
    UILoopClient* m_client = nullptr;
    bool m_pickOpen = false;
    int32_t m_nested = 0;
    bool m_inNestedStep = false;
    UINT_PTR m_nestedTimer = 0;
};
