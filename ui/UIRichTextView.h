// Styled text to be read.
#pragma once

#include "ui/UIControl.h"

#include <utility>

/// Scrolls, and lets the user select and copy.
class UIRichTextView : public UIControl {
public:
    static constexpr const char* kType = "rich-text";
    explicit UIRichTextView(const CXString& name) : UIControl(UIKind::RichText, name) {}
    const char* GetType() const override { return kType; }

    void SetRichText(UIRichText text) {
        m_text = std::move(text);
        if (UIPeer* peer = GetPeer()) {
            peer->SetRichText(m_text);
        }
    }

protected:
    void FillPeer(UIPeer& peer) override { peer.SetRichText(m_text); }

private:
    UIRichText m_text;
};
