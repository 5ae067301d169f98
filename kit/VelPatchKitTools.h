// What several commands of the kit share: paths and files that the command line names, and tasks
// that are watched on the console.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <functional>
#include <string>

class CXStreamFile;
class CXURI;
class VelPatchConsole;
struct PatchControl;
struct VelPatchWatcher;

/// A path as a person typed it, absolute.
CXString TypedPath(const std::string& text);

/// Whether the text is an http or https address rather than a path.
bool IsWebAddress(absl::string_view text);
/// The address itself, or the "file:" address of a path as a person typed it.
CXURI TypedAddress(const std::string& text);
/// Trusts the roots in this file in place of those beside the program; complains about a file that
/// holds none.
bool TrustTypedFile(const std::string& text, VelPatchConsole& console);

/// Opens a file; complains about one that can't be read, or a folder.
bool OpenForReading(CXStreamFile& file, const CXString& path, VelPatchConsole& console);

/// Writes a file under a name of its own and puts it in place when all went well; on failure
/// nothing is left, and a file that was there stays. Answers the kit's exit code.
int WriteNewFile(const CXString& path, VelPatchConsole& console,
                 const std::function<CXResult(CXStreamFile&)>& write);

/// Reads a control file named by a path or by an http or https address, and complains about one
/// that can't be used. One that is missing or holds no operations is no use either: the patch task
/// would take it for a patch of nothing, and succeed. `size` is that of the file in bytes, 0 if it
/// isn't known.
bool LoadTypedControl(const std::string& text, VelPatchConsole& console, PatchControl& control,
                      uint64_t& size);

/// Shows a task's progress on the console and lets Ctrl-C stop it. Its prompts are asked on a
/// terminal; without one the answer is no, or after a second yes if `retries`. The console must
/// outlive the watcher.
VelPatchWatcher WatchOnConsole(VelPatchConsole& console, bool retries);
