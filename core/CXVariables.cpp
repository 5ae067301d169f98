// The strict expansion of registry edits.
#include "core/CXLocalisation.h"

namespace {

CXString Upper(absl::string_view text) {
    CXString upper(text);
    upper.ToUpper();
    return upper;
}

/// Reads "KEY=VALUE,KEY2=VALUE"; false for an argument without "=" and for a repeated key.
bool ReadArguments(absl::string_view text, std::map<CXString, CXString>& arguments) {
    for (;;) {
        const size_t comma = text.find(',');
        const absl::string_view argument = text.substr(0, comma);
        const size_t equals = argument.find('=');
        if (equals == absl::string_view::npos ||
            !arguments.emplace(Upper(argument.substr(0, equals)), argument.substr(equals + 1))
                 .second) {
            return false;
        }
        if (comma == absl::string_view::npos) {
            return true;
        }
        text.remove_prefix(comma + 1);
    }
}

} // namespace

// Values of arguments hold no ")", so they can't hold a whole reference: the depth of the calls is
// at most three.
CXString ExpandVariables(absl::string_view text, const std::map<CXString, CXString>& variables) {
    CXStringEdit result;
    for (;;) {
        const size_t mark = text.find("$(");
        result.Append(text.substr(0, mark));
        if (mark == absl::string_view::npos) {
            return result.ToString();
        }
        text.remove_prefix(mark + 2);
        const size_t stop = text.find_first_of("()");
        if (stop == absl::string_view::npos) {
            return CXString();
        }
        const CXString name = Upper(text.substr(0, stop));
        const bool hasArguments = text[stop] == '(';
        text.remove_prefix(stop + 1);
        std::map<CXString, CXString> arguments;
        if (hasArguments) {
            const size_t end = text.find(')');
            if (end == absl::string_view::npos || end + 1 >= text.size() || text[end + 1] != ')' ||
                !ReadArguments(text.substr(0, end), arguments)) {
                return CXString();
            }
            text.remove_prefix(end + 2);
        }
        if (name.IsEmpty() || name == "$") {
            if (hasArguments) {
                return CXString();
            }
            result.Append(name);
            continue;
        }
        const auto found = variables.find(name);
        if (found == variables.end()) {
            result.Append("$(");
            result.Append(name);
            result.AppendByte(')');
        } else if (hasArguments) {
            result.Append(ExpandVariables(found->second, arguments));
        } else {
            result.Append(found->second);
        }
    }
}
