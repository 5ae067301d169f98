// The pure part of the command line: splitting a handed-over line and matching it with the option
// table; and the value of the "settings" option.
#include "app/config/VelPatchCommandLine.h"
#include "fuzz/FuzzTools.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    const absl::string_view line(reinterpret_cast<const char*>(data), size);
    std::vector<CXString> words = SplitCommandLine(line);
    size_t total = 0;
    for (const CXString& word : words) {
        total += word.GetLength();
    }
    Check(total <= size);
    words.insert(words.begin(), CXString());

    const VelPatchOption repeating[] = {{"", kOptionNoValue, ""},
                                        {"a", kOptionNextArgument, ""},
                                        {"b", kOptionNextFreeArgument | kOptionMayRepeat, ""},
                                        {"c", kOptionNextFreeArgument, ""},
                                        {nullptr, 0, nullptr}};
    for (const VelPatchOption* table : {kVelPatchOptions, repeating}) {
        const VelPatchRecordedOptions options = RecordOptions(table, words);
        Check(options.size() < words.size());
        for (const VelPatchRecordedOption& record : options) {
            const VelPatchRecordedOption* first = FindRecordedOption(options, record.option->name);
            Check(first == &record || (record.option->mode & kOptionMayRepeat) != 0);
        }
    }
    VelPatchSettings settings;
    ApplySettingsOverride(settings, CXString(line));
    return 0;
}
