#include "ui/UIListControl.h"

#include "runtime/CXMessageParams.h"

#include <utility>

const CXString UIListControl::kSelectionChanged("UIListControl::selection-changed");
const CXString UIListControl::kChosen("UIListControl::chosen");

void UIListControl::SetItems(std::vector<CXString> items) {
    m_items = std::move(items);
    if (UIPeer* peer = GetPeer()) {
        peer->SetItems(m_items);
    }
    SetPeerValue(-1);
}

void UIListControl::PeerAction(UIPeerEvent event, int32_t value) {
    ProcessMessage(
        CXMessageIntParam(event == UIPeerEvent::Chosen ? kChosen : kSelectionChanged, this, value));
}
