#include "ui/UIBackend.h"

#include <algorithm>

uint32_t UIStandardDlgCode(UIKind kind) {
    switch (kind) {
    case UIKind::Edit:
        return kUIDlgWantsArrows | kUIDlgHasSelection;
    case UIKind::RichText:
    case UIKind::List:
        return kUIDlgWantsArrows;
    case UIKind::Button:
    case UIKind::Check:
        return kUIDlgButton;
    default:
        return kUIDlgStatic;
    }
}

bool UIKindIsFocusable(UIKind kind) {
    return UIStandardDlgCode(kind) != kUIDlgStatic;
}

bool UISameMenuShape(const std::vector<UIMenu>& one, const std::vector<UIMenu>& other) {
    const auto sameItem = [](const UIMenuItem& a, const UIMenuItem& b) {
        return a.command == b.command && a.shortcut == b.shortcut;
    };
    const auto sameMenu = [&](const UIMenu& a, const UIMenu& b) {
        return a.text == b.text &&
               std::equal(a.items.begin(), a.items.end(), b.items.begin(), b.items.end(), sameItem);
    };
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), sameMenu);
}
