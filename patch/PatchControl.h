// The control file: what a patch is to do, read before anything else.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <cstdint>
#include <functional>
#include <vector>

class CXURI;

/// What a control file states.
struct PatchControl {
    std::vector<PatchOperation> operations;
    int64_t dataSize = 0;  ///< size of the data file as stored, bytes; 0 or less: not tested
    CXString dataChecksum; ///< MD5 of the data file as stored; empty: not tested
};

/// Reads the control file at a "file", "http" or "https" address (other schemes are
/// kCXResultInvalidArgument). A file that can't be opened reads as an empty patch, one that fails
/// while it is read or fetched gives that failure. A format version of 2 or more is
/// kCXResultUnusable, an operation whose path leaves the target kCXResultBadData. On failure `out`
/// is unchanged. `log` receives the diagnostic lines.
CXResult LoadControlFile(const CXURI& uri, PatchControl& out,
                         const std::function<void(const CXString&)>& log = nullptr);
