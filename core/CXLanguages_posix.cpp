#include "core/CXLanguages.h"
#include "core/CXText.h"

#include <algorithm>
#include <cstdlib>

namespace {

absl::string_view GetVariable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? absl::string_view(value) : absl::string_view();
}

bool IsLetter(char byte) {
    const unsigned char lower = AsciiLower(static_cast<unsigned char>(byte));
    return lower >= 'a' && lower <= 'z';
}

} // namespace

std::vector<CXString> GetSystemLanguages() {
    return ParseLanguageVariables(GetVariable("LANGUAGE"), GetVariable("LC_ALL"),
                                  GetVariable("LC_MESSAGES"), GetVariable("LANG"));
}

CXString GetISO639Language(const CXString& name) {
    // No table here: the first word of the name is the code if it has the form of one.
    const absl::string_view text = name;
    const absl::string_view word = text.substr(0, text.find_first_of("-_"));
    if (word.size() < 2 || word.size() > 3 || !std::all_of(word.begin(), word.end(), IsLetter)) {
        return CXString();
    }
    CXString code(word);
    code.ToLower();
    return code;
}
