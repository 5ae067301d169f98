// The MD5 digest (RFC 1321).
#pragma once

#include "core/CXString.h"

#include <cstddef>
#include <cstdint>

/// Incremental MD5. One object is used by one thread at a time.
class CXMD5 {
public:
    /// Begins a digest.
    CXMD5();
    /// Adds bytes.
    void Update(const void* data, size_t count);
    /// Finishes; the object must not be updated afterwards.
    void Finish(uint8_t digest[16]);
    /// Finishes; 32 lower-case hexadecimal characters.
    CXString FinishHex();

    /// Digest of a block in memory as 32 lower-case hexadecimal characters.
    static CXString OfBlock(const void* data, size_t count);

private:
    uint32_t m_state[4];
    uint64_t m_length = 0;
    uint8_t m_pending[64];
};
