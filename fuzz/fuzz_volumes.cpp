// The volume reader: a volume that is refused leaves the output as it was.
#include "core/CXFileSystem.h"
#include "patch/PatchVolumes.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"

#include <cstdlib>

namespace {

CXString MakeVolumePath() {
    const CXString folder = CXFileSystem::GetTempPath();
    return CXFileSystem::CreateUniqueFileName(&folder, "fuzz-volume.bin");
}

/// The file that carries the input; removed when the process ends.
struct VolumeFile {
    CXString path = MakeVolumePath();
    ~VolumeFile() { CXFileSystem::DeleteFile(path); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const VolumeFile volume;
    {
        CXStreamFile file;
        file.Open(volume.path, kOpenWrite | kOpenCreate | kOpenTruncate);
        file.Write(data, size);
    }
    for (uint32_t index = 0; index < 2; ++index) {
        CXStreamDynamicBuffer output;
        output.Write("front", 5);
        uint32_t count = 2;
        const bool taken = CopyVolumePayload(output, volume.path, "", index, count);
        const uint64_t grown = output.GetSize() - 5;
        if (taken ? grown > size : (grown != 0 || count != 2 || output.GetPosition() != 5)) {
            std::abort();
        }
    }
    return 0;
}
