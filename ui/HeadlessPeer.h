// A control that exists only as data.
#pragma once

#include "runtime/CXSafePointer.h"
#include "ui/UIBackend.h"

#include <vector>

class HeadlessBackend;

/// Keeps what it was told, measures in letters of fixed size, and changes as its user does. Only
/// the backend makes them. Main thread.
class HeadlessPeer : public UIPeer, public CXSafePointerTarget {
public:
    HeadlessPeer(HeadlessBackend& backend, UIKind kind, HeadlessPeer* parent, UIPeerSink* sink,
                 const CXString& name);
    ~HeadlessPeer() override;

    // ---- What the toolkit tells ----

    UIKind GetKind() const override { return m_kind; }
    void SetText(const CXString& text) override;
    CXString GetText() override { return m_text; }
    void SetValue(int32_t value) override;
    int32_t GetValue() override { return m_value; }
    void SetRect(const UIRect& rect) override { m_rect = rect; }
    void SetState(const UIPeerState& state) override;
    void SetDefaultLook(bool isDefault) override { m_default = isDefault; }
    void SetItems(const std::vector<CXString>& items) override;
    void SetRichText(const UIRichText& text) override { m_richText = text; }
    void SetImage(const CXBitmap& image) override { m_image = image; }
    void SetAccessibleName(const CXString& name) override { m_accessibleName = name; }
    UIIntrinsic Measure(int32_t forWidth) override;
    void Focus(bool selectAll) override;
    bool CanEdit(UIEditCommand command) override;
    void DoEdit(UIEditCommand command) override;
    void Raise() override;
    bool IsMinimised() override { return m_minimised; }

    // ---- What is to be seen ----

    const CXString& GetName() const { return m_name; }
    const CXString& GetAccessibleName() const { return m_accessibleName; }
    const UIRect& GetRect() const { return m_rect; }
    const UIPeerState& GetState() const { return m_state; }
    const std::vector<CXString>& GetItems() const { return m_items; }
    const UIRichText& GetRichText() const { return m_richText; }
    UIPeerSink* GetSink() const { return m_sink; }
    /// The window or sheet that it lies in; of one of those, what it hangs on.
    HeadlessPeer* GetParent() const { return m_parent.Get(); }
    bool IsTopLevel() const { return m_kind == UIKind::Window || m_kind == UIKind::Sheet; }
    /// The window or sheet that it lies in, or itself.
    HeadlessPeer* GetTop() { return IsTopLevel() ? this : m_parent.Get(); }
    /// Shown in a window that is shown.
    bool IsSeen();
    /// One line that says all about it, without its rectangle.
    CXString Describe(bool hasFocus);

    // ---- What the user does; called by the backend when the message is dispatched ----

    /// A key that nothing consumed on its way.
    void DispatchKey(const UIKey& key);
    void DispatchCharacter(const CXString& character);
    void Click();
    void ClickLine(int32_t index, bool twice);

private:
    friend class HeadlessBackend;
    bool IsSelected() const { return m_selectedAll && !m_text.IsEmpty(); }
    /// Gives an edit a text as its user would.
    void Change(const CXString& text);

    HeadlessBackend& m_backend;
    const UIKind m_kind;
    CXSafePointer<HeadlessPeer> m_parent;
    UIPeerSink* m_sink;
    CXString m_name;
    CXString m_accessibleName;
    CXString m_text;
    CXString m_undoText;
    int32_t m_value;
    UIRect m_rect;
    UIPeerState m_state;
    std::vector<CXString> m_items;
    std::vector<UIMenu> m_menus;
    UIRichText m_richText;
    CXBitmap m_image;
    CXSafePointer<HeadlessPeer> m_focus; // of a window
    bool m_default = false;
    bool m_selectedAll = false;
    bool m_canUndo = false;
    bool m_minimised = false;
};
