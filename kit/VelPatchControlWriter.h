// Writes control files.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <cstdint>
#include <vector>

/// Writes a control file (format version 1) that LoadControlFile reads back as the same list. Keys
/// with an empty or zero value are left out. `dataSize` in bytes and `dataChecksum` (MD5) are of
/// the data file as stored. On failure a partly written file may be left.
CXResult WriteControlFile(const CXString& path, const std::vector<PatchOperation>& operations,
                          int64_t dataSize, const CXString& dataChecksum);
