// The page on which the work is done.
#pragma once

#include "app/VelPatchWindowPage.h"
#include "patch/VelPatchTask.h"
#include "runtime/CXTask.h"

#include <memory>

/// Starts the task as soon as it is shown, unless another process is to do the work, watches it as
/// a task of the main thread, and shows what it reports. Task and page meet in the status and in
/// `AnswerPrompt` alone.
class VelPatchWindowPatchPage : public VelPatchWindowPage, public CXTask {
public:
    static constexpr const char* kType = "patch-page";

    explicit VelPatchWindowPatchPage(VelPatchWindow& window);
    ~VelPatchWindowPatchPage() override;
    const char* GetType() const override { return kType; }

    void Activate() override;
    void Shown() override;
    /// Stops the task and waits until it has undone what it did.
    void ClosePage() override;
    /// One look at the task.
    void Proc() override;
    /// True while a task is watched.
    bool IsBusy() const override { return m_task != nullptr; }

    /// False until the run was begun, or given to another process.
    bool HasStarted() const { return m_started; }
    /// The status that is shown.
    const TaskStatus& GetStatus() const { return m_status; }
    /// Number of questions that were shown; each wants an answer of its own.
    uint32_t CountQuestions() const { return m_questions; }
    /// Answers the task's question, if there is one.
    void AnswerPrompt(bool retry);

protected:
    CXResult Press(const CXString& control) override;

private:
    void StartRun();
    std::unique_ptr<VelPatchTask> MakeTask();
    void SetCurrentTask(std::unique_ptr<VelPatchTask> task);
    /// Shows what a state looks like.
    void EnterState();
    void Finished();
    void Failed();
    CXString GetFailureText() const;

    std::unique_ptr<VelPatchTask> m_task;
    TaskStatus m_status;
    uint32_t m_lastState; ///< that was shown
    uint32_t m_questions = 0;
    bool m_started = false;
};
