// The page on which the user signs in.
#pragma once

#include "app/VelPatchServiceReplies.h"
#include "app/VelPatchWindowPage.h"

/// Proves user name and password against the service, on a worker. What goes wrong is told, and
/// the page stays with its texts.
class VelPatchWindowAccountPage : public VelPatchWindowPage {
public:
    explicit VelPatchWindowAccountPage(VelPatchWindow& window)
        : VelPatchWindowPage(window, "account-page") {}

    void Activate() override;
    void Shown() override;
    CXResult ProcessMessage(const CXMessage& message) override;

protected:
    CXResult Press(const CXString& control) override;

private:
    void SignIn();
    void SignedIn(const VelPatchStreamCheckReply& reply);
    void SetWaiting(bool waiting);
    void UpdateNext();
};
