// One step of a patch, as the control file states it.
#pragma once

#include "core/CXString.h"

#include <cstdint>
#include <vector>

class DNValue;

/// What an operation does. The numbers show in the log.
enum PatchCommand : uint32_t {
    COMMAND_CREATE_FILE = 0,
    COMMAND_DELETE_FILE = 1,
    COMMAND_EDIT_FILE = 2,
    COMMAND_MOVE_FILE = 3,
    COMMAND_CREATE_FOLDER = 4,
    COMMAND_DELETE_FOLDER = 5,
    COMMAND_NONE = 6,
};

/// Bits of PatchOperation::flags; others are ignored.
enum PatchFlag : uint32_t {
    kPatchFlagIgnoreFailure = 1, ///< a failure is logged and the patch goes on, with no prompt
    kPatchFlagMayReplace = 2,    ///< an existing file at the destination may be replaced
};

/// One entry of `patch-operations`. Paths are relative to the target folder, "/" as separator.
/// Checksums are 32 lower-case hexadecimal characters; empty means none is stated.
struct PatchOperation {
    CXString sourcePath;
    CXString sourceChecksum;
    CXString destinationPath;
    CXString destinationPermissions; ///< text of CXFileSystem::SetFilePermissions
    CXString destinationChecksum;
    PatchCommand command = COMMAND_NONE;
    int64_t estimatedEffort = 0; ///< weight in progress and space, bytes by intent
    uint32_t flags = 0;

    bool IsFailureIgnored() const { return (flags & kPatchFlagIgnoreFailure) != 0; }
    bool MayReplace() const { return (flags & kPatchFlagMayReplace) != 0; }
};

/// The command of a word of the control file; COMMAND_NONE for any other text.
PatchCommand PatchCommandFromWord(absl::string_view word);
/// The word of a command; empty for COMMAND_NONE.
const char* PatchCommandWord(PatchCommand command);

/// Empties the list, then appends one operation per entry of `patch-operations` whose command is
/// known, in order; other entries are dropped. Always true: a missing list gives an empty one.
bool ReadOperations(DNValue& tree, std::vector<PatchOperation>& list);
