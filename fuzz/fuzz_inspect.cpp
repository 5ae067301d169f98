// The kit's reader of whole patches: the first NUL splits the input into the control file and the
// data file, which is taken as it is and as records that still are to be compressed. Whatever they
// say, offsets stay inside the data, and what is found sound has been read to its end.
#include "app/config/VelPatchConfiguration.h"
#include "fuzz/FuzzTools.h"
#include "kit/VelPatchInspector.h"
#include "kit/VelPatchTargetModel.h"
#include "kit/VelPatchVolumeSet.h"
#include "net/CXURI.h"
#include "stream/CXStream.h"
#include "tests/support/TempFolder.h"

#include <zlib.h>

#include <algorithm>
#include <memory>

namespace {

std::string Deflated(const std::string& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string out(size, '\0');
    compress2(reinterpret_cast<Bytef*>(out.data()), &size,
              reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uLong>(bytes.size()), 1);
    out.resize(size);
    return out;
}

void Inspect(const PatchControl& control, const TempFolder& folder, const std::string& data) {
    folder.WriteFile("patch-1.bin", data);
    CXString problem;
    const VelPatchDataFile file = OpenDataFile(folder.Path("patch-1.bin"), problem);
    if (!file.stream) {
        Check(!problem.IsEmpty());
        return;
    }
    VelPatchInspector inspector(control);
    const CXResult result = inspector.ReadData(*file.stream);
    Check((result == kCXResultOK) == inspector.GetFaults().empty());
    for (const VelPatchDataFault& fault : inspector.GetFaults()) {
        Check(fault.fileOffset <= data.size() && !fault.text.IsEmpty());
        Check(fault.operation == VelPatchDataFault::kNoOperation ||
              fault.operation < control.operations.size());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const TempFolder folder;
    SilenceLog();
    const uint8_t* const end = data + size;
    const uint8_t* const split = std::find(data, end, uint8_t{0});
    folder.WriteFile("control.txt", std::string(data, split));
    PatchControl control;
    if (LoadControlFile(CXURI(FileURIOfPath(folder.Path("control.txt"))), control) != kCXResultOK) {
        return 0;
    }
    for (const auto& [key, expected] : ModelTargetAfter(control.operations)) {
        Check(!key.IsEmpty() && expected.operation < control.operations.size());
    }
    const std::string rest(split == end ? end : split + 1, end);
    Inspect(control, folder, rest);
    Inspect(control, folder, Deflated(rest));
    return 0;
}
