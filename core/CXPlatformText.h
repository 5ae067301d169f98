// Texts that the platforms read and write, kept free of system calls so that both are built and
// tested everywhere.
#pragma once

#include "core/CXString.h"

#include <vector>

/// Mount paths of real file systems in a Linux mount table (the form of /proc/self/mountinfo, see
/// proc(5)), in its order, each once. Kernel interfaces such as proc or cgroup are left out.
std::vector<CXString> ParseMountInfo(absl::string_view text);

/// The desktop folder named by the text of an XDG "user-dirs.dirs" file, with a leading "$HOME"
/// replaced by `home`; empty when the text names none.
CXString ParseDesktopFolder(absl::string_view text, absl::string_view home);

/// A desktop entry (XDG desktop entry format, version 1.5) that starts `program` in
/// `workingFolder`.
CXString MakeDesktopEntry(absl::string_view name, absl::string_view program,
                          absl::string_view workingFolder);

/// One Windows command line that the C run-time splits into exactly these arguments.
CXString MakeWindowsCommandLine(const std::vector<CXString>& arguments);

/// Program form of a Windows path: no "\\?\" prefix, "/" as separator.
CXString FromWindowsPath(absl::string_view path);
/// The form in which Windows and its users know a program path: "\" as separator.
CXString ToWindowsPath(absl::string_view path);
