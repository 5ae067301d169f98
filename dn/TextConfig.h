// The text form of data trees: settings, configuration, control files and
// service replies.
#pragma once

#include "dn/DNValue.h"
#include "stream/CXStream.h"

#include <cstddef>
#include <functional>
#include <initializer_list>

/// A document is the contents of a folder: keys, each with a value on the same
/// line or with a folder in braces. The type of a bare value is inferred from
/// how it is written. There is no error but one (a closing brace too many,
/// logged); what was read up to there stays. Nesting of any depth is read and
/// written with a bounded stack, and memory is bounded by the input's size.
namespace TextConfig {

/// What is seen of a document beside its values, for messages about it. Offsets are bytes from its
/// start.
struct Trace {
    static constexpr size_t kNowhere = static_cast<size_t>(-1);

    /// Called for each entry as it is met, with its folder and where its key begins; also in blocks
    /// that are dropped. May be unset.
    std::function<void(const DNValueRef& folder, const CXString& key, size_t offset)> entry;
    /// Called where a folder's closing brace stands. May be unset.
    std::function<void(const DNValueRef& folder, size_t offset)> close;
    size_t strayBrace = kNowhere; ///< a closing brace that closes nothing; nothing is read from it
    size_t openFolder = kNowhere; ///< the innermost brace that is never closed
    size_t openText = kNowhere;   ///< a quote, or "{{{", that is never closed
};

/// Parses `size` bytes of UTF-8 text into `root`. Keys that `root` already
/// holds are replaced, folders are merged into. `trace` may be null.
void Parse(const void* data, size_t size, DNValue& root, Trace* trace = nullptr);

/// The same for documents in which a key may stand several times at the root:
/// every entry with one of `repeatingKeys` is added behind the others, whatever
/// the root holds already. `Get` then gives the first of them.
void ParseRepeating(const void* data, size_t size, DNValue& root,
                    std::initializer_list<absl::string_view> repeatingKeys);

/// Reads what remains of the stream into a new folder. A short read, or a
/// stream that can't say how much remains, gives an empty one.
DNValueRef Read(CXStream& stream);

/// Writes the folder's contents, lines ended by a lone CR. A leaf writes
/// nothing. Failures stand in the stream's last error.
void Write(const DNValue& value, CXStream& stream);

} // namespace TextConfig

/// The index of the lower-cased value in a null-ended table whose first entry
/// is the enum's name, so values count from 1. 0 when it isn't found (logged
/// with `name`) or empty (not logged).
int ParseEnumValue(const char* name, const char* const* table, const CXString& value);
