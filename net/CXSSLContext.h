// The TLS settings that streams share, and what they trust.
#pragma once

#include "core/CXLock.h"
#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>

struct ssl_ctx_st;

/// Trusts the roots in "data/openssl.crt" beside the program and nothing else; the system's own
/// stores are not looked at. The least protocol version is TLS 1.2. Made and loaded on one thread,
/// then used by streams on any; it outlives them.
class CXSSLContext : public CXNonCopyable {
public:
    /// Starts OpenSSL with the first context of the process. A library too old to be trusted ends
    /// the program.
    CXSSLContext();
    ~CXSSLContext();

    /// Loads the trust file and demands a good chain of every peer; kCXResultNotFound if the file
    /// is missing or holds no certificate (then every handshake fails).
    CXResult LoadDefaultVerifyPaths();
    /// Puts another file in the place of the one beside the program, for this process; empty
    /// restores it. At start-up, before any other thread.
    static void SetDefaultVerifyFile(const CXString& path);
    /// The same with another file in PEM form.
    CXResult LoadVerifyFile(const CXString& path);

    /// Null if OpenSSL could not make it.
    ssl_ctx_st* GetNative() const { return m_context; }

    /// Whether a library of that version number (OpenSSL's own coding) is refused.
    static bool IsVersionRefused(uint32_t version);
    /// Logs the first error that OpenSSL keeps for the calling thread.
    static void LogError();

private:
    ssl_ctx_st* m_context = nullptr;
};
