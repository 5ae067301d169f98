// The diff reader: any bytes end in a result, and write no more than what they carry or copy.
#include "fuzz/FuzzTools.h"
#include "patch/BinaryDiff.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamStaticBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    static const char kOld[] = "the old file: a few bytes that a diff may copy from";
    CXStreamStaticBuffer oldStream(kOld, sizeof(kOld));
    CXStreamStaticBuffer diffStream(data, size);
    CXStreamDynamicBuffer newStream;
    CXString message;
    const CXResult result = ApplyDiffFromStream(oldStream, newStream, diffStream, message);
    // The old file is read at most once, since its position never goes back.
    Check(newStream.GetSize() <= sizeof(kOld) + size);
    Check((result == kCXResultOK) == message.IsEmpty());
    return 0;
}
