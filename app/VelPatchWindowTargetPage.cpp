#include "app/VelPatchWindowTargetPage.h"

#include "app/VelPatchWindow.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "core/CXText.h"
#include "runtime/CXMessageParams.h"
#include "ui/CXFileDialog.h"
#include "ui/UICheckBox.h"
#include "ui/UIDescription.h"
#include "ui/UIEditTextControl.h"
#include "ui/UIMessageSheet.h"

#include <algorithm>
#include <string>

namespace {

constexpr const char* kConfirm = "confirm-existing-folder";
constexpr int64_t kYes = 0; // index of the sheet's button

constexpr const char* kLayout = R"(
padding 13
constraints {{{
heading.left = parent.left + padding
heading.right = parent.right - padding
heading.top = parent.top + padding
path.left = parent.left + padding
path.right = change.left - 8
path.top = heading.bottom + 8
change.right = parent.right - padding
change.width = change.content-width
change.vertical-center = path.vertical-center
shortcut.left = parent.left + padding
shortcut.right = parent.right - padding
shortcut.top = path.bottom + 13
next.right = parent.right - padding
next.bottom = parent.bottom - padding
}}}
children
{
    heading { type "label" }
    path { type "edit" }
    change { type "button" maintain-metrics-while-invisible "true" }
    shortcut { type "check" text "$velpatch_target_desktop_shortcut" hidden "true" }
    next { type "button" role "default" text "$velpatch_target_next" }
}
)";

/// A path as the user of this system writes it.
CXString InSystemForm(const CXString& path) {
    std::string text(path.View());
    if (CXFileSystem::HasWindowsPaths()) {
        std::replace(text.begin(), text.end(), '/', '\\');
    }
    return CXString(text);
}

} // namespace

void VelPatchWindowTargetPage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    const VelPatchConfiguration& configuration = GetWizard().GetConfiguration();
    const VelPatchProcessSettings& process = GetProcessSettings();
    const bool isInstaller = configuration.isInstallation && !process.uninstall;
    const CXString heading =
        process.uninstall ? GetLocalisedString("$velpatch_target_will_delete_1")
                          : FormatLocalisedString(isInstaller ? "$velpatch_target_will_install_1"
                                                              : "$velpatch_target_will_target_1",
                                                  configuration.installationFolderName);
    Get("heading").SetText(heading);
    Get("path").SetAccessibleName(heading);
    Find<UIEditTextControl>("path")->SetReadOnly(!isInstaller);
    Find<UICheckBox>("shortcut")->SetChecked(process.createDesktopShortcut);
    Get("shortcut").SetShown(isInstaller);
    Get("change").SetText(GetLocalisedString(configuration.isInstallation
                                                 ? "$velpatch_target_browse"
                                                 : "$velpatch_target_change_targets"));
    Get("change").SetShown(!process.uninstall);
    ShowTarget();
}

void VelPatchWindowTargetPage::ShowTarget() {
    const CXString& target = GetWizard().GetConfiguration().targetPath;
    Get("path").SetText(target.IsEmpty() ? GetLocalisedString("$velpatch_target_no_target")
                                         : InSystemForm(target));
    Get("next").SetEnabled(!target.IsEmpty());
}

CXResult VelPatchWindowTargetPage::ProcessMessage(const CXMessage& message) {
    if (message.GetName() == UIEditTextControl::kTextChanged) {
        Get("next").SetEnabled(!Get("path").GetText().IsEmpty());
        return kCXResultOK;
    }
    if (message.Is(kConfirm)) {
        const bool isConfirmed = static_cast<const CXMessageIntParam&>(message).GetValue() == kYes;
        return isConfirmed ? GoNext() : kCXResultOK;
    }
    return VelPatchWindowPage::ProcessMessage(message);
}

CXResult VelPatchWindowTargetPage::Press(const CXString& control) {
    if (control == "next") {
        return PressNext();
    }
    if (control == "change") {
        PressChange();
        return kCXResultOK;
    }
    return control == "shortcut" ? kCXResultOK : kCXResultNotSupported; // read by Next
}

CXResult VelPatchWindowTargetPage::Refuse(const CXString& text) {
    UIMessageSheet::Tell(this, text);
    return kCXResultInvalidArgument;
}

CXResult VelPatchWindowTargetPage::PressNext() {
    const VelPatchConfiguration& configuration = GetWizard().GetConfiguration();
    if (!configuration.isInstallation) {
        return GoNext();
    }
    const CXResult result = TakeTypedTarget();
    if (result != kCXResultOK) {
        return result;
    }
    GetProcessSettings().createDesktopShortcut = Find<UICheckBox>("shortcut")->IsChecked();
    if (!GetProcessSettings().uninstall && CXFileSystem::IsDirectory(configuration.targetPath)) {
        UIMessageSheet::Ask(
            this, GetLocalisedString("$velpatch_target_exists"),
            {{GetLocalisedString("$velpatch_target_yes"), kConfirm},
             {GetLocalisedString("$velpatch_target_cancel"), kConfirm, UIButtonRole::Cancel}});
        return kCXResultOK;
    }
    return GoNext();
}

CXResult VelPatchWindowTargetPage::TakeTypedTarget() {
    const CXString typed = CXFileSystem::FromForeignPath(Get("path").GetText());
    if (!CXFileSystem::IsAbsolute(typed)) {
        return Refuse(GetLocalisedString("$velpatch_target_please_select"));
    }
    const CXString path = CXFileSystem::MakeAbsolute(typed);
    if (CXFileSystem::IsRoot(path)) {
        return Refuse(GetLocalisedString("$velpatch_target_root"));
    }
    GetWizard().SetTarget(path);
    return kCXResultOK;
}

void VelPatchWindowTargetPage::PressChange() {
    const VelPatchConfiguration& configuration = GetWizard().GetConfiguration();
    const bool picksFolder = configuration.isInstallation && !GetProcessSettings().uninstall;
    UIPickRequest request;
    request.folder = picksFolder;
    if (picksFolder) {
        request.startFolder = configuration.targetPath;
        request.prompt = FormatLocalisedString("$velpatch_target_select_1",
                                               configuration.installationFolderName);
    } else {
        request.fileName = CXFileSystem::GetFileName(configuration.anchorFile);
    }
    CXFileDialog::Pick(*this, request, [this, picksFolder](CXResult result, const CXString& path) {
        if (result == kCXResultOK) {
            result = picksFolder ? TakeFolder(path) : TakeFile(path);
        }
        CXLogFormat("VelPatchWindowTargetPage::PressChange> result %d", result);
    });
}

CXString VelPatchWindowTargetPage::FolderOfAnchor(const CXString& path,
                                                  const CXString& anchorFile) {
    CXString folder = path;
    for (CXString rest = CXFileSystem::NormalisePath(anchorFile); !rest.IsEmpty();
         rest = CXFileSystem::GetParent(rest)) {
        if (!EqualsNoCase(CXFileSystem::GetFileName(folder), CXFileSystem::GetFileName(rest))) {
            return CXString();
        }
        folder = CXFileSystem::GetParent(folder);
    }
    return folder;
}

CXResult VelPatchWindowTargetPage::TakeFile(const CXString& path) {
    const CXString& anchorFile = GetWizard().GetConfiguration().anchorFile;
    const CXString folder = FolderOfAnchor(path, anchorFile);
    if (!CXFileSystem::IsAbsolute(folder) ||
        !CXFileSystem::Exists(CXFileSystem::Join(folder, anchorFile))) {
        return Refuse(FormatLocalisedString("$velpatch_target_not_valid", path));
    }
    GetWizard().SetTarget(folder);
    ShowTarget();
    return kCXResultOK;
}

CXResult VelPatchWindowTargetPage::TakeFolder(const CXString& folder) {
    if (!CXFileSystem::IsAbsolute(folder)) {
        return Refuse(FormatLocalisedString("$velpatch_target_not_valid", folder));
    }
    GetWizard().SetTarget(
        CXFileSystem::Join(folder, GetWizard().GetConfiguration().installationFolderName));
    ShowTarget();
    return kCXResultOK;
}
