// Every text that the program looks up, and what its arguments are.
#pragma once

#include <absl/strings/string_view.h>
#include <absl/types/span.h>

/// A text's key and its arguments, "$1" onwards, in words divided by ", " (empty: none). No
/// argument of a text says more than its words: numbers come in decimal, paths in the program's
/// form.
struct VelPatchTextKey {
    const char* key;
    const char* arguments;

    int CountArguments() const;
    /// The words of argument `number`, counted from 1; empty beyond the last.
    absl::string_view GetArgument(int number) const;
};

/// All of them, by the page or task that shows them.
absl::Span<const VelPatchTextKey> GetTextKeys();
/// The entry of a key ("$..."), or null.
const VelPatchTextKey* FindTextKey(absl::string_view key);
