// The way through a run of the player's program, from its first line to its exit code.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// How the process was called, in UTF-8.
struct VelPatchArguments {
    std::vector<std::string> words; ///< the program's name first
    /// What a second instance hands over: the line behind the program's name, as the system gave
    /// it where the system keeps one.
    std::string rawLine;
};

/// What a run with a window is made of.
struct VelPatchEntryHooks {
    /// Makes the application object, runs the main loop to its end, closes what is open and clears
    /// away the application object. Called on the main thread, when the configuration and its
    /// texts are loaded; must be set. It calls `stopWindowServices` once no window is left, or
    /// leaves that to the end of the run.
    std::function<void(const std::function<void()>& stopWindowServices)> runApplication;
};

/// Runs the program on the calling thread, which becomes the main one:
/// 1. hands its line to a running instance of the same program, and ends if that takes it;
/// 2. starts the runtime, then what the system's windows need;
/// 3. reads the command line (a "checkforpatch" run leaves the process in there);
/// 4. makes the program's folder the current one, installs the crash filter, loads the
///    configuration, runs the application, and goes down in the reverse order.
/// Gives the exit code; once per process.
int RunVelPatch(const VelPatchArguments& arguments, const VelPatchEntryHooks& hooks);

/// What windows need of the system: common controls and drag and drop on Windows, nothing on
/// Linux, where a toolkit is loaded by the first window alone.
namespace VelPatchEntryPlatform {
void StartWindowServices();
void StopWindowServices();
} // namespace VelPatchEntryPlatform
