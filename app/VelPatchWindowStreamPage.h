// The page that shows the patch stream and lets the user take another.
#pragma once

#include "app/VelPatchWindowPage.h"

class VelPatchWindowStreamPage : public VelPatchWindowPage {
public:
    explicit VelPatchWindowStreamPage(VelPatchWindow& window)
        : VelPatchWindowPage(window, "stream-page") {}

    void Activate() override;
    CXResult ProcessMessage(const CXMessage& message) override;

protected:
    CXResult Press(const CXString& control) override;

private:
    void OfferStreams();
    void TakeStream(const CXString& id);
    void ShowStream();
};
