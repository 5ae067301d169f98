// The task that removes an installed game.
#pragma once

#include "core/CXLock.h"
#include "core/CXResult.h"
#include "patch/VelPatchTask.h"
#include "runtime/CXThread.h"

/// Deletes the files that the target's uninstall list names, then the target folder with all that
/// is in it. Links are removed, never followed. `Begin`, then `Go`; poll `GetStatus`, answer
/// prompts. It always ends in kTaskStateFinished: what a refused prompt left behind stays, and
/// whether the folder is gone is for the caller to look at. Public operations are called from one
/// controlling thread.
class VelPatchTask_Uninstall : public VelPatchTask, public CXThread {
public:
    /// The name is shown behind "Uninstalling" as it is: a blank between them is its own.
    explicit VelPatchTask_Uninstall(const CXString& applicationName);
    /// Waits for the thread.
    ~VelPatchTask_Uninstall() override;

    /// Stores the folder and starts nothing. False while the task runs.
    bool Begin(const CXString& targetFolder) override;
    /// Starts the thread. The status is busy from here on.
    void Go() override;
    /// Ends a prompt that waits as if it were refused, and asks no more; doesn't wait. A deletion
    /// under way goes on.
    void Stop() override;
    void GetStatus(TaskStatus& out) override;
    void AnswerPrompt(bool retry) override;

protected:
    void Proc() override;

private:
    void DeleteListedFiles() const;
    /// Shows the prompt and waits for its answer; true to try again.
    bool AskRetry(CXResult result);

    const CXString m_applicationName;
    CXString m_targetFolder;
    CXCriticalSection m_lock; ///< guards m_status
    TaskStatus m_status;
};

/// Changes the pause before the one silent retry, in milliseconds (2000 unless changed); returns
/// the earlier one. Tests only.
uint32_t SetUninstallRetryPause(uint32_t milliseconds);
