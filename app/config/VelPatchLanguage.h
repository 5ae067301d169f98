// Which of the configured languages the user sees.
#pragma once

#include "core/CXString.h"

#include <functional>
#include <vector>

/// What the system says about languages.
struct VelPatchSystemLanguages {
    /// The user's languages in the form "xx-YY", most wanted first; empty if unknown.
    std::vector<CXString> preferred;
    /// Gives the ISO 639 language of a locale name and the number of characters that the system
    /// reports for it, its terminator counted; 0 for failure. Unset: the system has no such call.
    std::function<int(const CXString& locale, CXString& language)> languageOf;
};

/// The system's answer now.
VelPatchSystemLanguages GetSystemLanguages();

/// Pure: the list that the environment of a POSIX system asks for. LANGUAGE is a list separated by
/// ":"; without it the first of LC_ALL, LC_MESSAGES and LANG that is set counts. Code sets and
/// modifiers are cut off; "C" and "POSIX" name no language.
std::vector<CXString>
LanguagesFromEnvironment(const std::function<const char*(const char* name)>& getVariable);

/// The configured name, brought into the system's form ("en_US" becomes "en-US"), that the user
/// wants most; without a match "en" if it is configured, else the first one. Empty if there is
/// none.
CXString SelectLanguage(const std::vector<CXString>& configured,
                        const VelPatchSystemLanguages& system);
