// What the wizard's pages have done in the system around them.
#pragma once

#include "app/VelPatchRelaunch.h"
#include "app/config/VelPatchConfiguration.h"
#include "core/CXString.h"

#include <functional>

/// One function for each act that reaches outside of the window, the service and the target. Tests
/// put their own in place. All are set; main thread.
struct VelPatchWizardServices {
    /// Starts a later stage of this process if the run needs one.
    std::function<VelPatchRelaunchOutcome(const CXString& target, bool haveData)> relaunchIfNeeded;
    /// After a good run: the registry edits, or their undoing, then the shortcuts.
    std::function<void(const VelPatchConfiguration&)> applyRegistryEdits;
    std::function<void(const VelPatchConfiguration&)> createShortcuts;
    /// Where the product is, or would usually be; empty: unknown.
    std::function<CXString(const VelPatchConfiguration&)> findInstalledTarget;
    /// What the product is called in its uninstall entry; empty: no entry.
    std::function<CXString(const VelPatchConfiguration&)> readDisplayName;
    /// Starts the product.
    std::function<void(const CXString& target, const CXString& anchorFile)> launchTarget;
    /// Opens an address in the user's browser.
    std::function<void(const CXString& address)> openAddress;

    static VelPatchWizardServices OfTheSystem();
};
