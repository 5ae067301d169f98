#include "app/VelPatchWizardServices.h"

#include "app/VelPatchLaunch.h"
#include "app/VelPatchSystemIntegration.h"
#include "app/config/VelPatchProcessSettings.h"

VelPatchWizardServices VelPatchWizardServices::OfTheSystem() {
    return {
        [](const CXString& target, bool haveData) { return RelaunchIfNeeded(target, haveData); },
        [](const VelPatchConfiguration& configuration) {
            ApplyRegistryEdits(configuration, GetProcessSettings().uninstall);
        },
        [](const VelPatchConfiguration& configuration) {
            CreateShortcutsAndUninstallList(configuration, GetProcessSettings());
        },
        [](const VelPatchConfiguration& configuration) {
            return FindInstalledTarget(configuration, GetProcessSettings().uninstall);
        },
        [](const VelPatchConfiguration& configuration) {
            return ReadUninstallDisplayName(configuration);
        },
        [](const CXString& target, const CXString& anchorFile) {
            LaunchTarget(target, anchorFile);
        },
        [](const CXString& address) { OpenAddress(address); },
    };
}
