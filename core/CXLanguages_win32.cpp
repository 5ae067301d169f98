#include "core/CXLanguages.h"
#include "core/CXStringUTF16.h"

#include "core/win32_api.h"

std::vector<CXString> GetSystemLanguages() {
    std::vector<CXString> languages;
    ULONG count = 0;
    ULONG size = 0;
    if (!GetUserPreferredUILanguages(MUI_LANGUAGE_NAME, &count, nullptr, &size) || size == 0) {
        return languages;
    }
    // One unit more than asked for, so that the list ends whatever the call does.
    std::vector<wchar_t> list(static_cast<size_t>(size) + 1);
    if (!GetUserPreferredUILanguages(MUI_LANGUAGE_NAME, &count, list.data(), &size)) {
        return languages;
    }
    for (const wchar_t* name = list.data(); *name != 0; name += wcslen(name) + 1) {
        languages.push_back(FromUTF16(reinterpret_cast<const char16_t*>(name)));
    }
    return languages;
}

CXString GetISO639Language(const CXString& name) {
    // Room for three letters: longer codes fail.
    wchar_t code[4] = {};
    const CXStringUTF16 wide = ToUTF16(name);
    const int count = GetLocaleInfoEx(reinterpret_cast<const wchar_t*>(wide.GetUnits()),
                                      LOCALE_SISO639LANGNAME, code, 4);
    return count > 0 ? FromUTF16(reinterpret_cast<const char16_t*>(code)) : CXString();
}
