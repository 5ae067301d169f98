// The task that runs a patch from beginning to end on a thread of its own.
//
// One direction: control file, the user's go, checks of the target, data file, one operation after
// the other into free paths or "patcher-temp", final renames, or the way back. No existing file is
// touched before the final renames.
#pragma once

#include "core/CXLock.h"
#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "net/CXHTTPMessages.h"
#include "net/CXURI.h"
#include "patch/PatchControl.h"
#include "patch/PatchVolumes.h"
#include "patch/VelPatchTask.h"
#include "runtime/CXEvent.h"
#include "runtime/CXThread.h"

#include <memory>
#include <vector>

class CXStream;
class CXStreamFile;
class StreamProcessorZLibDecompress;

/// One change to the tree, made good at the end or undone. An equal pair: made at its final path.
/// An empty second: a deletion. An empty first: made at a free path, rollback leaves it alone.
struct RenameRecord {
    CXString first;    ///< where the new contents were written; for a deletion the victim
    CXString second;   ///< where they belong at the end
    bool keep = false; ///< rollback doesn't delete first
};

/// One rename of the final pass: `first` is where a file now is, `second` where it was.
struct UndoRecord {
    CXString first;
    CXString second;
};

/// Applies a patch to a target folder. Make it, `Prepare`, `Begin`, `Go`; poll `GetStatus`, answer
/// prompts. It always ends in kTaskStateFinished or kTaskStateFailed; destroying it stops and joins
/// it and writes "velpatch-log.txt" into the temporary folder. Public operations are called from
/// one controlling thread; everything private runs on the task's thread.
class VelPatchTask_ApplyFilePatches : public VelPatchTask, public CXThread {
public:
    VelPatchTask_ApplyFilePatches();
    ~VelPatchTask_ApplyFilePatches() override;

    /// Stores the addresses; an empty data address means data beside the program or on discs.
    void Prepare(const CXURI& controlURI, const CXURI& dataURI);
    /// Hands in how a missing volume is asked for; without it the answer is "none". Before Begin.
    void SetDiscPrompt(PatchDiscPrompt prompt);

    /// Ends an earlier run and starts a new one. False for an empty folder, which is a failure in
    /// the status.
    bool Begin(const CXString& targetFolder) override;
    void Go() override;
    /// Sets the stop flag and wakes a task that waits for the go; doesn't wait.
    void Stop() override;
    void GetStatus(TaskStatus& out) override;
    void AnswerPrompt(bool retry) override;

    /// Where the destructor writes the log.
    static CXString GetLogFilePath();

protected:
    void Proc() override;

private:
    /// Outcome of setting permissions; Again: the user asked for one more try.
    enum class Permission : uint8_t { Set, Again, Failed };

    // Status, log and prompts (VelPatchTask_ApplyFilePatches.cpp).
    void SetStatus(uint32_t state, float fraction, const CXString& text);
    void SetState(uint32_t state);
    void SetText(const CXString& text);
    void SetFraction(float fraction);
    void SetFailure(const CXString& title, const CXString& detail);
    /// Stores title and detail, ends the run's status and logs the failure line.
    void FinishFailed(const CXString& title, const CXString& detail, const CXString& text);
    /// Stores title and detail and logs the failure line; answers false.
    bool Fail(const CXString& title, const CXString& detail = CXString());
    void LogFailure();
    void AppendLog(const CXString& text);
    /// A diagnostic line: to the program's log and to the task's.
    void Log(const CXString& text);
    template <typename... Args> void LogFormat(const char* format, const Args&... args) {
        Log(CXString::Format(format, args...));
    }
    /// Waits for the user's answer. False at once on a stop, or when `operation` (null: none)
    /// ignores failures. The state before the prompt is restored.
    bool AskRetry(const PatchOperation* operation, const CXString& title, const CXString& detail);
    CXResult DeletePatiently(const CXString& path);
    void WriteLogFile();

    // The run (VelPatchTask_ApplyFilePatches_Proc.cpp), in order.
    void ResetRun();
    bool ReadControl();
    bool WaitForGo();
    bool CheckTarget();
    bool GetDataFile();
    bool DownloadDataFile();
    bool OpenDataFile();
    bool AssembleDataFile();
    bool RunOperations();
    bool RunOperation(const PatchOperation& operation);
    void CleanUp();

    // The download (DownloadPatchData.cpp).
    /// Fetches `uri` into the file; with `resume` what is there is kept and only the rest is asked
    /// for. A connection that breaks is tried again, three times in all. On failure the words for
    /// the user are in `title` and `detail`, and what has come stays in the file.
    bool DownloadPatchData(const CXURI& uri, const CXString& path, const CXHTTPProgress& callback,
                           CXStringEdit& title, CXStringEdit& detail, bool resume);
    /// Shows how far a transfer is, behind `baseText`. False: end it, since the task is stopping.
    bool FormatTransferStatus(const CXString& baseText, const CXStreamProgressCallbackData& data);

    // Checks (PreflightCheck.cpp).
    bool PreflightCheck(CXString& reason);
    bool CheckFreeSpace(CXString& reason);

    // Operations (ApplyOperations.cpp).
    CXString InTarget(const CXString& relativePath) const;
    CXString CreateTemporaryFilepathFor(const CXString& path);
    void EnsureParentFolders(const CXString& path);
    bool CreateFile(const PatchOperation& operation, const CXString& destination);
    bool ChangeFile(const PatchOperation& operation, const CXString& source,
                    const CXString& destination);
    bool ChooseChangedFile(const PatchOperation& operation, const CXString& source,
                           const CXString& destination, CXString& target, bool& isDone);
    bool WriteChangedFile(const PatchOperation& operation, const CXString& source,
                          const CXString& target);
    bool CreateFolder(const PatchOperation& operation, const CXString& destination);
    /// Sets the stated permissions; on failure asks, and tells whether to try again.
    Permission SetPermissions(const PatchOperation& operation, const CXString& path);
    bool SetPermissionsWithRetry(const PatchOperation& operation, const CXString& path);

    // Records of the data stream (PatchRecords.cpp).
    bool ExtractFilePayload(CXStream& output, CXString& detail);
    bool PerformBinaryDiff(CXStream& source, CXStream& target);
    bool SkipBinaryDiff();

    // The end (FinaliseAndRollback.cpp).
    bool FinalisePatchOperations();
    bool FinaliseRename(const CXString& destination, const CXString& source,
                        std::vector<UndoRecord>& undo, std::vector<CXString>& backups);
    bool FinaliseDelete(const CXString& source, std::vector<UndoRecord>& undo,
                        std::vector<CXString>& backups);
    /// Moves `path` out of the way to a backup and notes it in both lists, asking on failure.
    /// `pathLabel` names `path` in the diagnostic text.
    bool MoveToBackup(const CXString& path, const CXString& backup, const char* pathLabel,
                      std::vector<UndoRecord>& undo, std::vector<CXString>& backups);
    /// Renames until it works or the user gives up.
    bool RenameWithRetry(const CXString& newPath, const CXString& oldPath, const char* newLabel,
                         const char* oldLabel);
    void UndoCleanupOperations(std::vector<UndoRecord>& undo);
    void CancelCleanupOperations();
    void DeleteDirectoriesCreatedDuringPatchAttempt();
    void DeleteTemporaryPatchFilesDirectory();

    mutable CXCriticalSection m_lock; ///< guards m_status and m_log
    TaskStatus m_status;
    float m_rangeStart = 0.0F; ///< fractions covered by the current operation
    float m_rangeEnd = 0.0F;
    CXStringEdit m_log;
    CXURI m_controlURI;
    CXURI m_dataURI;
    PatchControl m_control;
    CXEvent m_goEvent;
    CXString m_targetFolder;
    PatchDiscPrompt m_discPrompt;

    // Of one run; the data stream reads through the inflater from the file, so it goes first.
    CXString m_dataPath;
    std::unique_ptr<CXStreamFile> m_dataFile;
    std::unique_ptr<StreamProcessorZLibDecompress> m_inflater;
    std::unique_ptr<CXStream> m_dataStream;
    std::vector<RenameRecord> m_renames;
    std::vector<CXString> m_createdFolders; ///< oldest first
    bool m_deleteDataAtEnd = false;
    bool m_rollback = false;
    int64_t m_totalEffort = 1;
    int64_t m_doneEffort = 0;
};
