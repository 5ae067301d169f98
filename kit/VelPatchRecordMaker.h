// Makes the data of one operation of a patch in memory.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "kit/VelPatchPlan.h"

#include <cstdint>
#include <vector>

/// What an operation puts into the data file, but for the size in front and the checksum behind.
struct VelPatchRecord {
    std::vector<uint8_t> bytes;
    CXResult result = kCXResultOK;
    CXString problem; ///< in plain words, if it failed
};

/// Reads the files of a create or an edit, each once, makes the record and completes the operation:
/// checksums, the best of its sources, or a create in place of an edit that would be larger. Safe
/// to call on several threads, each with an operation of its own. Memory at its peak: some five
/// times the larger of the two files.
VelPatchRecord MakeRecord(VelPatchPlannedOperation& planned, unsigned workers);

/// Turns an edit that has no use for its source into a create.
void TurnIntoCreate(VelPatchPlannedOperation& planned);
