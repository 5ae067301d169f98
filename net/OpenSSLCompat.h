// The few calls that differ between OpenSSL 1.1.1 and 3.x, for the TLS sources alone.
#pragma once

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <absl/strings/string_view.h>

namespace OpenSSLCompat {

/// The peer's certificate, to be freed; null when it sent none.
inline X509* GetPeerCertificate(const SSL* ssl) {
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    return SSL_get1_peer_certificate(ssl);
#else
    return SSL_get_peer_certificate(ssl);
#endif
}

/// The bytes of a text in a certificate, NULs included; valid as long as the text.
inline absl::string_view GetText(const ASN1_STRING* text) {
    const int length = ASN1_STRING_length(text);
    return absl::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
                             length > 0 ? static_cast<size_t>(length) : 0);
}

/// Frees what OpenSSL keeps for the calling thread.
inline void ForgetThread() {
    OPENSSL_thread_stop();
}

} // namespace OpenSSLCompat
