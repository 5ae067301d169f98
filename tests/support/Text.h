// Texts of the system as standard strings, which test messages show in full.
#pragma once

#include "core/CXEncoding.h"
#include "core/CXStringEdit.h"

#include <string>

inline std::string Text(absl::string_view text) {
    return std::string(text.data(), text.size());
}

inline std::string Base64Of(const std::string& bytes) {
    CXStringEdit text;
    Base64Encode(bytes.data(), bytes.size(), text);
    return Text(text);
}

/// The texts with "|" between them, so that one comparison tells everything.
template <typename... Texts> std::string Row(const Texts&... texts) {
    std::string row;
    ((row += Text(texts) + "|"), ...);
    row.pop_back();
    return row;
}
