#include "patch/PatchVolumes.h"

#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

namespace {

constexpr uint32_t kVolumeVersion = 0;

/// One way to find a volume: in the folder, then on every storage volume.
bool FindVolume(CXStream& output, const CXString& folder, const CXString& name,
                const CXString& setIdentifier, uint32_t index, uint32_t& count) {
    if (CopyVolumePayload(output, CXFileSystem::Join(folder, name), setIdentifier, index, count)) {
        return true;
    }
    for (const CXVolume& volume : CXFileSystem::ListVolumes()) {
        if (!volume.mountPath.IsEmpty() &&
            CopyVolumePayload(output, CXFileSystem::Join(volume.mountPath, name), setIdentifier,
                              index, count)) {
            return true;
        }
    }
    return false;
}

} // namespace

CXResult ReadVolumeHeader(CXStream& volume, const CXString& setIdentifier, PatchVolumeHeader& out) {
    uint32_t magic = 0;
    uint32_t version = 0;
    CXString identifier;
    const uint32_t longest = static_cast<uint32_t>(setIdentifier.GetLength());
    // Each test needs its whole field: one cut short reads as 0, which may look sound.
    if (!volume.ReadU32(magic) || magic != kPatchVolumeMagic || !volume.ReadU32(version)) {
        return kCXResultBadData;
    }
    if (version != kVolumeVersion) {
        return kCXResultUnusable;
    }
    const bool isWhole = ReadStreamString(volume, identifier, longest) &&
                         identifier == setIdentifier && volume.ReadU32(out.index) &&
                         volume.ReadU32(out.count) && volume.ReadU64(out.payloadSize);
    return isWhole ? kCXResultOK : kCXResultBadData;
}

void WriteVolumeHeader(CXStream& volume, const CXString& setIdentifier,
                       const PatchVolumeHeader& header) {
    volume.WriteU32(kPatchVolumeMagic);
    volume.WriteU32(kVolumeVersion);
    WriteStreamString(volume, setIdentifier);
    volume.WriteU32(header.index);
    volume.WriteU32(header.count);
    volume.WriteU64(header.payloadSize);
}

CXString GetVolumeName(uint32_t index) {
    return CXString::Format("patch-%d.bin", static_cast<int64_t>(index) + 1);
}

bool CopyVolumePayload(CXStream& output, const CXString& volumePath, const CXString& setIdentifier,
                       uint32_t index, uint32_t& count) {
    CXStreamFile volume;
    volume.Open(volumePath, kOpenRead);
    if (!volume.IsOpen()) {
        return false;
    }
    PatchVolumeHeader header;
    if (ReadVolumeHeader(volume, setIdentifier, header) != kCXResultOK || header.index != index ||
        (index != 0 && header.count != count)) {
        return false;
    }
    const uint64_t start = output.GetPosition();
    const uint64_t size = output.GetSize();
    CXResult copied = CXStream::Copy(output, volume, header.payloadSize);
    if (copied == kCXResultOK) {
        output.Flush();
        copied = output.GetLastError();
    }
    if (copied != kCXResultOK) {
        output.SetSize(size);
        output.Seek(static_cast<int64_t>(start), kCXSeekStart);
        output.ResetError();
        return false;
    }
    count = header.count;
    return true;
}

bool AssembleVolumes(const CXString& outputPath, CXString& folder, const CXString& setIdentifier,
                     const std::function<void(float)>& progress, const PatchDiscPrompt& prompt,
                     const std::function<bool()>& stopped) {
    CXStreamFile output;
    output.Open(outputPath, kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!output.IsOpen()) {
        return false;
    }
    uint32_t count = 1;
    for (uint32_t index = 0; index < count; ++index) {
        progress(static_cast<float>(index) / static_cast<float>(count));
        const CXString name = GetVolumeName(index);
        if (FindVolume(output, folder, name, setIdentifier, index, count)) {
            continue;
        }
        const CXString title =
            FormatLocalisedString("$please_insert_disc", static_cast<int64_t>(index) + 1);
        CXString answer;
        do {
            answer = prompt ? prompt(title, folder, stopped) : CXString();
            if (answer.IsEmpty()) {
                return false;
            }
        } while (!CopyVolumePayload(output, answer, setIdentifier, index, count));
        folder = CXFileSystem::GetParent(answer);
    }
    return output.GetLastError() == kCXResultOK;
}
