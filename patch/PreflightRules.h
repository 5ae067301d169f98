// What each operation demands of a target before a patch begins, told one operation at a time.
#pragma once

#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <cstdint>
#include <vector>

/// Why an operation can't be carried out on a target as it stands.
enum class PreflightFault : uint8_t {
    None,
    LeadsOutside, ///< the path passes through a link that leads out of the target
    PlainFileUnexpected,
    FolderUnexpected,
    SourceUnreadable,
    SourceDiffers,
    Occupied,       ///< something is at the destination, and no checksum allows it
    OccupiedDiffers ///< what is at the destination hasn't the stated checksum
};

struct PreflightFinding {
    PreflightFault fault = PreflightFault::None;
    CXString path;     ///< full path that is at fault
    CXString expected; ///< checksums, of SourceDiffers
    CXString found;

    /// The localised text that tells it to the user; empty for no fault.
    CXString GetReason() const;
};

/// Holds one operation against the target folder. Reads the source and an occupied destination
/// whole where checksums are stated; changes nothing. Flags aren't looked at. Any thread.
PreflightFinding CheckOperationInTarget(const CXString& targetFolder,
                                        const PatchOperation& operation);

/// True if a path of the operation passes through a link out of the target; `offender` is the full
/// path then.
bool OperationLeadsOutside(const CXString& targetFolder, const PatchOperation& operation,
                           CXString& offender);

/// Weight of an operation in the progress of the checks: its effort, and a share of its own so that
/// one of no effort shows too.
int64_t GetCheckWeight(const PatchOperation& operation);

/// Free bytes that a run asks for on the target's volume: twice the efforts, since new files stand
/// beside the old ones and backups live until the end, and some to spare.
int64_t GetNeededFreeBytes(const std::vector<PatchOperation>& operations);
