// The checksum of a file as patches state it.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

/// MD5 (RFC 1321) of the whole file as 32 lower-case hexadecimal characters. On failure (it can't
/// be opened, or not be read to its end) `checksum` is empty. The file is read through a small
/// buffer.
CXResult MD5OfFile(const CXString& path, CXString& checksum);
