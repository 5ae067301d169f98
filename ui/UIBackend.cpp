#include "ui/UIBackend.h"

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
