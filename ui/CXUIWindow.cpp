#include "ui/CXUIWindow.h"

#include "ui/CXUIApplication.h"
#include "ui/UIButton.h"
#include "ui/UIControl.h"
#include "ui/UIService.h"

#include <algorithm>

const CXString CXUIWindow::kClose("Close");
const CXString CXUIWindow::kForceClose("ForceClose");

namespace {

/// Calls `visit` for each element below `top` in depth-first order until it returns false.
template <typename Visit> bool WalkElements(const UIElement& top, const Visit& visit) {
    for (const auto& child : top.GetChildren()) {
        if (!visit(*child) || !WalkElements(*child, visit)) {
            return false;
        }
    }
    return true;
}

} // namespace

CXUIWindow::CXUIWindow(const CXString& name, UIKind kind) : UIElement(name), m_kind(kind) {}

CXUIWindow::~CXUIWindow() {
    DestroyChildren(); // their controls lie in our window
}

void CXUIWindow::Activate() {
    UIService* service = UIService::Get();
    UIPeer* owner = m_owner ? m_owner->GetPeer() : nullptr;
    m_peer = service->GetBackend().Make(m_kind, owner, this, GetName());
    m_peer->SetText(m_title);
    m_peer->SetRect(GetRect());
    if (!IsSheet() && !service->GetMenuManager().GetMenus().empty()) {
        service->GetBackend().SetMenus(m_peer.get(), service->GetMenuManager().GetMenus());
    }
    Attach(this);
}

void CXUIWindow::Present() {
    m_presented = true;
    Layout();
    CXUIWindow::StateChanged();
    UIService::Get()->SetFrontWindow(this); // the system will say so too, but later
    if (GetFocus() == nullptr) {
        if (UIControl* control = PickFocus()) {
            control->Focus(true);
        }
    }
}

void CXUIWindow::Close() {
    if (m_closed) {
        return;
    }
    m_closed = true;
    UIService* service = UIService::Get();
    service->CloseSheetsOf(this);
    if (m_peer != nullptr) {
        Detach();
        m_peer.reset();
    }
    service->Forget(this);
}

void CXUIWindow::SetTitle(const CXString& title) {
    m_title = title;
    if (m_peer != nullptr) {
        m_peer->SetText(title);
    }
}

void CXUIWindow::SetContentSize(UISize size) {
    SetRect({0, 0, size.width, size.height});
    SetLayoutNeeded();
}

void CXUIWindow::Raise() {
    if (m_peer != nullptr) {
        m_peer->Raise();
    }
}

void CXUIWindow::StateChanged() {
    if (m_peer != nullptr && m_presented) {
        m_peer->SetState(UIPeerState{IsShown(), IsEnabled()});
    }
}

void CXUIWindow::RectChanged() {
    if (m_peer != nullptr) {
        m_peer->SetRect(GetRect());
    }
}

std::vector<UIControl*> CXUIWindow::GetTabStops() const {
    std::vector<UIControl*> stops;
    WalkElements(*this, [&stops](UIElement& element) {
        UIControl* control = element.AsControl();
        if (control != nullptr && control->IsTabStop()) {
            stops.push_back(control);
        }
        return true;
    });
    return stops;
}

UIControl* CXUIWindow::FindControl(const UIPeer* peer) const {
    UIControl* found = nullptr;
    if (peer != nullptr) {
        WalkElements(*this, [&found, peer](UIElement& element) {
            UIControl* control = element.AsControl();
            if (control != nullptr && control->GetPeer() == peer) {
                found = control;
            }
            return found == nullptr;
        });
    }
    return found;
}

UIControl* CXUIWindow::GetFocus() const {
    return m_peer == nullptr ? nullptr
                             : FindControl(UIService::Get()->GetBackend().GetFocus(m_peer.get()));
}

UIButton* CXUIWindow::FindButton(UIButtonRole role) const {
    UIButton* found = nullptr;
    WalkElements(*this, [&found, role](UIElement& element) {
        if (UIButton* button = element.As<UIButton>()) {
            found = button->GetRole() == role ? button : nullptr;
        }
        return found == nullptr;
    });
    return found;
}

void CXUIWindow::HandleArrow(const UIKey& key) {
    const std::vector<UIControl*> stops = GetTabStops();
    const auto here = std::find(stops.begin(), stops.end(), GetFocus());
    if (here == stops.end()) {
        return;
    }
    const bool back = key.code == kUIKeyLeft || key.code == kUIKeyUp;
    auto next = here;
    if (back ? here == stops.begin() : ++next == stops.end()) {
        return;
    }
    if (back) {
        --next;
    }
    if ((*next)->GetKind() == UIKind::Button) {
        (*next)->Focus();
    }
}

UIControl* CXUIWindow::PickFocus() const {
    UIButton* button = FindButton(UIButtonRole::Default);
    if (button != nullptr && button->IsTabStop()) {
        return button;
    }
    const std::vector<UIControl*> stops = GetTabStops();
    return stops.empty() ? nullptr : stops.front();
}

void CXUIWindow::Layout() {
    m_layoutNeeded = false;
    UIElement::Layout();
}

void CXUIWindow::Maintain() {
    if (m_peer == nullptr) {
        return;
    }
    if (m_layoutNeeded) {
        Layout();
    }
    const UIService& service = *UIService::Get();
    if (service.GetFrontWindow() != this || service.GetTopOf(this) != this) {
        return; // it has no use for a focus now
    }
    UIControl* focus = GetFocus();
    if (focus == nullptr || !focus->IsTabStop()) {
        UIElement* last = m_lastFocus.Get();
        UIControl* control =
            last != nullptr && last->GetWindow() == this ? last->AsControl() : nullptr;
        if (control == nullptr || !control->IsTabStop()) {
            control = PickFocus();
        }
        if (control != nullptr) {
            control->Focus();
        }
        focus = control;
    }
    if (focus != nullptr) {
        m_lastFocus = focus;
    }
}

CXMessageTarget* CXUIWindow::GetNextTarget() {
    CXMessageTarget* target = GetAttachedTo();
    if (target == nullptr && UIService::Get() != nullptr) {
        target = UIService::Get()->GetApplication();
    }
    return target;
}

CXResult CXUIWindow::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == kClose || message.GetName() == kForceClose) {
        Close();
        return kCXResultOK;
    }
    return UIElement::ProcessMessage(message);
}

void CXUIWindow::PeerCloseAsked() {
    ProcessMessage(CXMessage(kClose, this));
}

void CXUIWindow::PeerActivated(bool active) {
    if (active) {
        UIService::Get()->SetFrontWindow(this);
    }
}

void CXUIWindow::PeerMenusOpening() {
    UIService::Get()->GetMenuManager().UpdateStates();
}

void CXUIWindow::PeerMenu(const CXString& command) {
    UIService::Get()->GetMenuManager().Choose(command);
}

void CXUIWindow::PeerMetricsChanged() {
    SetLayoutNeeded();
    TellState(); // some show themselves in some appearances only
}

bool CXUIWindow::PeerCopyData(uint64_t tag, absl::string_view bytes) {
    return UIService::Get()->ReceiveData(tag, bytes);
}
