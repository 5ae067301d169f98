// The console that a run without a window is started from.
#pragma once

namespace VelPatchConsole {

/// Whether the standard output is a console that a person looks at.
bool IsTerminal();

/// From now on Ctrl-C and a polite request to end only raise a flag, so that a patch can be undone.
/// A second one ends the process.
void CatchInterrupts();
bool IsInterrupted();

} // namespace VelPatchConsole
