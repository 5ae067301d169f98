// Keeps credentials out of logs and diagnostic texts.
#pragma once

#include "core/CXString.h"

class CXStringEdit;

/// An address for a log line: user and password, and the values of "u" and "p" in the query, are
/// replaced by "***". The text need not be a well-formed address.
CXString MaskAddress(absl::string_view address);

/// Appends the head of a request or a reply (lines ending with a line feed) without the values of
/// "Authorization", "Cookie" and their like, and with every address in it masked.
void AppendMaskedHead(absl::string_view head, CXStringEdit& out);
