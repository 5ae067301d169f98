#include "app/VelPatchWindowPatchPage.h"

#include "app/VelPatchWindow.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXLog.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "patch/VelPatchTask_Uninstall.h"
#include "runtime/CXSafePointer.h"
#include "runtime/CXTaskHost.h"
#include "runtime/CXWorkerHost.h"
#include "ui/CXFileDialog.h"
#include "ui/UICheckBox.h"
#include "ui/UIDescription.h"
#include "ui/UIMessageSheet.h"
#include "ui/UIProgressBar.h"
#include "ui/UIService.h"

#include <utility>

namespace {

/// No state of a task: the page has its first look.
constexpr uint32_t kNothingShown = 0xFFFFFFFF;

// Start and Cancel, and Back and Retry, share a place: no state shows both.
constexpr const char* kLayout = R"(
padding 13
constraints {{{
heading.left = parent.left + padding
heading.right = parent.right - padding
heading.top = parent.top + padding
progress.left = parent.left + padding
progress.right = parent.right - padding
progress.top = heading.bottom + 13
launch.left = parent.left + padding
launch.right = parent.right - padding
launch.bottom = cancel.top - 13
start.right = parent.right - padding
start.bottom = parent.bottom - padding
cancel.right = parent.right - padding
cancel.bottom = parent.bottom - padding
back.right = cancel.left - 8
back.bottom = parent.bottom - padding
retry.right = cancel.left - 8
retry.bottom = parent.bottom - padding
}}}
children
{
    heading { type "label" text "$velpatch_ready_to_begin" }
    progress { type "progress" accessible-name "$velpatch_task_installing" hidden "true" }
    launch { type "check" hidden "true" }
    back { type "button" text "$velpatch_back" hidden "true" }
    retry { type "button" text "$velpatch_retry" hidden "true" }
    start { type "button" role "default" text "$velpatch_not_configured" hidden "true" }
    cancel { type "button" text "$velpatch_cancel" }
}
)";

/// What each state of a task shows; the bar is left as it is where `keepsBar` is set.
struct Look {
    bool start, cancel, back, retry, bar;
    const char* cancelText; ///< null: as it is
    bool keepsBar = false;
};
constexpr Look kLooks[] = {
    /* none     */ {true, false, false, false, false, nullptr},
    /* ready    */ {true, false, false, false, false, nullptr},
    /* busy     */ {false, true, false, false, true, nullptr},
    /* measured */ {false, true, false, false, true, nullptr},
    /* finished */ {false, true, false, false, false, "$velpatch_exit"},
    /* failed   */ {false, true, true, false, false, "$velpatch_exit"},
    /* prompt   */ {false, true, false, true, false, "$velpatch_cancel"},
    /* retry    */ {false, true, false, false, false, nullptr, true},
};

bool TellsActivity(uint32_t state) {
    return state != kTaskStateFinished && state != kTaskStateFailed && state != kTaskStatePrompt;
}

/// Asks for a disc on the main thread and waits for the answer; called on the task's thread.
CXString AskForDisc(const CXSafePointer<UIElement>& page, const CXString& title,
                    const CXString& folder, const std::function<bool()>& stopped) {
    const auto answer = std::make_shared<CXString>();
    const bool isAnswered = CXWorkerHost::GetSingleton()->RunOnMainAndWait(
        [page, title, folder, answer](const CXMainJobRelease& release) {
            UIElement* owner = page.Get();
            if (owner == nullptr) {
                return;
            }
            CXFileDialog::Pick(*owner, {false, title, folder, "*.bin"},
                               [answer, release](CXResult result, const CXString& path) {
                                   if (result == kCXResultOK) {
                                       *answer = path;
                                   }
                                   release.Release();
                               });
        },
        stopped);
    return isAnswered ? *answer : CXString();
}

} // namespace

VelPatchWindowPatchPage::VelPatchWindowPatchPage(VelPatchWindow& window)
    : VelPatchWindowPage(window, "patch-page"), CXTask("VelPatchWindowPatchPage"),
      m_lastState(kNothingShown) {}

VelPatchWindowPatchPage::~VelPatchWindowPatchPage() {
    CXTask::Detach();
}

void VelPatchWindowPatchPage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    UICheckBox* launch = Find<UICheckBox>("launch");
    launch->SetText(FormatLocalisedString("$velpatch_launch_now",
                                          GetWizard().GetConfiguration().installationFolderName));
    launch->SetChecked(GetProcessSettings().launchTargetOnExit);
}

void VelPatchWindowPatchPage::Shown() {
    CXWorkerHost::GetSingleton()->PostToMain(this, [this] { StartRun(); });
}

void VelPatchWindowPatchPage::ClosePage() {
    SetCurrentTask(nullptr);
}

void VelPatchWindowPatchPage::StartRun() {
    const VelPatchConfiguration& configuration = GetWizard().GetConfiguration();
    const VelPatchSettings& settings = GetWizard().GetSettings();
    const CXString target = configuration.targetPath;
    m_started = true;
    if (!target.IsEmpty()) {
        SaveSettings(settings, configuration.bundleId, target);
    }
    const bool haveData = !configuration.isOffline || !settings.patchDataFile.IsEmpty();
    const VelPatchRelaunchOutcome outcome =
        GetWizard().GetServices().relaunchIfNeeded(target, haveData);
    switch (outcome.result) {
    case VelPatchRelaunchResult::Relaunched:
        UIService::Get()->RequestQuit();
        return;
    case VelPatchRelaunchResult::Failed:
        UIMessageSheet::Tell(this, outcome.message);
        return;
    case VelPatchRelaunchResult::GoOn:
        break;
    }
    SetCurrentTask(MakeTask());
    if (m_task->Begin(target)) {
        CXLog("VelPatchWindowPatchPage::StartRun> Processing Installation Tasks");
    } else {
        GetWizard().SetTarget(CXString());
    }
    m_task->Go();
}

std::unique_ptr<VelPatchTask> VelPatchWindowPatchPage::MakeTask() {
    if (GetProcessSettings().uninstall) {
        return std::make_unique<VelPatchTask_Uninstall>(GetWizard().GetProductName());
    }
    const VelPatchSettings& settings = GetWizard().GetSettings();
    auto task = std::make_unique<VelPatchTask_ApplyFilePatches>();
    task->Prepare(CXURI(settings.patchControlFile), CXURI(settings.patchDataFile));
    task->SetDiscPrompt(
        [page = CXSafePointer<UIElement>(this)](const CXString& title, const CXString& folder,
                                                const std::function<bool()>& stopped) {
            return AskForDisc(page, title, folder, stopped);
        });
    return task;
}

void VelPatchWindowPatchPage::SetCurrentTask(std::unique_ptr<VelPatchTask> task) {
    if (GetHost() != nullptr) {
        GetHost()->RemoveTask(this);
    }
    if (m_task != nullptr) {
        m_task->Stop();
    }
    m_task = std::move(task); // waits for the end of the old one, which writes its log
    if (m_task != nullptr) {
        CXTaskHost::GetCurrent()->AddTask(this);
    }
}

void VelPatchWindowPatchPage::AnswerPrompt(bool retry) {
    if (m_task != nullptr) {
        m_task->AnswerPrompt(retry);
        m_lastState = kNothingShown; // the next question may come before the next look
    }
}

void VelPatchWindowPatchPage::Proc() {
    m_task->GetStatus(m_status);
    if (m_status.state != m_lastState) {
        m_lastState = m_status.state;
        EnterState();
    }
    if (TellsActivity(m_status.state)) {
        Get("heading").SetText(m_status.statusText);
    }
    if (m_status.state == kTaskStateMeasured) {
        Find<UIProgressBar>("progress")
            ->SetProgress(static_cast<int32_t>(m_status.fraction *
                                               static_cast<float>(UIProgressBar::kRange)));
    }
}

void VelPatchWindowPatchPage::EnterState() {
    const uint32_t state = m_status.state;
    if (state >= std::size(kLooks)) {
        return;
    }
    const Look& look = kLooks[state];
    Get("start").SetShown(look.start);
    Get("cancel").SetShown(look.cancel);
    Get("back").SetShown(look.back);
    Get("retry").SetShown(look.retry);
    if (!look.keepsBar) {
        Get("progress").SetShown(look.bar);
    }
    if (look.cancelText != nullptr) {
        Get("cancel").SetText(GetLocalisedString(look.cancelText));
    }
    switch (state) {
    case kTaskStateNone:
        Get("start").SetText(GetLocalisedString("$velpatch_waiting"));
        Get("start").SetEnabled(false);
        SetCurrentTask(nullptr);
        break;
    case kTaskStateReady:
        SetButton("start", GetLocalisedString("$velpatch_install"), true);
        Get("start").SetEnabled(true);
        break;
    case kTaskStateBusy:
        Find<UIProgressBar>("progress")->SetMoving();
        break;
    case kTaskStateFinished:
        Finished();
        break;
    case kTaskStateFailed:
        Failed();
        break;
    case kTaskStatePrompt:
        ++m_questions;
        if (!m_status.failureTitle.IsEmpty()) {
            Get("heading").SetText(GetFailureText());
        }
        break;
    default:
        break;
    }
}

void VelPatchWindowPatchPage::Finished() {
    const VelPatchConfiguration& configuration = GetWizard().GetConfiguration();
    const VelPatchWizardServices& services = GetWizard().GetServices();
    services.applyRegistryEdits(configuration);
    if (!GetProcessSettings().uninstall) {
        services.createShortcuts(configuration);
    }
    Get("heading").SetText(GetLocalisedString("$velpatch_operation_complete"));
    Get("launch").SetShown(configuration.isInstallation && !GetProcessSettings().uninstall);
    SetCurrentTask(nullptr);
}

void VelPatchWindowPatchPage::Failed() {
    Get("heading").SetText(GetLocalisedString("$velpatch_operation_failed"));
    const CXString text = GetFailureText();
    if (!text.IsEmpty()) {
        UIMessageSheet::Tell(this, text);
    }
    SetCurrentTask(nullptr);
}

CXString VelPatchWindowPatchPage::GetFailureText() const {
    if (m_status.failureTitle.IsEmpty() || m_status.failureDetail.IsEmpty()) {
        return m_status.failureTitle;
    }
    return CXString::Format("%s\n\n%s\n%s", m_status.failureTitle,
                            GetLocalisedString("$velpatch_details_heading"),
                            m_status.failureDetail);
}

CXResult VelPatchWindowPatchPage::Press(const CXString& control) {
    if (control == "start") {
        return kCXResultOK; // the task had its go when the run began
    }
    if (control == "launch") {
        GetProcessSettings().launchTargetOnExit = Find<UICheckBox>("launch")->IsChecked();
        return kCXResultOK;
    }
    if (control == "cancel") {
        AnswerPrompt(false);
        return GetWizard().ProcessMessage(CXMessage(CXUIWindow::kForceClose, this));
    }
    if (control == "retry") {
        AnswerPrompt(true);
        return kCXResultOK;
    }
    return control == "back" ? GoBack() : kCXResultNotSupported;
}
