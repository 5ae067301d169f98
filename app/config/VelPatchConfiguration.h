// The product's configuration: what makes the general program the patcher of one product.
#pragma once

#include "app/config/VelPatchSettings.h"
#include "core/CXString.h"
#include "dn/DNValue.h"

/// What the window takes from the configuration and the user's choice of target. Main thread.
struct VelPatchConfiguration {
    bool isInstallation = false; ///< installs the product rather than patching it
    bool isOffline = false;      ///< the control file comes with the program
    CXString targetPath;
    CXString anchorFile; ///< file, relative to the target, whose checksum names the build
    CXString bundleId;
    CXString productName; ///< as the window's title shows it
    CXString installationId;
    CXString serviceBase; ///< see ServiceBaseOf
    CXString installationFolderName;
    CXString anchorChecksum; ///< the one build that an offline patch accepts
    CXString offlineDescription;
    DNValueRef registryEdits; ///< shared with the configuration tree
    CXString startMenuShortcutFolder;
    CXString shortcutFilename;
};

/// Path of "patch-config.txt" in the "data" folder beside the program.
CXString GetConfigurationPath();
/// The tree of a configuration file; an empty folder if it is missing or unreadable.
DNValueRef ReadConfigurationFile(const CXString& path);
/// Where the patch stream service is asked, ending in "/": the configuration's "patch-service-base"
/// if that is an https address, otherwise the address that the program was built with.
CXString ServiceBaseOf(const DNValue& root);
/// The configuration that LoadApplicationConfiguration read.
DNValueRef GetConfigurationRoot();

/// Reads the configuration file, picks the language and fills the table of localised texts.
/// Nothing is reported: a table without texts and ApplyConfiguration tell of a damaged copy. Once,
/// at start-up, before any other thread.
void LoadApplicationConfiguration();

/// Puts the configuration into the window's fields, and an offline copy's addresses into the
/// settings; `title` is the window's title. Called again at each change of the target, after
/// LoadSettings. False, with nothing changed, if there is no configuration.
bool ApplyConfiguration(VelPatchConfiguration& configuration, VelPatchSettings& settings,
                        CXString& title);

/// The "file:" address of an absolute path, percent-coded but for "/"; empty for a relative one.
CXString FileURIOfPath(const CXString& path);
