// The checks before a patch: can every operation succeed from the state of the target as it
// stands? Reads every source and every occupied destination whole, changes nothing.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "patch/EffortSum.h"
#include "patch/FileChecksum.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"

namespace {

/// Weight of an operation beside its effort, so that one of no effort shows in the bar too.
constexpr int64_t kOperationWeight = 4096;
/// Free bytes wanted beside twice the efforts.
constexpr int64_t kSpareBytes = 100000000;

} // namespace

bool VelPatchTask_ApplyFilePatches::PreflightCheck(CXString& reason) {
    if (!CheckFreeSpace(reason)) {
        return false;
    }
    EffortSum total;
    for (const PatchOperation& operation : m_control.operations) {
        total.Add(kOperationWeight);
        total.Add(operation.estimatedEffort);
    }
    EffortSum checked;
    for (const PatchOperation& operation : m_control.operations) {
        if (IsStopRequested()) {
            reason = GetLocalisedString("$velpatch_task_cancelled");
            return false;
        }
        if (total.Get() != 0) {
            SetState(kTaskStateMeasured);
            SetFraction(static_cast<float>(checked.Get()) / static_cast<float>(total.Get()));
        }
        checked.Add(kOperationWeight);
        checked.Add(operation.estimatedEffort);
        if (!CheckOperation(operation, reason)) {
            return false;
        }
    }
    reason.Clear();
    return true;
}

bool VelPatchTask_ApplyFilePatches::CheckFreeSpace(CXString& reason) {
    // New files stand beside the old ones, and backups live until the end: hence twice.
    EffortSum needed;
    for (const PatchOperation& operation : m_control.operations) {
        needed.Add(operation.estimatedEffort);
    }
    needed.Add(needed.Get());
    needed.Add(kSpareBytes);
    const CXString target = CXFileSystem::GetCanonicalPath(m_targetFolder);
    const std::vector<CXVolume> volumes = CXFileSystem::ListVolumes();
    for (const CXVolume& volume : volumes) {
        const CXString mountPath = CXFileSystem::GetCanonicalPath(volume.mountPath);
        if (CXFileSystem::IsOnVolume(target, mountPath, volumes) && needed.Get() > 0 &&
            volume.freeBytes < static_cast<uint64_t>(needed.Get())) {
            reason = GetLocalisedString("$velpatch_task_insufficient_space");
            return false;
        }
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::CheckOperation(const PatchOperation& operation,
                                                   CXString& reason) {
    CXString offender;
    if (LeadsOutside(operation, offender)) {
        reason = FormatLocalisedString("$velpatch_task_filepath_occupied", offender);
        return false;
    }
    const CXString destination = InTarget(operation.destinationPath);
    if (operation.command == COMMAND_CREATE_FOLDER || operation.command == COMMAND_DELETE_FOLDER) {
        if (CXFileSystem::Exists(destination) && !CXFileSystem::IsDirectory(destination)) {
            reason = FormatLocalisedString("$velpatch_task_plain_file_unexpected", destination);
            return false;
        }
        return true;
    }
    if (operation.command == COMMAND_DELETE_FILE) {
        if (CXFileSystem::Exists(destination) && CXFileSystem::IsDirectory(destination)) {
            reason = FormatLocalisedString("$velpatch_task_folder_unexpected", destination);
            return false;
        }
        return true;
    }
    if (!operation.sourceChecksum.IsEmpty() && !operation.sourcePath.IsEmpty() &&
        !CheckSource(operation, InTarget(operation.sourcePath), reason)) {
        return false;
    }
    if (operation.destinationPath == operation.sourcePath || !CXFileSystem::Exists(destination)) {
        return true;
    }
    if (operation.destinationChecksum.IsEmpty()) {
        reason = FormatLocalisedString("$velpatch_task_filepath_occupied", destination);
        return false;
    }
    CXString found;
    if (MD5OfFile(destination, found) != kCXResultOK || found != operation.destinationChecksum) {
        reason = FormatLocalisedString("$velpatch_task_filepath_occupied_mismatch", destination);
        return false;
    }
    return true; // an earlier patch has done it
}

bool VelPatchTask_ApplyFilePatches::CheckSource(const PatchOperation& operation,
                                                const CXString& path, CXString& reason) {
    CXString found;
    if (MD5OfFile(path, found) != kCXResultOK) {
        reason = FormatLocalisedString("$velpatch_task_failed_checksum", path);
        return false;
    }
    if (found != operation.sourceChecksum) {
        reason = FormatLocalisedString("$velpatch_task_checksum_mismatch", path,
                                       operation.sourceChecksum, found);
        return false;
    }
    return true;
}
