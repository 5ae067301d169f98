// Starting the program anew with the rights that its work asks for.
#pragma once

#include "core/CXString.h"

/// The platform's way to raised rights. Main thread.
namespace VelPatchElevation {

/// True if this process may write the target, or where it would be made. Always false on Windows,
/// where the system's own question decides.
bool MayWrite(const CXString& target);

/// Starts the program with `arguments` (split as a handed-over command line is) in `folder`. On
/// Windows with the verb "runas", which waits for the user's answer. On Linux by pkexec with
/// `raise`, as a plain child otherwise; the answer to pkexec's question is waited for, too. False
/// if it doesn't run, be it that the user refused.
bool StartElevated(const CXString& program, const CXString& arguments, const CXString& folder,
                   bool raise);

/// Waits until the program that StartElevated started last has ended, for runs without a window,
/// whose caller takes the end of this process for the end of the work. A request to end this
/// process (SIGTERM) goes to the program meanwhile. Returns at once if none was started, and on
/// Windows, where a program that runs can't be replaced.
void WaitForStarted();

} // namespace VelPatchElevation
