#include "app/config/VelPatchLanguage.h"

#include "core/CXText.h"

namespace {

/// The code behind the separator: the name's last two characters.
absl::string_view Region(absl::string_view name) {
    return name.substr(name.size() - 2);
}

CXString JoinLocale(absl::string_view language, absl::string_view region) {
    CXStringEdit edit(language);
    edit.AppendByte('-');
    edit.Append(region);
    return edit.ToString();
}

/// Names of five and six characters have their separator replaced by "-", whatever it was.
CXString ToSystemForm(const CXString& name, const VelPatchSystemLanguages& system) {
    const absl::string_view view = name.View();
    if (view.size() == 5) {
        return JoinLocale(view.substr(0, 2), Region(view));
    }
    if (view.size() == 6) {
        // The system counts the terminator, so 2 stands for a language of one letter and the
        // other way is the usual one.
        constexpr int kWantedCount = 2;
        CXString language;
        if (system.languageOf && system.languageOf(name, language) == kWantedCount) {
            return JoinLocale(language, Region(view));
        }
        return JoinLocale(view.substr(0, 3), Region(view));
    }
    return name;
}

} // namespace

std::vector<CXString>
LanguagesFromEnvironment(const std::function<const char*(const char* name)>& getVariable) {
    absl::string_view list;
    for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = getVariable(name);
        if (value && *value) {
            list = value;
            if (absl::string_view(name) != absl::string_view("LANGUAGE")) {
                list = list.substr(0, list.find(':'));
            }
            break;
        }
    }
    std::vector<CXString> languages;
    while (!list.empty()) {
        const absl::string_view entry = list.substr(0, list.find(':'));
        list.remove_prefix(entry.size() < list.size() ? entry.size() + 1 : entry.size());
        CXStringEdit language(entry.substr(0, entry.find_first_of(".@")));
        language.ReplaceAll("_", "-");
        const absl::string_view code = language.View();
        if (!code.empty() && code != absl::string_view("C") && code != absl::string_view("POSIX")) {
            languages.push_back(language.ToString());
        }
    }
    return languages;
}

CXString SelectLanguage(const std::vector<CXString>& configured,
                        const VelPatchSystemLanguages& system) {
    std::vector<CXString> names;
    for (const CXString& name : configured) {
        const CXString changed = ToSystemForm(name, system);
        if (!changed.IsEmpty()) {
            names.push_back(changed);
        }
    }
    for (const CXString& wanted : system.preferred) {
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
