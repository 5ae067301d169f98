#include "ui/UIKeyRouting.h"

#include "ui/CXUIWindow.h"
#include "ui/UIButton.h"
#include "ui/UIService.h"

#include <algorithm>

namespace {

UIKeyRouting::Outcome PressButton(const CXUIWindow& window, UIButtonRole role) {
    UIButton* button = window.FindButton(role);
    if (button == nullptr) {
        return UIKeyRouting::Outcome::NotConsumed;
    }
    button->Press();
    return UIKeyRouting::Outcome::Pressed;
}

} // namespace

UIControl* UIKeyRouting::GetNextTabItem(const CXUIWindow& window, const UIControl* from,
                                        bool previous) {
    const std::vector<UIControl*> stops = window.GetTabStops();
    if (stops.empty()) {
        return nullptr;
    }
    const size_t count = stops.size();
    const size_t here =
        static_cast<size_t>(std::find(stops.begin(), stops.end(), from) - stops.begin());
    if (here == count) {
        return previous ? stops.front() : stops.back();
    }
    return stops[(previous ? here + 1 : here + count - 1) % count];
}

UIKeyRouting::Outcome UIKeyRouting::RouteKey(const UIMessage& message, CXUIWindow& window) {
    const UIKey& key = message.key;
    const uint32_t wants = message.focus != nullptr ? message.focus->DlgCode() : 0;
    switch (key.code) {
    case kUIKeyTab:
        if ((wants & (kUIDlgWantsTab | kUIDlgWantsAllKeys)) == 0) {
            // The reverse of the usual sense of "previous"; see GetNextTabItem.
            const bool previous = !key.shift;
            if (UIControl* next =
                    GetNextTabItem(window, window.FindControl(message.focus), previous)) {
                const bool hasText = (next->GetPeer()->DlgCode() & kUIDlgHasSelection) != 0;
                next->Focus(hasText);
            }
            return Outcome::Consumed;
        }
        break;
    case kUIKeyLeft:
    case kUIKeyUp:
    case kUIKeyRight:
    case kUIKeyDown:
        if ((wants & (kUIDlgWantsArrows | kUIDlgWantsAllKeys)) == 0) {
            window.HandleArrow(key);
            return Outcome::Consumed;
        }
        break;
    case kUIKeyEnter:
    case kUIKeyEscape:
        if ((wants & kUIDlgWantsAllKeys) == 0) {
            return PressButton(window, key.code == kUIKeyEnter ? UIButtonRole::Default
                                                               : UIButtonRole::Cancel);
        }
        break;
    default:
        break;
    }
    return Outcome::NotConsumed;
}

bool UIKeyRouting::OfferToMenus(UIService& service, const UIKey& key) {
    if (!key.control || key.code == kUIKeyControl || service.HasSheet()) {
        return false;
    }
    return service.GetMenuManager().OfferKey(key.code + (key.shift ? kUIMenuShift : 0) +
                                             (key.alt ? kUIMenuAlt : 0));
}
