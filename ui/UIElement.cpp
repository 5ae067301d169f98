#include "ui/UIElement.h"

#include "runtime/CXMessagePostTask.h"
#include "ui/CXUIWindow.h"
#include "ui/UIService.h"

#include <algorithm>

UIElement::~UIElement() {
    DestroyChildren();
}

void UIElement::DestroyChildren() {
    while (!m_children.empty()) {
        m_children.pop_back();
    }
}

UIElement* UIElement::Add(std::unique_ptr<UIElement> child) {
    UIElement* added = child.get();
    added->m_parent = this;
    m_children.push_back(std::move(child));
    if (m_window != nullptr) {
        added->Attach(m_window);
    }
    InvalidateLayout();
    return added;
}

void UIElement::Remove(UIElement* child) {
    const auto found = std::find_if(m_children.begin(), m_children.end(),
                                    [child](const auto& entry) { return entry.get() == child; });
    if (found == m_children.end()) {
        return;
    }
    std::unique_ptr<UIElement> removed = std::move(*found);
    m_children.erase(found);
    if (m_window != nullptr) {
        removed->Detach();
    }
    InvalidateLayout();
    // It keeps its parent: a message that is on its way through it bubbles on.
    if (UIService* service = UIService::Get()) {
        service->DestroyLater(std::move(removed));
    }
}

UIElement* UIElement::Find(absl::string_view name) const {
    for (const auto& child : m_children) {
        if (child->m_name == name) {
            return child.get();
        }
        if (UIElement* found = child->Find(name)) {
            return found;
        }
    }
    return nullptr;
}

void UIElement::SetShown(bool shown) {
    if (m_shown != shown) {
        m_shown = shown;
        TellState();
        InvalidateLayout();
    }
}

void UIElement::SetEnabled(bool enabled) {
    if (m_enabled != enabled) {
        m_enabled = enabled;
        TellState();
    }
}

bool UIElement::IsVisible() const {
    const UIElement* element = this;
    while (element != nullptr && element->m_shown) {
        element = element->m_parent;
    }
    return element == nullptr;
}

bool UIElement::IsUsable() const {
    const UIElement* element = this;
    while (element != nullptr && element->m_shown && element->m_enabled) {
        element = element->m_parent;
    }
    return element == nullptr;
}

void UIElement::TellState() {
    StateChanged();
    for (const auto& child : m_children) {
        child->TellState();
    }
}

void UIElement::SetRect(const UIRect& rect) {
    if (m_rect != rect) {
        m_rect = rect;
        TellRect();
    }
}

void UIElement::TellRect() {
    RectChanged();
    for (const auto& child : m_children) {
        child->TellRect();
    }
}

UIRect UIElement::GetWindowRect() const {
    UIRect rect = m_rect;
    for (const UIElement* element = m_parent; element != nullptr; element = element->m_parent) {
        rect.left += element->m_rect.left;
        rect.right += element->m_rect.left;
        rect.top += element->m_rect.top;
        rect.bottom += element->m_rect.top;
    }
    return rect;
}

UIIntrinsic UIElement::Measure(int32_t) {
    return {};
}

void UIElement::Layout() {
    for (const auto& child : m_children) {
        child->Layout();
    }
}

void UIElement::InvalidateLayout() {
    for (UIElement* element = this; element != nullptr; element = element->m_parent) {
        element->ForgetMeasures();
    }
    for (const UIElement* above = m_parent; above != nullptr; above = above->m_parent) {
        if (above->m_hints.noUpdateOnChildChange) {
            return;
        }
    }
    if (m_window != nullptr) {
        m_window->SetLayoutNeeded();
    }
}

void UIElement::Post(const CXString& message) {
    CXMessagePostTask::GetMainThreadSingleton()->Post(this,
                                                      std::make_unique<CXMessage>(message, this));
}

void UIElement::Attach(CXUIWindow* window) {
    m_window = window;
    for (const auto& child : m_children) {
        child->Attach(window);
    }
}

void UIElement::Detach() {
    // Children first: a control lies in its window's.
    for (auto child = m_children.rbegin(); child != m_children.rend(); ++child) {
        (*child)->Detach();
    }
    m_window = nullptr;
}
