// The end of a patch: the short pass of renames that makes it good, and the ways back.
//
// The undo walks its records in the order in which they were made; the clean-up of a rollback then
// deletes what the rename list names first. Both are settled behaviour that the studio's tools and
// the documentation of what a failed patch leaves rely on.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "patch/PatchPaths.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"

bool VelPatchTask_ApplyFilePatches::FinalisePatchOperations() {
    std::vector<UndoRecord> undo;
    std::vector<CXString> backups;
    for (const RenameRecord& record : m_renames) {
        if (!FinaliseRename(record.second, record.first, undo, backups)) {
            Log("VelPatchTask_ApplyFilePatches::FinalisePatchOperations> FinaliseRename failed; "
                "undoing cleanup");
            UndoCleanupOperations(undo);
            return false;
        }
    }
    for (const CXString& backup : backups) {
        LogFormat("VelPatchTask_ApplyFilePatches::FinalisePatchOperations> deleting: %s",
                  backup.GetData());
        DeletePatiently(backup);
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::FinaliseRename(const CXString& destination,
                                                   const CXString& source,
                                                   std::vector<UndoRecord>& undo,
                                                   std::vector<CXString>& backups) {
    if (destination == source) {
        LogFormat("VelPatchTask_ApplyFilePatches::FinaliseRename> no rename necessary: %s",
                  destination.GetData());
        return true;
    }
    if (destination.IsEmpty()) {
        return FinaliseDelete(source, undo, backups);
    }
    if (source.IsEmpty()) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::FinaliseRename> creation? no rename necessary: %s",
            destination.GetData());
        return true;
    }
    if (CXFileSystem::Exists(destination)) {
        CXString backup;
        while ((backup = CreateTemporaryFilepathFor(destination)).IsEmpty()) {
            LogFormat("VelPatchTask_ApplyFilePatches::FinaliseRename> failed to create temporary "
                      "filepath for '%s'",
                      destination.GetData());
            if (!AskRetry(nullptr, GetLocalisedString("$velpatch_task_failed_generate_temp_file"),
                          CXString())) {
                return false;
            }
        }
        if (!MoveToBackup(destination, backup, "destinationFilepath", undo, backups)) {
            return false;
        }
    }
    if (!RenameWithRetry(destination, source, "destinationFilepath", "sourceFilepath")) {
        return false;
    }
    undo.push_back({destination, source});
    return true;
}

bool VelPatchTask_ApplyFilePatches::FinaliseDelete(const CXString& source,
                                                   std::vector<UndoRecord>& undo,
                                                   std::vector<CXString>& backups) {
    if (!CXFileSystem::Exists(source)) {
        LogFormat("VelPatchTask_ApplyFilePatches::FinaliseRename> file was already deleted: %s",
                  source.GetData());
        return true;
    }
    CXString backup;
    while ((backup = CreateTemporaryFilepathFor(source)).IsEmpty()) {
        Log("VelPatchTask_ApplyFilePatches::FinaliseRename> !backupLocation");
        LogFormat("VelPatchTask_ApplyFilePatches::FinaliseRename> %s", source.GetData());
        if (!AskRetry(nullptr, GetLocalisedString("$velpatch_task_retry_create_temporary"),
                      CXString())) {
            return false;
        }
    }
    return MoveToBackup(source, backup, "sourceFilepath", undo, backups);
}

bool VelPatchTask_ApplyFilePatches::MoveToBackup(const CXString& path, const CXString& backup,
                                                 const char* pathLabel,
                                                 std::vector<UndoRecord>& undo,
                                                 std::vector<CXString>& backups) {
    if (!RenameWithRetry(backup, path, "backupLocation", pathLabel)) {
        return false;
    }
    backups.push_back(backup);
    undo.push_back({backup, path});
    return true;
}

bool VelPatchTask_ApplyFilePatches::RenameWithRetry(const CXString& newPath,
                                                    const CXString& oldPath, const char* newLabel,
                                                    const char* oldLabel) {
    for (;;) {
        const CXResult result = CXFileSystem::Rename(newPath, oldPath);
        if (result == kCXResultOK) {
            return true;
        }
        const CXString title =
            FormatLocalisedString("$velpatch_task_failed_move_file", oldPath, newPath);
        const CXString detail = CXString::Format(
            "VelPatchTask_ApplyFilePatches::FinaliseRename> rename(%s='%s', %s='%s') failed with "
            "result %d",
            newLabel, newPath.GetData(), oldLabel, oldPath.GetData(), result);
        LogFormat("%s - %s", title.GetData(), detail.GetData());
        if (!AskRetry(nullptr, title, detail)) {
            return false;
        }
    }
}

void VelPatchTask_ApplyFilePatches::UndoCleanupOperations(std::vector<UndoRecord>& undo) {
    for (const UndoRecord& record : undo) {
        if (!record.first.IsEmpty() && !CXFileSystem::Exists(record.first)) {
            if (!record.second.IsEmpty()) {
                LogFormat(
                    "VelPatchTask_ApplyFilePatches::UndoCleanupOperations> backup file doesn't "
                    "exist: %s",
                    record.first.GetData());
            }
            continue;
        }
        if (!record.second.IsEmpty() && CXFileSystem::Exists(record.second)) {
            LogFormat("VelPatchTask_ApplyFilePatches::UndoCleanupOperations> deleting: %s",
                      record.second.GetData());
            DeletePatiently(record.second);
        }
        if (record.second.IsEmpty()) {
            DeletePatiently(record.first);
            continue;
        }
        LogFormat(
            "VelPatchTask_ApplyFilePatches::UndoCleanupOperations> rename(dst='%s', src='%s')",
            record.second.GetData(), record.first.GetData());
        if (CXFileSystem::Rename(record.second, record.first) != kCXResultOK) {
            LogFormat(
                "VelPatchTask_ApplyFilePatches::UndoCleanupOperations> rename(dst='%s', src='%s') "
                "failed",
                record.second.GetData(), record.first.GetData());
        }
    }
    undo.clear();
}

void VelPatchTask_ApplyFilePatches::CancelCleanupOperations() {
    for (auto record = m_renames.rbegin(); record != m_renames.rend(); ++record) {
        if (record->keep || record->first.IsEmpty()) {
            continue;
        }
        LogFormat("VelPatchTask_ApplyFilePatches::CancelCleanupOperations> deleting: %s",
                  record->first.GetData());
        const CXResult result = DeletePatiently(record->first);
        if (result != kCXResultOK) {
            LogFormat("VelPatchTask_ApplyFilePatches::CancelCleanupOperations> deleted failed (%d)",
                      result);
        }
    }
    m_renames.clear();
}

void VelPatchTask_ApplyFilePatches::DeleteDirectoriesCreatedDuringPatchAttempt() {
    for (auto folder = m_createdFolders.rbegin(); folder != m_createdFolders.rend(); ++folder) {
        LogFormat("VelPatchTask_ApplyFilePatches::DeleteDirectoriesCreatedDuringPatchAttempt> %s",
                  folder->GetData());
        const CXResult result = DeletePatiently(*folder);
        if (result != kCXResultOK) {
            LogFormat("VelPatchTask_ApplyFilePatches::DeleteDirectoriesCreatedDuringPatchAttempt> "
                      "failed to delete (result %d)",
                      result);
        }
    }
    m_createdFolders.clear();
}

void VelPatchTask_ApplyFilePatches::DeleteTemporaryPatchFilesDirectory() {
    const CXString folder = InTarget(CXString(kPatchTemporaryFolder));
    LogFormat("VelPatchTask_ApplyFilePatches::DeleteTemporaryPatchFilesDirectory> %s",
              folder.GetData());
    const CXResult result = DeletePatiently(folder);
    if (result != kCXResultOK) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::DeleteTemporaryPatchFilesDirectory> failed to delete "
            "(result %d)",
            result);
    }
}
