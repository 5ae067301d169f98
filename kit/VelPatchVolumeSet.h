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

/// A data file that is open for reading, and which files its bytes lie in.
struct VelPatchDataFile {
    struct Piece {
        CXString path;
        uint64_t start;  ///< offset in the data file of the first byte from here
        uint64_t header; ///< bytes of the piece in front of it
    };

    /// The file that holds a byte of the data file, and the byte's offset in it. A byte behind the
    /// end belongs to the last one.
    const CXString& FindPlace(uint64_t offset, uint64_t& offsetInPiece) const;

    std::unique_ptr<CXStream> stream; ///< of known size; null if it couldn't be opened
    std::vector<Piece> pieces;
};

/// Opens a data file: the file itself, or a set of volumes, named by its folder or by one of its
/// volumes, as one stream. Every volume's header is held against its place and its file's length.
/// On failure there is no stream, and `problem` says why, with the path.
VelPatchDataFile OpenDataFile(const CXString& path, CXString& problem);

/// True if the path is a folder or a file that begins as a volume does.
bool IsVolumeSet(const CXString& path);

/// Cuts a data file into "patch-1.bin" and so on of at most `volumeSize` bytes each in the folder,
/// which is made if missing. All are written under other names first and put in place together;
/// volumes of an earlier set are replaced, but one with a higher number than this set has is a
/// failure before anything is written. `volumes` gets the paths.
CXResult SplitDataFile(const CXString& dataPath, const CXString& folder, uint64_t volumeSize,
                       const VelPatchVolumeProgress& progress, std::vector<CXString>& volumes,
                       CXString& problem);
