// Judges the paths of operations before anything trusts them.
#pragma once

#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <vector>

/// Name of the folder in the target that holds new and replaced files during a patch.
inline constexpr const char* kPatchTemporaryFolder = "patcher-temp";

/// True if the relative path stays inside the target and outside its temporary folder: not
/// absolute, no drive or network form, no ".." above the target, no NUL. With `windowsRules` a
/// backslash separates too, ":", device names and names that Windows can't hold are refused
/// anywhere, and trailing dots and blanks of a component don't count. A path that names the target
/// itself, or of more than 4,096 bytes, is refused.
bool IsSafeOperationPath(absl::string_view path, bool windowsRules);

/// Tests the paths of all operations by the rules of this platform: an empty source is fine, an
/// empty destination isn't. False with the first offending path in `offender`.
bool AreOperationPathsSafe(const std::vector<PatchOperation>& operations, CXString& offender);

/// True where file names follow Windows' rules.
bool UsesWindowsPaths();
