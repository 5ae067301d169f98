// The text form of data trees: any bytes are read, what is written reads back, and writing that
// again gives the same bytes.
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "fuzz/FuzzTools.h"
#include "stream/CXStreamDynamicBuffer.h"

#include <cstring>
#include <string>

namespace {

/// Folders to which the tree is copied; the output grows with the square of the depth.
constexpr size_t kDeepest = 40;

/// Copies what survives writing: a key that begins with "$" is written as it is and then reads as
/// a meta entry, and values that have no text form come back as texts.
void CopyReadable(const DNValue& from, DNValue& to, size_t depth) {
    for (size_t i = 0; i < from.GetChildCount(); ++i) {
        const DNData key = from.KeyAt(i);
        if (key.data.View().substr(0, 1) == absl::string_view("$")) {
            continue;
        }
        const DNValueRef child = from.ChildAt(i);
        if (!child->IsFolder()) {
            to.Set(key, child);
        } else if (depth < kDeepest) {
            CopyReadable(*child, *to.GetOrCreateFolder(key), depth + 1);
        }
    }
}

std::string Write(const DNValueRef& value) {
    CXStreamDynamicBuffer out;
    TextConfig::Write(*value, out);
    Check(out.GetLastError() == kCXResultOK);
    return std::string(reinterpret_cast<const char*>(out.GetData()),
                       static_cast<size_t>(out.GetSize()));
}

/// Every read must cope with every value.
void ReadAll(const DNValue& folder) {
    for (size_t i = 0; i < folder.GetChildCount(); ++i) {
        const DNValueRef value = folder.ChildAt(i);
        (void)value->GetBool();
        (void)value->GetInt();
        (void)value->GetInt64();
        (void)value->GetFloat();
        (void)value->GetString();
        (void)value->GetInts();
        (void)value->GetFloats();
        Check(folder.Get(folder.KeyAt(i)) == value); // the key leads there
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    const DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(data, size, *root);
    ReadAll(*root);
    const DNValueRef readable(new DNMemoryValue);
    CopyReadable(*root, *readable, 0);
    (void)readable->Dump();

    // Floats become texts in the first round, so the second one has to stand still.
    std::string written = Write(readable);
    DNValueRef again(new DNMemoryValue);
    TextConfig::Parse(written.data(), written.size(), *again);
    Check(again->GetChildCount() == readable->GetChildCount());
    written = Write(again);
    again = new DNMemoryValue;
    TextConfig::Parse(written.data(), written.size(), *again);
    Check(Write(again) == written);
    return 0;
}
