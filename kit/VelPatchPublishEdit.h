// Adds a build to the text of a service file.
#pragma once

#include "core/CXString.h"

#include <utility>
#include <vector>

/// A new build of one stream, and the patches that lead to it.
struct VelPatchNewBuild {
    CXString streamId;
    CXString name;
    CXString anchorChecksum; ///< 32 lower-case characters
    CXString description;    ///< of each patch; may be empty
    /// Builds that get a patch to the new one (in place of the one that they had), with the folders
    /// that hold patch-control.txt and patch-data.bin, written as the service file shall say them.
    std::vector<std::pair<CXString, CXString>> patches;
    std::vector<std::pair<CXString, CXString>> installations; ///< by installation id, likewise
};

/// Gives the text, which must be free of problems, with the build added. Only the entries of the
/// new build, of the builds that get a patch and of the installations are written; every other
/// byte, comments too, stays. False, with `problem` set, if the stream is missing or a build isn't
/// what the request takes it for.
bool AddBuildToServiceText(absl::string_view text, const VelPatchNewBuild& build, CXString& out,
                           CXString& problem);
