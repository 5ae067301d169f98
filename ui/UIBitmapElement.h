// A picture.
#pragma once

#include "ui/UIControl.h"

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
    const CXBitmap& GetImage() const { return m_image; }

protected:
    void FillPeer(UIPeer& peer) override { peer.SetImage(m_image); }

private:
    CXBitmap m_image;
};
