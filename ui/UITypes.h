// Plain values that elements, layout and backends exchange.
#pragma once

#include "core/CXString.h"
#include "ui/alignment/UIAlignmentTypes.h"

#include <cstdint>
#include <vector>

// All measures of the window are in logical units: 96 of them are an inch at the user's scale of
// 100 %. A UIRect is given in its window's client area, whose left top (below the menu bar, where
// there is one) is (0, 0); `right` and `bottom` lie just outside.

inline int32_t UIWidth(const UIRect& rect) {
    return rect.right - rect.left;
}
inline int32_t UIHeight(const UIRect& rect) {
    return rect.bottom - rect.top;
}

/// Keys by the numbers that Windows gives them; a backend of another system translates. Keys that
/// are not named here need no number of their own (0 will do), letters and digits are their ASCII
/// upper-case codes.
enum UIKeyCode : uint32_t {
    kUIKeyNone = 0,
    kUIKeyBackspace = 8,
    kUIKeyTab = 9,    ///< also what X11 calls ISO_Left_Tab
    kUIKeyEnter = 13, ///< also that of the number pad
    kUIKeyShift = 16,
    kUIKeyControl = 17,
    kUIKeyAlt = 18,
    kUIKeyEscape = 27,
    kUIKeySpace = 32,
    kUIKeyPageUp = 33,
    kUIKeyPageDown = 34,
    kUIKeyEnd = 35,
    kUIKeyHome = 36,
    kUIKeyLeft = 37,
    kUIKeyUp = 38,
    kUIKeyRight = 39,
    kUIKeyDown = 40,
    kUIKeyInsert = 45,
    kUIKeyDelete = 46,
    kUIKeyF1 = 112,
};

/// A key going down, with the modifier keys that are held at that moment. Repeats count.
struct UIKey {
    uint32_t code = kUIKeyNone;
    bool shift = false, control = false, alt = false;
};

/// What a control shows and lets the user do. Hidden and disabled are independent.
struct UIPeerState {
    bool shown = true;
    bool enabled = true;
    bool readOnly = false; ///< Edit: can be read, selected, copied, focused, not changed
    bool masked = false;   ///< Edit: a password; shows dots, can't be copied or cut
    bool operator==(const UIPeerState&) const = default;
};

/// What the edit menu asks of the control that has the focus.
enum class UIEditCommand : uint8_t { Undo, Redo, Cut, Copy, Paste, Clear, SelectAll };

/// One entry of a menu.
struct UIMenuItem {
    CXString command; ///< name of the message that choosing it sends
    CXString text;    ///< shown as it is: no mnemonic marks, "&" and "_" are plain characters
    uint32_t shortcut =
        0; ///< key code + 0x10000 for Shift + 0x20000 for Alt, Control held; 0: none
    bool enabled = true;
};
struct UIMenu {
    CXString text;
    std::vector<UIMenuItem> items;
};
inline constexpr uint32_t kUIMenuShift = 0x10000;
inline constexpr uint32_t kUIMenuAlt = 0x20000;

/// What a file or folder dialog is to find.
struct UIPickRequest {
    bool folder = false; ///< an existing folder (or one that the user makes); else an existing file
    CXString prompt;     ///< what is asked for; empty: the system's usual title
    CXString startFolder; ///< program path to begin at; may not exist, may be empty
    CXString fileName;    ///< the only name that is offered, or "*" and its end; empty: all files
};
