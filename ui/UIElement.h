// A node of the tree that makes up a window.
#pragma once

#include "runtime/CXMessage.h"
#include "runtime/CXMessageTarget.h"
#include "ui/UITypes.h"

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

class CXUIWindow;
class UIControl;

/// A rectangle with children. It owns them, and its messages bubble: what it doesn't handle goes to
/// its parent. Bare elements draw nothing; UIControl puts a native control behind one. Main thread.
///
/// Elements that a message may be on its way through are never destroyed at once: take them out by
/// `Remove`, which keeps them until the message that the loop is handling is done with.
class UIElement : public CXMessageTarget {
public:
    static constexpr const char* kType = "element";

    /// `name` tells it from its siblings: in layouts, for `Find`, and for tests.
    explicit UIElement(const CXString& name) : m_name(name) {}
    ~UIElement() override;
    UIElement(const UIElement&) = delete;
    UIElement& operator=(const UIElement&) = delete;

    const CXString& GetName() const { return m_name; }
    /// The word for its class in descriptions; `Find` goes by it.
    virtual const char* GetType() const { return kType; }
    const char* GetTypeName() const override { return GetType(); }
    CXString GetDebugName() const override { return m_name; }
    CXMessageTarget* GetNextTarget() override { return m_parent; }

    // ---- The tree ----

    UIElement* GetParent() const { return m_parent; }
    const std::vector<std::unique_ptr<UIElement>>& GetChildren() const { return m_children; }
    /// Appends a child; later children lie above earlier ones and come later for Tab.
    UIElement* Add(std::unique_ptr<UIElement> child);
    template <typename T, typename... Args> T* AddNew(Args&&... args) {
        return static_cast<T*>(Add(std::make_unique<T>(std::forward<Args>(args)...)));
    }
    /// Takes a child off the screen and destroys it later; see the class.
    void Remove(UIElement* child);
    /// First element of that name below this one, in depth-first order; null if none.
    UIElement* Find(absl::string_view name) const;
    /// The same, null as well when it is of another type than T.
    template <typename T> T* Find(absl::string_view name) const {
        UIElement* found = Find(name);
        return found != nullptr ? found->As<T>() : nullptr;
    }
    /// This element as a T, or null when it is of another type.
    template <typename T> T* As() {
        return std::strcmp(GetType(), T::kType) == 0 ? static_cast<T*>(this) : nullptr;
    }
    /// This element if it has a native control of its own, else null.
    virtual UIControl* AsControl() { return nullptr; }
    /// The window that it is on the screen in, or null.
    CXUIWindow* GetWindow() const { return m_window; }

    // ---- State ----

    void SetShown(bool shown);
    bool IsShown() const { return m_shown; }
    void SetEnabled(bool enabled);
    bool IsEnabled() const { return m_enabled; }
    /// Shown, and so are all that it is in.
    bool IsVisible() const;
    /// Visible and enabled, and so are all that it is in: the user can work with it.
    bool IsUsable() const;

    // ---- Layout ----

    /// In units of the parent's rectangle.
    void SetRect(const UIRect& rect);
    const UIRect& GetRect() const { return m_rect; }
    /// In the client area of its window.
    UIRect GetWindowRect() const;
    /// What it would like to measure; `forWidth` -1: unconstrained.
    virtual UIIntrinsic Measure(int32_t forWidth);
    /// Places the children, and lets them place theirs. The base keeps the children's places.
    virtual void Layout();
    /// What its description says of layout.
    void SetHints(const UIAlignmentHints& hints) { m_hints = hints; }
    const UIAlignmentHints& GetHints() const { return m_hints; }
    /// What this shows has changed its measures; the window lays out anew before the next message,
    /// unless this lies in an element that doesn't update when its children change.
    void InvalidateLayout();

    // ---- Messages ----

    /// Posts a plain message to this element, which gets it after the handler that runs now.
    void Post(const CXString& message);

protected:
    friend class CXUIWindow;
    /// It is on the screen now, or no longer; the base tells the children.
    virtual void Attach(CXUIWindow* window);
    virtual void Detach();
    /// Its visibility or usability, or its place in the window, may have changed; for controls.
    virtual void StateChanged() {}
    /// What was measured before holds no longer.
    virtual void ForgetMeasures() {}
    virtual void RectChanged() {}
    /// Destroys the children, last first. A class that holds what they need calls it first in its
    /// destructor.
    void DestroyChildren();
    /// Calls `StateChanged` of this and all below.
    void TellState();

private:
    void TellRect();

    CXString m_name;
    UIElement* m_parent = nullptr;
    CXUIWindow* m_window = nullptr;
    std::vector<std::unique_ptr<UIElement>> m_children;
    UIRect m_rect;
    UIAlignmentHints m_hints;
    bool m_shown = true;
    bool m_enabled = true;
};
