// The languages that the user of the system wants.
#pragma once

#include "core/CXString.h"

#include <optional>
#include <vector>

/// Language names in the form "xx-YY", most wanted first; empty when the system names none. Any
/// thread.
std::vector<CXString> GetPreferredLanguages();

/// Replaces the answer of GetPreferredLanguages (for tests); nothing restores the system's.
void OverridePreferredLanguages(std::optional<std::vector<CXString>> languages);

/// The ISO 639 code of the language of a locale name ("en-US" gives "en"), or empty when the name
/// is not known. The Windows call that it stands for counts the terminating NUL, so its answer is
/// the length plus 1.
CXString GetISO639Language(const CXString& name);

/// The list that the environment's language variables give: `language` (separated by ":") if not
/// empty, else the first of the others that isn't. Code sets and modifiers are cut, "_" becomes
/// "-"; "C" and "POSIX" name no language. Pure.
std::vector<CXString> ParseLanguageVariables(absl::string_view language, absl::string_view lcAll,
                                             absl::string_view lcMessages, absl::string_view lang);

/// The system's own list, without the override.
std::vector<CXString> GetSystemLanguages();
