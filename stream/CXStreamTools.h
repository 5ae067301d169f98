// Small tools on streams: digest, stream strings, reading a whole file.
#pragma once

#include "core/CXString.h"
#include "core/CXStringEdit.h"
#include "stream/CXStream.h"

#include <cstdint>
#include <vector>

/// MD5 (RFC 1321) of `count` bytes from the stream's position, as 32 lower-case hexadecimal
/// characters. If the stream falls short, of what there was; its last error tells the failure.
CXString MD5OfStream(CXStream& stream, uint64_t count);

/// Reads a stream string: a length byte, or 255 and a big-endian 32-bit length, then the bytes. A
/// length of 0xFFFFFFFF is kCXResultNoResources; one beyond the end of a stream of known size is
/// kCXResultBadData, and so is one above `longest`: what a packed stream claims to hold may be far
/// more than the memory. On any failure false, an empty text, and the stream's error set.
bool ReadStreamString(CXStream& stream, CXString& text, uint32_t longest = 0xFFFFFFFE);

/// Writes a stream string; the long form from a length of 255 bytes up. Look at the stream's error.
void WriteStreamString(CXStream& stream, absl::string_view text);

/// Reads a whole file of at most `limit` bytes; a larger one gives kCXResultNoResources. On failure
/// the output is empty.
CXResult ReadWholeFile(const CXString& path, CXStringEdit& out, uint64_t limit);
CXResult ReadWholeFile(const CXString& path, std::vector<uint8_t>& out, uint64_t limit);
