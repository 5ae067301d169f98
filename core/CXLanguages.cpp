#include "core/CXLanguages.h"

#include "core/CXLock.h"
#include "core/CXStringEdit.h"

#include <algorithm>
#include <utility>

namespace {

struct Override {
    CXCriticalSection section;
    std::optional<std::vector<CXString>> languages;
};

Override& TheOverride() {
    static Override* override = new Override;
    return *override;
}

/// "de_DE.UTF-8@euro" gives "de-DE".
CXString ToLanguageName(absl::string_view value) {
    value = value.substr(0, value.find_first_of(".@"));
    if (value == "C" || value == "POSIX") {
        return CXString();
    }
    CXStringEdit edit(value);
    std::replace(edit.GetData(), edit.GetData() + edit.GetLength(), '_', '-');
    return edit.ToString();
}

} // namespace

std::vector<CXString> GetPreferredLanguages() {
    Override& override = TheOverride();
    {
        CXCriticalSectionGuard guard(override.section);
        if (override.languages.has_value()) {
            return *override.languages;
        }
    }
    return GetSystemLanguages();
}

void OverridePreferredLanguages(std::optional<std::vector<CXString>> languages) {
    Override& override = TheOverride();
    CXCriticalSectionGuard guard(override.section);
    override.languages = std::move(languages);
}

std::vector<CXString> ParseLanguageVariables(absl::string_view language, absl::string_view lcAll,
                                             absl::string_view lcMessages, absl::string_view lang) {
    absl::string_view list = language;
    for (const absl::string_view other : {lcAll, lcMessages, lang}) {
        list = list.empty() ? other : list;
    }
    std::vector<CXString> languages;
    while (!list.empty()) {
        const size_t end = std::min(list.find(':'), list.size());
        const CXString name = ToLanguageName(list.substr(0, end));
        if (!name.IsEmpty()) {
            languages.push_back(name);
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return languages;
}
