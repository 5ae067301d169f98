// The localised text table and the expansions of texts.
#pragma once

#include "core/CXString.h"
#include "core/CXStringEdit.h"

#include <functional>
#include <map>
#include <vector>

/// Stores a text under its full key ("$..."), replacing an earlier one. Any thread.
void SetLocalisedString(const CXString& key, const CXString& text);
/// Empties the table.
void ClearLocalisedStrings();
/// The text of the key, or the key itself when the table doesn't hold it. Any thread.
CXString GetLocalisedString(const CXString& key);
/// The text with "$1".."$n" replaced by the arguments, from the highest number down. A text is
/// never used as a format string.
CXString FormatLocalisedStringList(const CXString& key, const std::vector<CXString>& arguments);

/// An argument as the text that stands for it; numbers in decimal.
inline CXString ToLocalisedArgument(const CXString& text) {
    return text;
}
inline CXString ToLocalisedArgument(const char* text) {
    return CXString(text);
}
inline CXString ToLocalisedArgument(int64_t number) {
    return CXString::Format("%d", number);
}
inline CXString ToLocalisedArgument(int32_t number) {
    return CXString::Format("%d", number);
}

/// The same with the arguments one by one.
template <typename... Args>
CXString FormatLocalisedString(const CXString& key, const Args&... arguments) {
    return FormatLocalisedStringList(key, {ToLocalisedArgument(arguments)...});
}

/// Guards against a text that is nothing but a reference to itself or to an enclosing level.
struct CXLocalisedStringRecursionGuard {
    const CXLocalisedStringRecursionGuard* parent = nullptr;
    CXString text;
};

/// Finds the text of a "$(key)": true if known, with the (already expanded) text in `out`.
using CXLocalisedTextResolver = std::function<bool(const CXString& key, CXStringEdit& out,
                                                   const CXLocalisedStringRecursionGuard* guard)>;

/// Expands every "$(name,arguments)" of the text in place.
void ExpandLocalisedText(CXStringEdit& edit, const CXLocalisedTextResolver& resolver,
                         const CXLocalisedStringRecursionGuard* guard);

/// A place that may know texts of the user interface; asked along a chain from child to parent.
class CXStringSource {
public:
    virtual ~CXStringSource() = default;
    /// True if this source knows the key.
    virtual bool FindString(const CXString& key, CXStringEdit& out) = 0;
    /// The next source up the chain; null at the root.
    virtual CXStringSource* GetParentSource() { return nullptr; }
    /// Asked of the chain's root when no source knew the key.
    virtual bool FindFallbackString(const CXString&, CXStringEdit&) { return false; }
};

/// The usual resolver: the chain, the root's fallback, else the key itself; then expanded with the
/// same resolver and a new guard. Always true.
bool LookupUIText(CXStringSource* chain, const CXString& key, CXStringEdit& out,
                  const CXLocalisedStringRecursionGuard* guard);

/// The strict expansion for registry edits: "$(NAME)" and "$(NAME(KEY=VALUE,...))" with names in
/// upper case; malformed input gives the empty text, an unknown name stays as "$(NAME)".
CXString ExpandVariables(absl::string_view text, const std::map<CXString, CXString>& variables);
