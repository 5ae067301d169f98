// The interface of the long tasks, and the status in which they and the window meet.
#pragma once

#include "core/CXString.h"

#include <cstdint>

/// States of a task.
enum TaskState : uint32_t {
    kTaskStateNone = 0,
    kTaskStateReady = 1,    ///< waiting for the user's go
    kTaskStateBusy = 2,     ///< progress unknown
    kTaskStateMeasured = 3, ///< fraction valid
    kTaskStateFinished = 4, ///< ended well
    kTaskStateFailed = 5,   ///< ended with a failure, or cancelled
    kTaskStatePrompt = 6,   ///< waits for AnswerPrompt
    kTaskStateRetry = 7,    ///< the user chose to retry; seen by the task alone
};

/// A copy of what a task has to say, taken under its lock.
struct TaskStatus {
    uint32_t state = kTaskStateNone;
    float fraction = 0.0F;  ///< 0 to 1
    CXString statusText;    ///< current activity
    CXString failureTitle;  ///< text of the failure or of the prompt
    CXString failureDetail; ///< often a path or a code
};

/// A long piece of work on a thread of its own. All operations are called from one controlling
/// thread. The base does nothing.
class VelPatchTask {
public:
    virtual ~VelPatchTask() = default;
    /// Readies the task for a target folder; false if it can't run.
    virtual bool Begin(const CXString& targetFolder);
    /// Gives the user's go.
    virtual void Go() {}
    /// Asks the task to end soon; doesn't wait.
    virtual void Stop() {}
    virtual void GetStatus(TaskStatus& out);
    /// Answers a prompt (kTaskStatePrompt); without one it has no effect.
    virtual void AnswerPrompt(bool retry);
};
