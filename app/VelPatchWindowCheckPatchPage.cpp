#include "app/VelPatchWindowCheckPatchPage.h"

#include "app/VelPatchUpdateService.h"
#include "app/VelPatchWindow.h"
#include "ui/UIControl.h"
#include "ui/UIDescription.h"
#include "ui/UIMessageSheet.h"

namespace {

constexpr const char* kLayout = R"(
padding 13
constraints {{{
heading.left = parent.left + padding
heading.right = parent.right - padding
heading.top = parent.top + padding
busy.left = parent.left + padding
busy.top = heading.bottom + 13
busy.width = 20
back.right = next.left - 8
back.bottom = next.bottom
next.right = parent.right - padding
next.bottom = parent.bottom - padding
}}}
children
{
    heading { type "label" }
    busy { type "spinner" accessible-name "$velpatch_waiting" }
    back { type "button" text "$velpatch_check_back" disabled "true" }
    next { type "button" role "default" disabled "true" }
}
)";

} // namespace

void VelPatchWindowCheckPatchPage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    const bool isInstallation = GetWizard().GetConfiguration().isInstallation;
    Get("heading").SetText(
        GetLocalisedString(isInstallation ? "$velpatch_check_servers" : "$velpatch_check_patches"));
    Get("next").SetText(GetLocalisedString(isInstallation ? "$velpatch_check_install"
                                                          : "$velpatch_check_apply_patch"));
}

void VelPatchWindowCheckPatchPage::Shown() {
    VelPatchUpdateService::PostStreamFileCheck(
        *this, GetWizard().GetConfiguration(), GetWizard().GetSettings(),
        [this](const VelPatchStreamFileCompletion& completion) { Checked(completion); });
}

void VelPatchWindowCheckPatchPage::Checked(const VelPatchStreamFileCompletion& completion) {
    const VelPatchStreamFileOutcome outcome =
        OutcomeOf(completion, GetWizard().GetConfiguration().offlineDescription);
    Get("busy").SetShown(false);
    Get("back").SetEnabled(true);
    Get("next").SetEnabled(outcome.enablesNext);
    outcome.ApplyTo(GetWizard().GetSettings());
    if (outcome.heading) {
        Get("heading").SetText(outcome.heading->Get());
    }
    if (outcome.message) {
        UIMessageSheet::Tell(this, outcome.message->text.Get());
    }
}

CXResult VelPatchWindowCheckPatchPage::Press(const CXString& control) {
    return control == "next" ? GoNext() : control == "back" ? GoBack() : kCXResultNotSupported;
}
