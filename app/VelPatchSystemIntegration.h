// The traces that a good run leaves in the system, and what is read back from them.
#pragma once

#include "app/VelPatchRegistry.h"
#include "app/config/VelPatchConfiguration.h"
#include "app/config/VelPatchProcessSettings.h"
#include "core/CXString.h"

/// Carries out the configuration's registry edits, or takes them back. Failures don't stop what
/// follows, and nothing is reported. Measures the target folder, which may take its time.
void ApplyRegistryEdits(const VelPatchConfiguration& configuration, bool uninstall);

/// The name under which a numbered value with these data stands in the key; else, if one may be
/// allocated, the first free number. Empty for none.
CXString FindRegistryValueName(VelPatchRegistryRoot root, const CXString& path,
                               const CXString& data, bool allocate);

/// The target of a run that was given none: the program's own folder for an uninstall; the usual
/// folder for an installation; else where the file association says that the product is. Empty for
/// none.
CXString FindInstalledTarget(const VelPatchConfiguration& configuration, bool uninstall);

/// Makes the shortcuts that the configuration asks for, in the start menu and, if the process
/// settings say so, on the desktop, and notes them in the target's "uninstall.dat". Does nothing
/// after an uninstall. Failures are silent.
void CreateShortcutsAndUninstallList(const VelPatchConfiguration& configuration,
                                     const VelPatchProcessSettings& process);

/// The name that the product gave itself in its uninstall entry; empty if there is none.
CXString ReadUninstallDisplayName(const VelPatchConfiguration& configuration);
