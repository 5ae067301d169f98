// Texts of the system as standard strings, which test messages show in full.
#pragma once

#include <absl/strings/string_view.h>

#include <string>

inline std::string Text(absl::string_view text) {
    return std::string(text.data(), text.size());
}
