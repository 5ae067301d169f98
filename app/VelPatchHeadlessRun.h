// The hand and the eye of a run that nobody looks at: the patch page without a screen.
#pragma once

#include "core/CXString.h"
#include "runtime/CXTask.h"

#include <cstdint>
#include <deque>
#include <functional>

class VelPatchApp;
class VelPatchWindowPatchPage;
struct TaskStatus;

/// Prints what the page shows, answers the task's questions, and closes the window when the work is
/// done, handed on to another process, or impossible. On a terminal there is one line that changes,
/// elsewhere one line for each thing that is being done. A task of the main thread.
class VelPatchHeadlessRun : public CXTask {
public:
    struct Ways {
        std::function<void(const CXString& text)> write; ///< to the standard output
        std::function<bool()> isInterrupted;             ///< the user wants it to end
        std::function<bool()> isIdle; ///< all that came up on the screen was read
        bool isTerminal = false;
        /// Answers to the task's questions, in order; true: try again. "No" when there are no more.
        std::deque<bool> answers = {};
    };

    /// `findApp` may give null as long as there is none.
    VelPatchHeadlessRun(std::function<VelPatchApp*()> findApp, Ways ways);
    ~VelPatchHeadlessRun() override;

    void Proc() override;

private:
    void Show(VelPatchWindowPatchPage& page, bool isBusy);
    void ShowQuestion(const TaskStatus& status);
    void ShowLine(const CXString& line);
    void EndLine();

    std::function<VelPatchApp*()> m_findApp;
    Ways m_ways;
    CXString m_line;         ///< on the terminal, not ended yet
    CXString m_activity;     ///< the last activity written, without its numbers
    int64_t m_writtenAt = 0; ///< when that was, in milliseconds
    uint32_t m_answered = 0; ///< questions, of those that the page has shown
    bool m_isClosing = false;
};
