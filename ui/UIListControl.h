// A list of lines to choose from.
#pragma once

#include "ui/UIControl.h"

#include <vector>

/// Sends `kSelectionChanged` when the user selects another line, `kChosen` on a double click (both
/// CXMessageIntParam with the index).
class UIListControl : public UIControl {
public:
    static constexpr const char* kType = "list";
    static const CXString kSelectionChanged;
    static const CXString kChosen;
    explicit UIListControl(const CXString& name) : UIControl(UIKind::List, name) {
        SetPeerValue(-1);
    }
    const char* GetType() const override { return kType; }

    /// Replaces the lines; none is selected afterwards.
    void SetItems(std::vector<CXString> items);
    /// -1: none.
    void SetSelected(int32_t index) { SetPeerValue(index); }
    int32_t GetSelected() const { return GetPeerValue(); }

    void PeerAction(UIPeerEvent event, int32_t value) override;

protected:
    void FillPeer(UIPeer& peer) override { peer.SetItems(m_items); }

private:
    std::vector<CXString> m_items;
};
