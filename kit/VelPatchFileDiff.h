// The binary diff of one pair of files.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <span>
#include <vector>

/// Reads a whole file; on failure `problem` says so with the path, in plain words.
CXResult ReadFileToDiff(const CXString& path, std::vector<uint8_t>& bytes, CXString& problem);

/// The diff that turns the old bytes into the new ones. Memory while it is made: at its peak some
/// three times the larger range beside the ranges themselves.
std::vector<uint8_t> MakeFileDiff(std::span<const uint8_t> oldBytes,
                                  std::span<const uint8_t> newBytes, unsigned workers);
