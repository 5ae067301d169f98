// A picture.
#pragma once

#include "ui/UIControl.h"
#include "ui/UIService.h"

#include <utility>

/// As large as its pixels, unless it is placed otherwise.
class UIBitmapElement : public UIControl {
public:
    static constexpr const char* kType = "bitmap";
    explicit UIBitmapElement(const CXString& name) : UIControl(UIKind::Bitmap, name) {}
    const char* GetType() const override { return kType; }

    void SetImage(CXBitmap image) {
        m_image = std::move(image);
        if (UIPeer* peer = GetPeer()) {
            peer->SetImage(m_image);
        }
        ContentChanged();
    }
    /// A decoration lies behind texts; it is left out where the user wants strong colours.
    void SetDecoration(bool isDecoration) {
        m_isDecoration = isDecoration;
        StateChanged();
    }
    const CXBitmap& GetImage() const { return m_image; }

protected:
    void FillPeer(UIPeer& peer) override { peer.SetImage(m_image); }
    UIPeerState GetPeerState() const override {
        UIPeerState state = UIControl::GetPeerState();
        state.shown =
            state.shown && !(m_isDecoration && UIService::Get()->GetBackend().IsHighContrast());
        return state;
    }

private:
    bool m_isDecoration = false;
    CXBitmap m_image;
};
