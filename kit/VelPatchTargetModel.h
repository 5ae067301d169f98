// What a patch leaves of each path that it touches, worked out from its list alone.
#pragma once

#include "core/CXString.h"
#include "patch/PatchOperation.h"

#include <map>
#include <vector>

/// The state of one path after a run.
struct VelPatchExpectedPath {
    enum class Kind : uint8_t { Absent, File, Folder };

    CXString path; ///< relative to the target, as the last operation spells it
    Kind kind = Kind::Absent;
    CXString checksum;        ///< of a file; empty: not known
    CXString permissions;     ///< as stated; empty: none
    bool isTolerated = false; ///< an operation on it may fail without failing the patch
    size_t operation = 0;     ///< the last one that touched it
};

/// Key of a path: two spellings that name one file on this system have one key.
CXString GetTargetPathKey(const CXString& path);

/// The paths after a good run of the list, by key. A run makes folders, and files at paths that are
/// free, as it comes to them; only at its end it puts in place what was made elsewhere and deletes,
/// in the order of the list. So a deletion wins over a new file wherever it stands, and over one
/// that is replaced in place if it comes later. What the list doesn't tell is assumed: a file that
/// is edited or moved in place, or replaced by a create that states what was there, was there, any
/// other was not.
std::map<CXString, VelPatchExpectedPath>
ModelTargetAfter(const std::vector<PatchOperation>& operations);
