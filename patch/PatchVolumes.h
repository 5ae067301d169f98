// A data file shipped as numbered volumes, "patch-1.bin" and so on, on discs or in a folder.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <functional>

class CXStream;

/// First word of a volume: the characters "VePa".
inline constexpr uint32_t kPatchVolumeMagic = 0x56655061;

/// What stands in front of a volume's payload.
struct PatchVolumeHeader {
    uint32_t index = 0; ///< zero-based
    uint32_t count = 0; ///< of volumes
    uint64_t payloadSize = 0;
};

/// Reads a header; the stream then stands at the payload. kCXResultBadData: no volume, another set,
/// or cut short; kCXResultUnusable: another version.
CXResult ReadVolumeHeader(CXStream& volume, const CXString& setIdentifier, PatchVolumeHeader& out);
/// Writes one, with the fixed fields. A failure stands in the stream's last error.
void WriteVolumeHeader(CXStream& volume, const CXString& setIdentifier,
                       const PatchVolumeHeader& header);

/// File name of the volume with this zero-based index.
CXString GetVolumeName(uint32_t index);

/// Asks the user for a disc. Called on the task's thread, which waits for the answer; it must
/// return an empty text soon after `stopped` turns true.
/// `title`: localised, names the volume; `folder`: where the dialog starts; answer: the chosen
/// file's path, or empty for none.
using PatchDiscPrompt = std::function<CXString(const CXString& title, const CXString& folder,
                                               const std::function<bool()>& stopped)>;

/// Appends the payload of one volume to `output`. The volume must carry the magic, version 0, the
/// set identifier, this zero-based index and, unless the index is 0, this count; index 0 sets the
/// count. On false the output's size and position and the count are as they were.
bool CopyVolumePayload(CXStream& output, const CXString& volumePath, const CXString& setIdentifier,
                       uint32_t index, uint32_t& count);

/// Writes the whole data file to `outputPath` (created or truncated) from its volumes: each is
/// looked for in `folder`, then in the roots of all storage volumes, then asked for. `folder` is
/// changed to the folder of the last disc the user chose. `progress` gets the fraction done, 0 to
/// 1. False when the user gave up or the output can't be written; the part written so far stays.
bool AssembleVolumes(const CXString& outputPath, CXString& folder, const CXString& setIdentifier,
                     const std::function<void(float)>& progress, const PatchDiscPrompt& prompt,
                     const std::function<bool()>& stopped);
