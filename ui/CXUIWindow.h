// A top-level window, or a sheet over one.
#pragma once

#include "runtime/CXSafePointer.h"
#include "ui/UIBackend.h"
#include "ui/UIElement.h"

#include <memory>
#include <vector>

class UIButton;
class UIControl;
enum class UIButtonRole : uint8_t;

/// The root of a tree of elements, with a native window of fixed size. UIService owns the windows
/// that are open; `Close` gives one back, and it is destroyed when the message that closed it is
/// done with. Messages that nobody in it handles go to the application, those of a sheet to what
/// it is attached to.
class CXUIWindow : public UIElement, public UIPeerSink {
public:
    static constexpr const char* kType = "window";
    /// "Close" asks (a subclass may intercept it), "ForceClose" doesn't; both close.
    static const CXString kClose;
    static const CXString kForceClose;

    explicit CXUIWindow(const CXString& name, UIKind kind = UIKind::Window);
    ~CXUIWindow() override;
    const char* GetType() const override { return kType; }

    bool IsSheet() const { return m_kind == UIKind::Sheet; }
    /// Null before it is open and after it was closed.
    UIPeer* GetPeer() const { return m_peer.get(); }
    bool IsClosed() const { return m_closed; }
    void SetTitle(const CXString& title);
    const CXString& GetTitle() const { return m_title; }
    /// Of the client area, without menu bar and frame.
    void SetContentSize(UISize size);

    /// Set-up, when it is opened. The base makes the native window, still hidden; a subclass calls
    /// it first, and then adds what it shows.
    virtual void Activate();
    /// Takes it off the screen, the sheets over it first. Once.
    virtual void Close();
    /// Lays out, shows and activates it, and gives the focus to a control. For UIService.
    void Present();
    bool IsPresented() const { return m_presented; }
    /// To the front, out of the minimised state too.
    void Raise();
    /// What a sheet hangs on; null for none.
    CXUIWindow* GetOwner() const { return m_owner.Get(); }
    void SetOwner(CXUIWindow* owner) { m_owner = owner; }

    // ---- For the keyboard ----

    /// The controls at which Tab stops now, in tree order.
    std::vector<UIControl*> GetTabStops() const;
    /// The control behind a peer of this window, or null.
    UIControl* FindControl(const UIPeer* peer) const;
    UIControl* GetFocus() const;
    /// The first button of a role in depth-first order, whatever its state; null if none.
    UIButton* FindButton(UIButtonRole role) const;
    /// An arrow key that the control with the focus doesn't want: moves on to the next or previous
    /// button, without going round.
    virtual void HandleArrow(const UIKey& key);
    /// Asked of every message that is not consumed yet; true consumes it.
    virtual bool FilterMessage(const UIMessage&) { return false; }

    // ---- Upkeep ----

    void SetLayoutNeeded() { m_layoutNeeded = true; }
    /// Lays out if something has changed, and gives the focus to another control if the one that
    /// had it can't have it any more. For the main loop, after each message.
    void Maintain();
    void Layout() override;

    CXMessageTarget* GetNextTarget() override;
    CXResult ProcessMessage(const CXMessage& message) override;
    void PeerCloseAsked() override;
    void PeerActivated(bool active) override;
    void PeerMenusOpening() override;
    void PeerMenu(const CXString& command) override;
    bool PeerCopyData(uint64_t tag, absl::string_view bytes) override;
    void PeerMetricsChanged() override;

protected:
    void StateChanged() override;
    void RectChanged() override;
    /// Where messages of a sheet go; null: to the application.
    virtual CXMessageTarget* GetAttachedTo() const { return nullptr; }
    /// The control that gets the focus when nothing else says which: the default button, or the
    /// first that can have it.
    virtual UIControl* PickFocus() const;

private:
    UIKind m_kind;
    CXString m_title;
    std::unique_ptr<UIPeer> m_peer;
    CXSafePointer<CXUIWindow> m_owner;
    CXSafePointer<UIElement> m_lastFocus;
    bool m_closed = false;
    bool m_presented = false;
    bool m_layoutNeeded = true;
};
