// Translation of data pairs: any type and bytes to any type. A success has the wanted type, a
// failure leaves nothing behind, and what was made can be translated on.
#include "dn/DNTranslator.h"
#include "fuzz/FuzzTools.h"

namespace {

constexpr uint32_t kTypes = 17; // one beyond the last

void TranslateToAll(const DNData& from, int steps) {
    for (uint32_t type = 0; type < kTypes; ++type) {
        DNData out = DNData::String("old");
        const CXResult result = Translate(from, type, out);
        if (result != kCXResultOK) {
            Check(result == kCXResultBadData || result == kCXResultUnusable);
            Check(out.IsNone());
            continue;
        }
        Check(out.type == type || (from.IsNone() && out.IsNone()));
        // Whole numbers come back from their text as they were.
        if (type == kDNTypeString && (from.type == kDNTypeInt || from.type == kDNTypeInt64)) {
            DNData back;
            Check(Translate(out, from.type, back) == kCXResultOK && back == from);
        }
        if (steps > 0) {
            TranslateToAll(out, steps - 1);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kLongest = 4096;
    if (size == 0 || size > kLongest) {
        return 0;
    }
    const DNData from(CXString(reinterpret_cast<const char*>(data) + 1, size - 1),
                      data[0] % kTypes);
    TranslateToAll(from, 1);
    (void)from.GetBool();
    (void)from.GetInt();
    (void)from.GetInt64();
    (void)from.GetFloat();
    (void)from.GetString();
    Check(from.GetInts().size() <= size);
    Check(from.GetFloats().size() <= size);
    return 0;
}
