// An address split into its parts.
#pragma once

#include "core/CXString.h"

#include <absl/strings/string_view.h>

#include <cstdint>

/// Plain value: splits a text into parts and joins them again. It knows no
/// scheme but "file". Credentials are written "user!password@", with an
/// exclamation mark in place of a colon.
class CXURI {
public:
    CXString scheme; ///< lower case
    CXString host;
    uint16_t port = 0; ///< 0: none given
    CXString user;
    CXString password;
    CXString path;  ///< without the leading "/", still percent-coded
    CXString query; ///< without the "?"

    CXURI() = default;
    /// Parses; a NUL byte ends the text. A malformed text is logged, without its
    /// credentials, and gives an empty value.
    explicit CXURI(absl::string_view text);

    /// True if every part is empty.
    bool IsEmpty() const;
    /// The whole address.
    CXString ToString() const;
    /// "/" + path, then "?" + query when there is one.
    CXString GetPathAndQuery() const;
    /// The local path of a "file" address: absolute, with "/" and, on a drive,
    /// "x:/". Empty for other schemes and for paths that no file can have.
    CXString ToFilePath() const;

    /// Percent-codes every byte but A-Z, a-z, 0-9, "-._~" and those of
    /// `extraAllowed`, up to a NUL.
    static CXString Encode(absl::string_view text, absl::string_view extraAllowed = {});
    /// Undoes Encode, and makes "+" a blank; a "%" without two digits behind it
    /// stays. Stops at a NUL.
    static CXString Decode(absl::string_view text);

private:
    bool Parse(absl::string_view text);
    bool ParseHostAfterCredentials(absl::string_view text, size_t cursor);
    bool ParsePort(absl::string_view text, size_t cursor);
    void ParsePath(absl::string_view text, size_t cursor);
};
