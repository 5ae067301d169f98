// Writes control files.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <cstdint>
#include <vector>

/// Writes a control file (format version 1) that LoadControlFile reads back as a list of the same
/// effect, in as few bytes as the text form allows. Keys with an empty or zero value are left out,
/// and so are most efforts: those of small operations are added to one behind them. `dataSize` in
/// bytes and `dataChecksum` (MD5) are of the data file as stored. On failure a partly written file
/// may be left.
CXResult WriteControlFile(const CXString& path, std::vector<PatchOperation> operations,
                          int64_t dataSize, const CXString& dataChecksum);
