// A data file as numbered volumes in one folder: cut up, read as one, and put together.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class CXStream;

/// What is done, 0 to 1; false stops with kCXResultCancelled.
using VelPatchVolumeProgress = std::function<bool(double)>;

/// Most volumes that a set may have: all are open while it is read as one.
inline constexpr uint64_t kMostVolumes = 999;

/// Opens a data file for reading: the file itself, or a set of volumes, named by its folder or by
/// one of its volumes, as one stream of known size. Every volume's header is held against its
/// place and its file's length. Null on failure; `problem` then says why, with the path.
std::unique_ptr<CXStream> OpenDataFile(const CXString& path, CXString& problem);

/// True if the path is a folder or a file that begins as a volume does.
bool IsVolumeSet(const CXString& path);

/// Cuts a data file into "patch-1.bin" and so on of at most `volumeSize` bytes each in the folder,
/// which is made if missing. All are written under other names first and put in place together;
/// volumes of an earlier set are replaced, but one with a higher number than this set has is a
/// failure before anything is written. `volumes` gets the paths.
CXResult SplitDataFile(const CXString& dataPath, const CXString& folder, uint64_t volumeSize,
                       const VelPatchVolumeProgress& progress, std::vector<CXString>& volumes,
                       CXString& problem);
