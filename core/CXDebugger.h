// The debugger channel of the diagnostic output.
#pragma once

/// What the log needs of the platform's debugger. Any thread.
namespace CXDebugger {

/// Passes text on: to an attached debugger on Windows; elsewhere to the standard error output, if
/// the environment variable VELPATCH_DEBUG was set when the first line was written.
void Write(const char* text);
/// True if a debugger is attached to this process.
bool IsPresent();
/// Stops in the debugger; without one the process ends.
void Break();

} // namespace CXDebugger
