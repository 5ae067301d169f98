#include "kit/VelPatchRunner.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "net/CXURI.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "patch/VelPatchTask_Uninstall.h"

namespace {

// Short for a person who looks on, long against the cost of a look. The end is told at once.
constexpr uint32_t kPollMilliseconds = 10;

/// Waits until the task's thread has ended; true if it was asked to stop. `last` gets the final
/// status.
bool Watch(VelPatchTask& task, CXThread& thread, const VelPatchWatcher& watcher, TaskStatus& last) {
    bool isStopping = false;
    // The thread tells the end, not the state: while an answer waits to be seen the state looks
    // like that of a failed task.
    for (task.GetStatus(last); thread.IsRunning(); task.GetStatus(last)) {
        if (watcher.status) {
            watcher.status(last);
        }
        if (!isStopping && watcher.isStopped && watcher.isStopped()) {
            isStopping = true;
            task.Stop();
        }
        if (last.state == kTaskStatePrompt && !isStopping) {
            task.AnswerPrompt(watcher.prompt && watcher.prompt(last));
        }
        CXConditionGuard guard(thread.GetCondition().GetLock());
        if (!thread.IsRunning()) {
            break;
        }
        thread.GetCondition().WaitFor(guard, kPollMilliseconds);
    }
    task.GetStatus(last);
    if (watcher.status) {
        watcher.status(last);
    }
    return isStopping;
}

} // namespace

VelPatchOutcome RunPatch(const CXString& control, const CXString& data, const CXString& target,
                         const VelPatchWatcher& watcher, TaskStatus& last) {
    return RunPatch(CXURI(FileURIOfPath(CXFileSystem::MakeAbsolute(control))),
                    CXURI(FileURIOfPath(CXFileSystem::MakeAbsolute(data))), target, watcher, last);
}

VelPatchOutcome RunPatch(const CXURI& control, const CXURI& data, const CXString& target,
                         const VelPatchWatcher& watcher, TaskStatus& last) {
    VelPatchTask_ApplyFilePatches task;
    task.Prepare(control, data);
    if (task.Begin(CXFileSystem::MakeAbsolute(target))) {
        task.Go();
    }
    const bool isStopping = Watch(task, task, watcher, last);
    if (last.state == kTaskStateFinished) {
        return VelPatchOutcome::Finished;
    }
    return isStopping ? VelPatchOutcome::Stopped : VelPatchOutcome::Failed;
}

VelPatchOutcome RunUninstall(const CXString& target, const CXString& name,
                             const VelPatchWatcher& watcher, TaskStatus& last) {
    const CXString folder = CXFileSystem::MakeAbsolute(target);
    VelPatchTask_Uninstall task(name);
    if (task.Begin(folder)) {
        task.Go();
    }
    const bool isStopping = Watch(task, task, watcher, last);
    // The task ends alike whether all went or not.
    if (!CXFileSystem::Exists(folder)) {
        return VelPatchOutcome::Finished;
    }
    return isStopping ? VelPatchOutcome::Stopped : VelPatchOutcome::Failed;
}
