// A diff applied whole on a thread of its own, with progress and without any check.
#pragma once

#include "core/CXLock.h"
#include "patch/VelPatchTask.h"
#include "runtime/CXThread.h"
#include "stream/CXStream.h"

#include <memory>

/// Runs the diff's commands from start to end: unknown commands, failed copies and stream errors
/// are passed over, so the caller must check the result by other means. Always ends in
/// kTaskStateFinished. A running diff can't be stopped.
class VelPatchTask_ApplyFileDiff : public VelPatchTask, public CXThread {
public:
    /// Takes the three streams, which must be open; `totalSize` is the diff's size in bytes, for
    /// the fraction alone.
    VelPatchTask_ApplyFileDiff(std::unique_ptr<CXStream> oldStream,
                               std::unique_ptr<CXStream> diffStream,
                               std::unique_ptr<CXStream> newStream, uint64_t totalSize);
    ~VelPatchTask_ApplyFileDiff() override;

    /// True unless the task runs; stores nothing.
    bool Begin(const CXString& targetFolder) override;
    /// Starts the thread.
    void Go() override;
    void Stop() override;
    void GetStatus(TaskStatus& out) override;

protected:
    void Proc() override;

private:
    /// Carries out the command at the diff's position.
    void RunCommand();

    std::unique_ptr<CXStream> m_oldStream;
    std::unique_ptr<CXStream> m_diffStream;
    std::unique_ptr<CXStream> m_newStream;
    uint64_t m_totalSize;
    CXCriticalSection m_lock; ///< guards m_status
    TaskStatus m_status;
};
