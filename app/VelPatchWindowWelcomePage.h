// The first page of an installer: what is about to happen, and the licence.
#pragma once

#include "app/VelPatchWindowPage.h"

/// Goes on once the user has agreed to the licence; an uninstall has none.
class VelPatchWindowWelcomePage : public VelPatchWindowPage {
public:
    explicit VelPatchWindowWelcomePage(VelPatchWindow& window)
        : VelPatchWindowPage(window, "welcome-page") {}

    void Activate() override;
    CXResult ProcessMessage(const CXMessage& message) override;

protected:
    CXResult Press(const CXString& control) override;
};
