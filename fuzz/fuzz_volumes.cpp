// The volume reader: a volume that is refused leaves the output as it was.
#include "fuzz/FuzzTools.h"
#include "patch/PatchVolumes.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/support/TempFolder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TempFolder folder;
    folder.WriteFile("volume", std::string(data, data + size));
    for (uint32_t index = 0; index < 2; ++index) {
        CXStreamDynamicBuffer output;
        output.Write("front", 5);
        uint32_t count = 2;
        const bool taken = CopyVolumePayload(output, folder.Path("volume"), "", index, count);
        const uint64_t grown = output.GetSize() - 5;
        Check(taken ? grown <= size : (grown == 0 && count == 2 && output.GetPosition() == 5));
    }
    return 0;
}
