#include "kit/VelPatchRunner.h"

#include "app/config/VelPatchConfiguration.h"
#include "core/CXFileSystem.h"
#include "net/CXURI.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"

namespace {

// Short for a person who looks on, long against the cost of a look. The end is told at once.
constexpr uint32_t kPollMilliseconds = 10;

} // namespace

VelPatchOutcome RunPatch(const CXString& control, const CXString& data, const CXString& target,
                         const VelPatchWatcher& watcher, TaskStatus& last) {
    VelPatchTask_ApplyFilePatches task;
    task.Prepare(CXURI(FileURIOfPath(CXFileSystem::MakeAbsolute(control))),
                 CXURI(FileURIOfPath(CXFileSystem::MakeAbsolute(data))));
    bool isStopping = false;
    if (task.Begin(CXFileSystem::MakeAbsolute(target))) {
        task.Go();
        // The thread tells the end, not the state: while an answer waits to be seen the state looks
        // like that of a failed task.
        for (task.GetStatus(last); task.IsRunning(); task.GetStatus(last)) {
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
            CXConditionGuard guard(task.GetCondition().GetLock());
            if (!task.IsRunning()) {
                break;
            }
            task.GetCondition().WaitFor(guard, kPollMilliseconds);
        }
    }
    task.GetStatus(last);
    if (watcher.status) {
        watcher.status(last);
    }
    if (last.state == kTaskStateFinished) {
        return VelPatchOutcome::Finished;
    }
    return isStopping ? VelPatchOutcome::Stopped : VelPatchOutcome::Failed;
}
