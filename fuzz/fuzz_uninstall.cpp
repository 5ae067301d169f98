// The list of an uninstall: reading any bytes ends, with entries that lie in them.
#include "fuzz/FuzzTools.h"
#include "patch/UninstallList.h"
#include "stream/CXStreamStaticBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CXStreamStaticBuffer stream(data, size);
    size_t used = 4; // the version
    absl::string_view rest(reinterpret_cast<const char*>(data), size);
    ReadUninstallList(stream, [&](const CXString& path) {
        used += path.GetLength() + 1;
        const size_t found = rest.find(path.View());
        Check(found != absl::string_view::npos && used <= size);
        rest.remove_prefix(found + path.GetLength());
    });
    return 0;
}
