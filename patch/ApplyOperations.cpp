// How each operation is carried out before the final renames: new contents go to free paths or
// under temporary names, every intended change goes on the rename list, nothing that exists is
// changed.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXRandom.h"
#include "patch/FileChecksum.h"
#include "patch/PatchPaths.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"

#include <atomic>

namespace {

/// New contents: read and write, created if missing, not truncated.
constexpr uint32_t kNewFileMode = kOpenRead | kOpenWrite | kOpenCreate;

/// Buffers of the files that an operation reads and writes: fewer system calls for diffs of many
/// small commands than the stream's default of 4 KiB.
constexpr uint64_t kFileBuffer = 65536;

constexpr int kTemporaryNameTries = 16;
constexpr uint32_t kTemporaryNameBound = 1000000000;

/// Makes temporary names differ within one process, whatever the random numbers say.
std::atomic<int32_t> g_temporaryNameCounter{0};

void SetBuffers(CXStreamFile& file) {
    file.SetOption(kCXStreamOptionReadBuffer, kFileBuffer);
    file.SetOption(kCXStreamOptionWriteBuffer, kFileBuffer);
    file.SetOption(kCXStreamOptionOverlap, 0); // nothing steps back by a little
}

struct PermissionTexts {
    const char* titleKey;
    const char* command;
};

PermissionTexts PermissionTextsFor(PatchCommand command) {
    switch (command) {
    case COMMAND_CREATE_FILE:
        return {"$velpatch_task_failed_unable_perm_new_file", "COMMAND_CREATE_FILE"};
    case COMMAND_CREATE_FOLDER:
        return {"$velpatch_task_failed_unable_perm_folder", "COMMAND_CREATE_FOLDER"};
    default:
        return {"$velpatch_task_failed_unable_perm_file", "COMMAND_EDIT_FILE"};
    }
}

} // namespace

// ---- Paths ----

CXString VelPatchTask_ApplyFilePatches::InTarget(const CXString& relativePath) const {
    return CXFileSystem::Join(m_targetFolder, relativePath);
}

CXString VelPatchTask_ApplyFilePatches::CreateTemporaryFilepathFor(const CXString& path) {
    const CXString folder = InTarget(CXString(kPatchTemporaryFolder));
    const CXResult made = CXFileSystem::CreateDirectory(folder);
    if ((made != kCXResultOK && made != kCXResultAlreadyExists) ||
        CXFileSystem::LeadsOutside(m_targetFolder, folder, true)) {
        return CXString();
    }
    for (int attempt = 0; attempt < kTemporaryNameTries; ++attempt) {
        const int64_t number = RandomBelow(kTemporaryNameBound);
        const CXString name =
            CXString::Format("temp-%lld-%d.tmp", number, g_temporaryNameCounter.fetch_add(1) + 1);
        CXString candidate = CXFileSystem::Join(folder, name);
        if (!CXFileSystem::Exists(candidate)) {
            LogFormat("VelPatchTask_ApplyFilePatches::CreateTemporaryFilepathFor> '%s' -> '%s'",
                      path.GetData(), candidate.GetData());
            return candidate;
        }
    }
    Log("VelPatchTask_ApplyFilePatches::CreateTemporaryFilepathFor> failed");
    return CXString();
}

void VelPatchTask_ApplyFilePatches::EnsureParentFolders(const CXString& path) {
    // From the nearest existing folder downwards; an explicit list, since paths come from outside.
    std::vector<CXString> missing;
    for (CXString folder = CXFileSystem::GetParent(path);
         !folder.IsEmpty() && !CXFileSystem::Exists(folder);
         folder = CXFileSystem::GetParent(folder)) {
        missing.push_back(folder);
    }
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        if (CXFileSystem::CreateDirectory(*folder) == kCXResultOK) {
            m_createdFolders.push_back(*folder);
        }
    }
}

// ---- Permissions: the common ending ----

VelPatchTask_ApplyFilePatches::Permission
VelPatchTask_ApplyFilePatches::SetPermissions(const PatchOperation& operation,
                                              const CXString& path) {
    Log("CXFileSystem::SetFilePermissions");
    const CXResult result =
        CXFileSystem::SetFilePermissions(path, operation.destinationPermissions);
    if (result == kCXResultOK) {
        return Permission::Set;
    }
    Log("CXFileSystem::GetFilePermissions");
    CXString current;
    if (!CXFileSystem::GetFilePermissions(path, current)) {
        current = "<unknown>";
    }
    const PermissionTexts texts = PermissionTextsFor(operation.command);
    const CXString title = FormatLocalisedString(texts.titleKey, path);
    const CXString detail = CXString::Format(
        "VelPatchTask_ApplyFilePatches::Proc> %s - permissions change failed for '%s' (%s, from "
        "%s, result %d)",
        texts.command, path.GetData(), operation.destinationPermissions.GetData(),
        current.GetData(), result);
    LogFormat("%s - %s", title.GetData(), detail.GetData());
    return AskRetry(&operation, title, detail) ? Permission::Again : Permission::Failed;
}

bool VelPatchTask_ApplyFilePatches::SetPermissionsWithRetry(const PatchOperation& operation,
                                                            const CXString& path) {
    Permission outcome = Permission::Again;
    while (outcome == Permission::Again) {
        outcome = SetPermissions(operation, path);
    }
    return outcome == Permission::Set;
}

// ---- Create a file ----

bool VelPatchTask_ApplyFilePatches::CreateFile(const PatchOperation& operation,
                                               const CXString& destination) {
    CXString target = destination;
    const bool replaces = CXFileSystem::Exists(destination);
    if (replaces) {
        LogFormat("PatchOperation::COMMAND_CREATE_FILE> already exists: %s", destination.GetData());
        if (!operation.MayReplace()) {
            LogFormat(
                "VelPatchTask_ApplyFilePatches::Proc> COMMAND_CREATE_FILE - file already exists: "
                "%s",
                destination.GetData());
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unexpected_file", destination));
        }
        target = CreateTemporaryFilepathFor(destination);
        if (target.IsEmpty()) {
            Log("VelPatchTask_ApplyFilePatches::Proc> COMMAND_CREATE_FILE - !targetFilepath");
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_to_create_temp_for", destination));
        }
    }
    // Before the work: a rollback must delete what a failed operation wrote.
    m_renames.push_back({target, destination});
    EnsureParentFolders(target);
    {
        CXStreamFile file;
        SetBuffers(file);
        file.Open(target, kNewFileMode);
        if (!file.IsOpen()) {
            LogFormat(
                "VelPatchTask_ApplyFilePatches::Proc> COMMAND_CREATE_FILE - file creation failed: "
                "%s",
                target.GetData());
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unable_create_new_file", destination));
        }
        if (!replaces && file.GetSize() != 0) {
            // The path was taken after all (its test failed, or somebody was quicker): nothing of
            // that file may change, by this operation or by a rollback.
            m_renames.pop_back();
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unexpected_file", destination));
        }
        CXString detail;
        if (!ExtractFilePayload(file, detail)) {
            LogFormat(
                "VelPatchTask_ApplyFilePatches::Proc> COMMAND_CREATE_FILE - file write failed "
                "'%s' (%s)",
                target.GetData(), detail.GetData());
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unable_write_new_file", destination),
                detail);
        }
        file.Flush();
    }
    if (replaces && !CXFileSystem::IsDirectory(destination)) {
        CXFileSystem::CopyMode(destination, target);
    }
    return SetPermissionsWithRetry(operation, target);
}

// ---- Edit and move ----

bool VelPatchTask_ApplyFilePatches::ChangeFile(const PatchOperation& operation,
                                               const CXString& source,
                                               const CXString& destination) {
    CXString target;
    bool isDone = false;
    if (!ChooseChangedFile(operation, source, destination, target, isDone)) {
        return false;
    }
    if (!isDone) {
        if (!WriteChangedFile(operation, source, target)) {
            return false;
        }
        // Without it an edited program would no longer be executable.
        CXFileSystem::CopyMode(source, target);
    }
    return SetPermissionsWithRetry(operation, target);
}

bool VelPatchTask_ApplyFilePatches::ChooseChangedFile(const PatchOperation& operation,
                                                      const CXString& source,
                                                      const CXString& destination, CXString& target,
                                                      bool& isDone) {
    if (destination == source) {
        target = CreateTemporaryFilepathFor(destination);
        if (target.IsEmpty()) {
            Log("VelPatchTask_ApplyFilePatches::Proc> COMMAND_EDIT_FILE - !targetFilepath");
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_to_create_temp_for", destination));
        }
        m_renames.push_back({target, destination});
        return true;
    }
    if (!CXFileSystem::Exists(destination)) {
        target = destination;
        m_renames.push_back({CXString(), destination});
        return true;
    }
    if (operation.MayReplace()) {
        target = CreateTemporaryFilepathFor(destination);
        if (target.IsEmpty()) {
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unable_create_file", destination));
        }
        m_renames.push_back({target, destination});
        return true;
    }
    CXString found;
    if (!operation.destinationChecksum.IsEmpty() && MD5OfFile(destination, found) == kCXResultOK &&
        found == operation.destinationChecksum) {
        const bool isMove = operation.command == COMMAND_MOVE_FILE;
        LogFormat("VelPatchTask_ApplyFilePatches::Proc> %s - matching file already exists: %s",
                  isMove ? "COMMAND_MOVE_FILE" : "COMMAND_EDIT_FILE", destination.GetData());
        if (!isMove && !SkipBinaryDiff()) {
            return Fail(
                FormatLocalisedString("$velpatch_task_failed_unable_skip_file", destination));
        }
        target = destination;
        isDone = true;
        return true;
    }
    LogFormat("VelPatchTask_ApplyFilePatches::Proc> COMMAND_EDIT_FILE - file already exists: %s",
              destination.GetData());
    return Fail(FormatLocalisedString("$velpatch_task_failed_unexpected_file", destination));
}

bool VelPatchTask_ApplyFilePatches::WriteChangedFile(const PatchOperation& operation,
                                                     const CXString& source,
                                                     const CXString& target) {
    CXStreamFile oldFile;
    SetBuffers(oldFile);
    oldFile.Open(source, kOpenRead);
    if (!oldFile.IsOpen()) {
        LogFormat("VelPatchTask_ApplyFilePatches::Proc> COMMAND_EDIT_FILE - unable to open "
                  "sourceFilepath: %s",
                  source.GetData());
        return Fail(FormatLocalisedString("$velpatch_task_failed_read_file", source));
    }
    EnsureParentFolders(target);
    CXStreamFile newFile;
    SetBuffers(newFile);
    newFile.Open(target, kNewFileMode);
    if (!newFile.IsOpen()) {
        LogFormat("VelPatchTask_ApplyFilePatches::Proc> COMMAND_EDIT_FILE - unable to create "
                  "targetFilepath: %s",
                  target.GetData());
        return Fail(FormatLocalisedString("$velpatch_task_failed_create_file", target));
    }
    if (newFile.GetSize() != 0) {
        return Fail(FormatLocalisedString("$velpatch_task_failed_unexpected_file", target));
    }
    if (operation.command == COMMAND_MOVE_FILE) {
        // Nothing reads a moved file back, so a size that can't be told and a buffer that can't be
        // written must show here.
        CXResult copied = CXStream::Copy(newFile, oldFile, oldFile.GetSize());
        newFile.Flush();
        for (const CXStreamFile* file : {&oldFile, &newFile}) {
            copied = copied == kCXResultOK ? file->GetLastError() : copied;
        }
        if (copied != kCXResultOK) {
            Log("VelPatchTask_ApplyFilePatches::Proc> COMMAND_MOVE_FILE - copy failed");
            return Fail(FormatLocalisedString("$velpatch_task_failed_copy_existing_file", source));
        }
        return true;
    }
    if (!PerformBinaryDiff(oldFile, newFile)) {
        Log("VelPatchTask_ApplyFilePatches::Proc> COMMAND_EDIT_FILE - binary diff application "
            "failed");
        return Fail(FormatLocalisedString("$velpatch_task_failed_apply_patches_file", source));
    }
    return true;
}

// ---- Folders ----

bool VelPatchTask_ApplyFilePatches::CreateFolder(const PatchOperation& operation,
                                                 const CXString& destination) {
    Permission outcome = Permission::Again;
    while (outcome == Permission::Again) {
        EnsureParentFolders(destination);
        CXFileSystem::CreateDirectory(destination); // an existing folder passes
        outcome = SetPermissions(operation, destination);
    }
    return outcome == Permission::Set;
}
