#include "app/config/VelPatchLanguage.h"
#include "core/CXStringUTF16.h"
#include "core/win32_api.h"

#include <vector>

VelPatchSystemLanguages GetSystemLanguages() {
    VelPatchSystemLanguages system;
    system.languageOf = [](const CXString& locale, CXString& language) {
        const CXStringUTF16 name(locale);
        wchar_t buffer[4] = {};
        const int count = GetLocaleInfoEx(name.GetWide(), LOCALE_SISO639LANGNAME, buffer, 4);
        language = count > 0 ? CXStringUTF16::ToUTF8(buffer) : CXString();
        return count;
    };
    ULONG languages = 0;
    ULONG size = 0;
    if (!GetUserPreferredUILanguages(MUI_LANGUAGE_NAME, &languages, nullptr, &size)) {
        return system;
    }
    std::vector<wchar_t> list(static_cast<size_t>(size) + 1);
    if (!GetUserPreferredUILanguages(MUI_LANGUAGE_NAME, &languages, list.data(), &size)) {
        return system;
    }
    // Names, each with its terminator, closed by an empty one.
    for (const wchar_t* name = list.data(); *name;) {
        system.preferred.push_back(CXStringUTF16::ToUTF8(name));
        while (*name++) {
        }
    }
    return system;
}
