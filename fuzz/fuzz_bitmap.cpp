// Pictures: any bytes decode to a picture of the size that it says, or to none.
#include "fuzz/FuzzTools.h"
#include "ui/CXBitmap.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CXBitmap bitmap;
    const bool isRead = bitmap.Decode(data, size) == kCXResultOK;
    Check(isRead != bitmap.IsEmpty());
    Check(bitmap.GetPixels().size() ==
          static_cast<size_t>(bitmap.GetWidth()) * static_cast<size_t>(bitmap.GetHeight()) * 4);
    return 0;
}
