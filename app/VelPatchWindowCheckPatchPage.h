// The page that asks what there is for the target.
#pragma once

#include "app/VelPatchServiceReplies.h"
#include "app/VelPatchWindowPage.h"

/// Checks the target and asks the service, on a worker, as soon as it is shown.
class VelPatchWindowCheckPatchPage : public VelPatchWindowPage {
public:
    explicit VelPatchWindowCheckPatchPage(VelPatchWindow& window)
        : VelPatchWindowPage(window, "check-patch-page") {}

    void Activate() override;
    void Shown() override;

protected:
    CXResult Press(const CXString& control) override;

private:
    void Checked(const VelPatchStreamFileCompletion& completion);
};
