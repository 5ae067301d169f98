// Base64 (RFC 4648) in the form the program stores.
#pragma once

#include "core/CXResult.h"
#include "core/CXStringEdit.h"

/// Standard alphabet, "=" padding, no line breaks.
void Base64Encode(const void* data, size_t count, CXStringEdit& out);
/// Appends the decoded bytes to `out`. Blanks, tabs, CR and LF are skipped; "=" is allowed only
/// from the third place of a group on and only "=" may follow; any other byte, and a text that
/// ends inside a group, gives kCXResultBadData.
CXResult Base64Decode(absl::string_view text, CXStringEdit& out);
