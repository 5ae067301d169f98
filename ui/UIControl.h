// An element with a native control behind it.
#pragma once

#include "ui/UIBackend.h"
#include "ui/UIElement.h"

#include <memory>

/// Keeps all that the control is to show, so that it can be filled in before it is on the screen;
/// the peer is made when it gets there. Base of the widgets.
class UIControl : public UIElement, public UIPeerSink {
public:
    UIControl(UIKind kind, const CXString& name) : UIElement(name), m_kind(kind) {}
    ~UIControl() override = default;

    UIControl* AsControl() override { return this; }
    UIKind GetKind() const { return m_kind; }
    /// Null while it isn't on the screen. Owned by the control.
    UIPeer* GetPeer() const { return m_peer.get(); }

    void SetText(const CXString& text);
    /// What it shows now; of an edit, what the user has made of it.
    CXString GetText() const;
    /// The name that is read to those who can't see; an edit has that of its label. Without it the
    /// text serves, or else the element's name.
    void SetAccessibleName(const CXString& name);

    /// Whether Tab can stop here now.
    bool IsTabStop() const { return UIKindIsFocusable(m_kind) && IsUsable(); }
    /// Gives it the keyboard; an edit may select its text. Nothing while it isn't on the screen.
    void Focus(bool selectAll = false);

    UIIntrinsic Measure(int32_t forWidth) override;
    /// Takes the commands of the edit menu, if it is a text, and answers for their states.
    CXResult ProcessMessage(const CXMessage& message) override;

protected:
    void Attach(CXUIWindow* window) override;
    void Detach() override;
    void StateChanged() override;
    void RectChanged() override;
    /// Gives a fresh peer what the subclass knows; text, state and place are done by this class.
    virtual void FillPeer(UIPeer&) {}
    /// Subclasses that have more to the state than being shown and usable add it here.
    virtual UIPeerState GetPeerState() const;
    /// Takes a value for the peer, which may come later.
    void SetPeerValue(int32_t value);
    int32_t GetPeerValue() const;
    /// The peer measures differently now.
    void ContentChanged() { InvalidateLayout(); }

private:
    UIKind m_kind;
    CXString m_text;
    CXString m_accessibleName;
    int32_t m_value = 0;
    std::unique_ptr<UIPeer> m_peer;
};
