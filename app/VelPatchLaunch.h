// What the program opens for the user: the product itself, and addresses.
#pragma once

#include "core/CXString.h"

/// Starts the anchor file of the target folder, with the file's folder as the current one, if it
/// exists. A file that is no program is opened with the program for its kind. Failures are logged.
/// Started with a user's raised rights, neither of these hands them on.
void LaunchTarget(const CXString& target, const CXString& anchorFile);

/// Opens an address in the user's browser; an empty one does nothing.
void OpenAddress(const CXString& address);
