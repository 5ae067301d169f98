#include "app/config/VelPatchLanguage.h"

#include "core/CXLanguages.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"

namespace {

CXString JoinLocale(absl::string_view language, absl::string_view region) {
    CXStringEdit edit(language);
    edit.AppendByte('-');
    edit.Append(region);
    return edit.ToString();
}

/// Names of five and six characters have their separator replaced by "-", whatever it was.
CXString ToSystemForm(const CXString& name) {
    const absl::string_view view = name.View();
    if (view.size() == 5) {
        return JoinLocale(view.substr(0, 2), view.substr(3));
    }
    if (view.size() == 6) {
        // The system's count of characters includes the terminator, so that 2 stands for a
        // language of one letter: nearly every name takes its first three characters.
        constexpr size_t kWantedCount = 2;
        const CXString language = GetISO639Language(name);
        const bool isShort = language.GetLength() + 1 == kWantedCount;
        return JoinLocale(isShort ? language.View() : view.substr(0, 3), view.substr(4));
    }
    return name;
}

} // namespace

CXString SelectLanguage(const std::vector<CXString>& configured,
                        const std::vector<CXString>& preferred) {
    std::vector<CXString> names;
    for (const CXString& name : configured) {
        const CXString changed = ToSystemForm(name);
        if (!changed.IsEmpty()) {
            names.push_back(changed);
        }
    }
    for (const CXString& wanted : preferred) {
        for (const CXString& name : names) {
            if (EqualsNoCase(name, wanted)) {
                return name;
            }
        }
    }
    for (const CXString& name : names) {
        if (name == "en") {
            return name;
        }
    }
    return names.empty() ? CXString() : names.front();
}
