#include "patch/PreflightRules.h"

#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "patch/EffortSum.h"
#include "patch/FileChecksum.h"

namespace {

constexpr int64_t kOperationWeight = 4096;
constexpr int64_t kSpareBytes = 100000000;

PreflightFinding Finding(PreflightFault fault, const CXString& path) {
    return {fault, path, CXString(), CXString()};
}

PreflightFinding CheckSource(const PatchOperation& operation, const CXString& path) {
    CXString found;
    if (MD5OfFile(path, found) != kCXResultOK) {
        return Finding(PreflightFault::SourceUnreadable, path);
    }
    if (found != operation.sourceChecksum) {
        return {PreflightFault::SourceDiffers, path, operation.sourceChecksum, found};
    }
    return {};
}

PreflightFinding CheckDestination(const PatchOperation& operation, const CXString& path) {
    if (operation.destinationPath == operation.sourcePath || !CXFileSystem::Exists(path)) {
        return {};
    }
    if (operation.destinationChecksum.IsEmpty()) {
        return Finding(PreflightFault::Occupied, path);
    }
    CXString found;
    if (MD5OfFile(path, found) != kCXResultOK || found != operation.destinationChecksum) {
        return Finding(PreflightFault::OccupiedDiffers, path);
    }
    return {}; // an earlier patch has done it
}

} // namespace

CXString PreflightFinding::GetReason() const {
    switch (fault) {
    case PreflightFault::None:
        return CXString();
    case PreflightFault::PlainFileUnexpected:
        return FormatLocalisedString("$velpatch_task_plain_file_unexpected", path);
    case PreflightFault::FolderUnexpected:
        return FormatLocalisedString("$velpatch_task_folder_unexpected", path);
    case PreflightFault::SourceUnreadable:
        return FormatLocalisedString("$velpatch_task_failed_checksum", path);
    case PreflightFault::SourceDiffers:
        return FormatLocalisedString("$velpatch_task_checksum_mismatch", path, expected, found);
    case PreflightFault::LeadsOutside:
    case PreflightFault::Occupied:
        return FormatLocalisedString("$velpatch_task_filepath_occupied", path);
    case PreflightFault::OccupiedDiffers:
        return FormatLocalisedString("$velpatch_task_filepath_occupied_mismatch", path);
    }
    return CXString();
}

PreflightFinding CheckOperationInTarget(const CXString& targetFolder,
                                        const PatchOperation& operation) {
    CXString offender;
    if (OperationLeadsOutside(targetFolder, operation, offender)) {
        return Finding(PreflightFault::LeadsOutside, offender);
    }
    const CXString destination = CXFileSystem::Join(targetFolder, operation.destinationPath);
    if (operation.command == COMMAND_CREATE_FOLDER || operation.command == COMMAND_DELETE_FOLDER) {
        const bool isFile =
            CXFileSystem::Exists(destination) && !CXFileSystem::IsDirectory(destination);
        return isFile ? Finding(PreflightFault::PlainFileUnexpected, destination)
                      : PreflightFinding();
    }
    if (operation.command == COMMAND_DELETE_FILE) {
        return CXFileSystem::IsDirectory(destination)
                   ? Finding(PreflightFault::FolderUnexpected, destination)
                   : PreflightFinding();
    }
    if (!operation.sourceChecksum.IsEmpty() && !operation.sourcePath.IsEmpty()) {
        PreflightFinding source =
            CheckSource(operation, CXFileSystem::Join(targetFolder, operation.sourcePath));
        if (source.fault != PreflightFault::None) {
            return source;
        }
    }
    return CheckDestination(operation, destination);
}

bool OperationLeadsOutside(const CXString& targetFolder, const PatchOperation& operation,
                           CXString& offender) {
    const bool isDelete =
        operation.command == COMMAND_DELETE_FILE || operation.command == COMMAND_DELETE_FOLDER;
    const bool readsSource =
        !isDelete && operation.command != COMMAND_CREATE_FOLDER && !operation.sourcePath.IsEmpty();
    if (readsSource) {
        const CXString source = CXFileSystem::Join(targetFolder, operation.sourcePath);
        if (CXFileSystem::LeadsOutside(targetFolder, source, true)) {
            offender = source;
            return true;
        }
    }
    // A deletion moves a link itself, so where its last component points doesn't matter.
    const CXString destination = CXFileSystem::Join(targetFolder, operation.destinationPath);
    if (CXFileSystem::LeadsOutside(targetFolder, destination, !isDelete)) {
        offender = destination;
        return true;
    }
    return false;
}

int64_t GetCheckWeight(const PatchOperation& operation) {
    EffortSum weight(kOperationWeight);
    weight.Add(operation.estimatedEffort);
    return weight.Get();
}

int64_t GetNeededFreeBytes(const std::vector<PatchOperation>& operations) {
    EffortSum needed;
    for (const PatchOperation& operation : operations) {
        needed.Add(operation.estimatedEffort);
    }
    needed.Add(needed.Get());
    needed.Add(kSpareBytes);
    return needed.Get();
}
