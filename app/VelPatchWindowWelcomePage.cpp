#include "app/VelPatchWindowWelcomePage.h"

#include "app/VelPatchEULASheet.h"
#include "app/VelPatchWindow.h"
#include "app/config/VelPatchProcessSettings.h"
#include "ui/UIControl.h"
#include "ui/UIDescription.h"

#include <memory>

namespace {

constexpr const char* kLayout = R"(
padding 13
constraints {{{
heading.left = parent.left + padding
heading.right = parent.right - padding
heading.top = parent.top + padding
next.right = parent.right - padding
next.bottom = parent.bottom - padding
}}}
children
{
    heading { type "label" }
    next { type "button" role "default" text "$velpatch_welcome_next" }
}
)";

} // namespace

void VelPatchWindowWelcomePage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    const VelPatchWindow& wizard = GetWizard();
    Get("heading").SetText(
        GetProcessSettings().uninstall
            ? FormatLocalisedString("$velpatch_welcome_uninstall", wizard.GetInstalledName())
            : FormatLocalisedString("$velpatch_welcome_install", wizard.GetTitle(),
                                    GetWizard().GetConfiguration().installationFolderName));
}

CXResult VelPatchWindowWelcomePage::Press(const CXString& control) {
    if (control != "next") {
        return kCXResultNotSupported;
    }
    if (GetProcessSettings().uninstall) {
        return GoNext();
    }
    UISheet::Show(std::make_unique<VelPatchEULASheet>(this));
    return kCXResultOK;
}

CXResult VelPatchWindowWelcomePage::ProcessMessage(const CXMessage& message) {
    return message.GetName() == VelPatchEULASheet::kAgree
               ? GoNext()
               : VelPatchWindowPage::ProcessMessage(message);
}
