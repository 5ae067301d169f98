// The roots that a trust file holds, for those who check one before it ships.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <vector>

struct CXTrustedRoot {
    CXString subject;
    int64_t validFrom = 0; ///< ms since the Unix epoch
    int64_t validUntil = 0;
};

/// Reads the certificates of a PEM file, in order. kCXResultNotFound if it can't be read or holds
/// none, kCXResultBadData if one of them is damaged; `roots` gets those before it.
CXResult ReadTrustFile(const CXString& path, std::vector<CXTrustedRoot>& roots);
