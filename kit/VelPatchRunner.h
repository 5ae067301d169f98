// Runs a task to its end, for the console and for the self-check.
#pragma once

#include "core/CXString.h"
#include "patch/VelPatchTask.h"

#include <functional>

class CXURI;

/// How a run ended.
enum class VelPatchOutcome : uint8_t { Finished, Failed, Stopped };

/// What watches a run. All are called on the thread that started it.
struct VelPatchWatcher {
    /// A new state, text or fraction; may be empty.
    std::function<void(const TaskStatus&)> status;
    /// Answers a prompt: true tries again. Without it the answer is no.
    std::function<bool(const TaskStatus&)> prompt;
    /// True asks the task to stop; a patch then rolls back by itself. May be empty.
    std::function<bool()> isStopped;
};

/// Applies a patch to the target folder by VelPatchTask_ApplyFilePatches, giving the go at once,
/// and waits until it has ended. `last` gets the final status, whose title and detail tell a
/// failure. The task's log is written when this returns.
VelPatchOutcome RunPatch(const CXURI& control, const CXURI& data, const CXString& target,
                         const VelPatchWatcher& watcher, TaskStatus& last);
/// The same with the paths of both files.
VelPatchOutcome RunPatch(const CXString& control, const CXString& data, const CXString& target,
                         const VelPatchWatcher& watcher, TaskStatus& last);

/// Removes an installed game by VelPatchTask_Uninstall: its shortcuts, then the target folder with
/// all that is in it. `name` is shown behind "Uninstalling". Finished only if the folder is gone.
VelPatchOutcome RunUninstall(const CXString& target, const CXString& name,
                             const VelPatchWatcher& watcher, TaskStatus& last);
