#include "app/VelPatchWindowAccountPage.h"

#include "app/VelPatchUpdateService.h"
#include "app/VelPatchWindow.h"
#include "runtime/CXWorkerHost.h"
#include "ui/UIDescription.h"
#include "ui/UIEditTextControl.h"
#include "ui/UIMessageSheet.h"

namespace {

constexpr const char* kLayout = R"(
padding 13
constraints {{{
prompt.left = parent.left + padding
prompt.right = parent.right - padding
prompt.top = parent.top + padding
user-label.left = parent.left + padding
user-label.width = user-label.content-width
password-label.left = parent.left + padding
password-label.width = password-label.content-width
user.left >= user-label.right + 8
user.left >= password-label.right + 8
user.left = minimize
user.right = parent.right - padding
user.top = prompt.bottom + 13
user-label.vertical-center = user.vertical-center
password.left = user.left
password.right = user.right
password.top = user.bottom + 8
password-label.vertical-center = password.vertical-center
busy.left = user.left
busy.top = password.bottom + 13
busy.width = 20
back.right = next.left - 8
back.bottom = next.bottom
next.right = parent.right - padding
next.bottom = parent.bottom - padding
}}}
children
{
    prompt { type "label" text "$velpatch_account_prompt" }
    user-label { type "label" text "$velpatch_account_username" label-for "user" }
    user { type "edit" }
    password-label { type "label" text "$velpatch_account_password" label-for "password" }
    password { type "edit" masked "true" }
    busy { type "spinner" accessible-name "$velpatch_waiting" hidden "true" }
    back { type "button" text "$velpatch_account_back" }
    next { type "button" role "default" text "$velpatch_account_next" }
}
)";

} // namespace

void VelPatchWindowAccountPage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    const VelPatchSettings& settings = GetWizard().GetSettings();
    Get("user").SetText(settings.username);
    Get("password").SetText(settings.password);
    UpdateNext();
}

void VelPatchWindowAccountPage::Shown() {
    CXWorkerHost::GetSingleton()->PostToMain(this, [this] { Get("user").Focus(true); });
}

void VelPatchWindowAccountPage::UpdateNext() {
    Get("next").SetEnabled(!Get("user").GetText().IsEmpty() &&
                           !Get("password").GetText().IsEmpty());
}

CXResult VelPatchWindowAccountPage::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == UIEditTextControl::kTextChanged) {
        UpdateNext();
        return kCXResultOK;
    }
    return VelPatchWindowPage::ProcessMessage(message);
}

CXResult VelPatchWindowAccountPage::Press(const CXString& control) {
    if (control == "back") {
        return GoBack();
    }
    if (control == "next") {
        SignIn();
        return kCXResultOK;
    }
    return kCXResultNotSupported;
}

void VelPatchWindowAccountPage::SetWaiting(bool waiting) {
    for (const char* control : {"next", "back", "user", "password"}) {
        Get(control).SetEnabled(!waiting);
    }
    Get("busy").SetShown(waiting);
}

void VelPatchWindowAccountPage::SignIn() {
    SetWaiting(true);
    VelPatchUpdateService::PostStreamCheck(
        *this, GetWizard().GetConfiguration(), Get("user").GetText(), Get("password").GetText(),
        [this](const VelPatchStreamCheckReply& reply) { SignedIn(reply); });
}

void VelPatchWindowAccountPage::SignedIn(const VelPatchStreamCheckReply& reply) {
    SetWaiting(false);
    VelPatchSettings& settings = GetWizard().GetSettings();
    const VelPatchStreamCheckOutcome outcome = OutcomeOf(reply, settings.streamId);
    if (!outcome.GoesOn()) {
        UIMessageSheet::Tell(outcome.message->hasParent ? this : nullptr,
                             outcome.message->text.Get());
        return;
    }
    outcome.ApplyTo(settings);
    GoNext();
}
