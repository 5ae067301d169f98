// Which of the configured languages the user sees.
#pragma once

#include "core/CXString.h"

#include <vector>

/// The configured name, brought into the system's form ("en_US" becomes "en-US"), that comes first
/// among the user's languages (`preferred`: "xx-YY", most wanted first); without a match "en" if it
/// is configured, else the first name. Empty if there is none.
CXString SelectLanguage(const std::vector<CXString>& configured,
                        const std::vector<CXString>& preferred);
