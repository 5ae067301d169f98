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

/// The paths after a good run of the list, by key. Operations on one path follow each other in the
/// order of the list, but for folders: they are made while the run is under way, and deleted with
/// everything in them at its end, so a deletion wins over a making.
std::map<CXString, VelPatchExpectedPath>
ModelTargetAfter(const std::vector<PatchOperation>& operations);
