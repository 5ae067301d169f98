// Takes the program off the disk at its end, for copies that were made to run once.
#pragma once

#include "core/CXString.h"

#include <functional>

/// The folder of the program holds the program, its libraries and "data". Anything else in it means
/// that it is the user's folder, and nothing is removed. Main thread, when no window is left.
namespace VelPatchSelfDelete {

using ShowBox = std::function<void(const CXString& text, const CXString& caption)>;

/// Removes "data" at once, then libraries, program and folder: at the next start of the system
/// where files in use can't go earlier, otherwise at once. A file that doesn't belong there is
/// told by `showBox` ("Unexpected file in patch folder", its path as the caption) and stops it
/// all. Files whose names begin with "." are neither told nor removed; the folder then stays. All
/// failures are silent. `program` is the absolute path of the program. False: stopped.
bool Run(const CXString& program, const ShowBox& showBox);

/// Pure: whether a file of this name is a library of the program; Windows has other libraries.
bool IsLibrary(absl::string_view name, bool isWindows);

} // namespace VelPatchSelfDelete
