// The file of remembered settings: a record's value decodes or comes out empty, and saving one
// target's record in any file leaves those of all other targets as they are.
#include "app/config/VelPatchSettings.h"
#include "app/config/VelPatchTreeFile.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "fuzz/FuzzTools.h"
#include "tests/support/TempFolder.h"

#include <string>

namespace {

constexpr char kTarget[] = "/game";

bool IsSame(const VelPatchSettings& a, const VelPatchSettings& b) {
    return a.username == b.username && a.password == b.password && a.streamId == b.streamId &&
           a.streamName == b.streamName && a.patchControlFile == b.patchControlFile &&
           a.patchDataFile == b.patchDataFile;
}

void CheckRecord(absl::string_view value) {
    VelPatchSettings record;
    DecodeSettingsRecord(value, record);
    VelPatchSettings again;
    DecodeSettingsRecord(EncodeSettingsRecord(record), again);
    Check(IsSame(record, again));
}

void CheckFile(absl::string_view contents) {
    static const TempFolder folder;
    SetSettingsBaseFolder(folder.Path());
    folder.WriteFile("product/velpatch-settings.dat",
                     std::string(contents.data(), contents.size()));
    DNValueRef before;
    Check(ReadTreeFile(folder.Path("product/velpatch-settings.dat"), before));

    VelPatchSettings record;
    LoadSettings(record, "product", kTarget);
    record.username = "user";
    SaveSettings(record, "product", kTarget);
    VelPatchSettings again;
    LoadSettings(again, "product", kTarget);
    Check(IsSame(record, again));

    const std::string written = folder.ReadFile("product/velpatch-settings.dat");
    const DNValueRef after(new DNMemoryValue);
    TextConfig::Parse(written.data(), written.size(), *after);
    for (size_t i = 0; i < before->GetChildCount(); ++i) {
        const DNData key = before->KeyAt(i);
        const DNData value = before->ChildAt(i)->GetData();
        // A path never begins with the sign of a meta entry.
        if (value.type == kDNTypeString && key.data.View().substr(0, 1) != absl::string_view("$") &&
            key.data != kTarget) {
            Check(after->Get(key)->GetString() == value.data);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    const absl::string_view bytes(reinterpret_cast<const char*>(data), size);
    CheckRecord(bytes);
    CheckFile(bytes);
    return 0;
}
