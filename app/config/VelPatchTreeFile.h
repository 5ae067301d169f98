// Small data trees in files of the user's, replaced as a whole.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "dn/DNValue.h"

/// The tree in the file; an empty folder if it is missing or unreadable, what could be read of a
/// damaged one, before and behind closing braces too many. False if there is something that can't
/// be read now, or is larger than 64 MiB: a writer must then leave the file alone.
bool ReadTreeFile(const CXString& path, DNValueRef& root);

/// Writes the tree by way of a temporary file, so that a crash leaves the old file or the new one;
/// a failure leaves the old one. The file gets `permissions` (see SetFilePermissions), and the
/// owner of its folder.
CXResult WriteTreeFile(const CXString& path, const DNValue& root, const CXString& permissions);
