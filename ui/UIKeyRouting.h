// What keys do in a window, whatever system draws it.
#pragma once

#include "ui/UIBackend.h"

class CXUIWindow;
class UIControl;
class UIService;

/// The rules of Tab, arrows, Enter and Escape, which come before the control with the focus sees
/// the key, and those of the menus' shortcuts, which come after. Main thread.
namespace UIKeyRouting {

enum class Outcome : uint8_t {
    NotConsumed,
    Consumed,
    Pressed, ///< consumed by the press of a button
};

/// Tab moves the focus, arrows go to the window, Enter and Escape press the first button of their
/// role, each unless the control with the focus wants the key for itself.
Outcome RouteKey(const UIMessage& message, CXUIWindow& window);

/// Offers a key that is pressed with Control held to the menu bar, unless a sheet is open. True:
/// consumed.
bool OfferToMenus(UIService& service, const UIKey& key);

/// The next (or previous) Tab stop of a window in dialog order, going round; null if there is none.
/// Dialog order goes from the control that lies top-most to the lowest, as the system's own dialogs
/// have it. Later controls lie above earlier ones, so the order runs backwards through the tree,
/// and "previous" is what follows for a reader. `from` null: the first, or with `previous` the
/// last.
UIControl* GetNextTabItem(const CXUIWindow& window, const UIControl* from, bool previous);

} // namespace UIKeyRouting
