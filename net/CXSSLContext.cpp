#include "net/CXSSLContext.h"

#include "core/CXFileSystem.h"
#include "core/CXLog.h"
#include "net/OpenSSLCompat.h"

#include <cstdlib>

namespace {

constexpr uint64_t kLoadTexts = 0x200002; // the texts of errors of both libraries

/// Once per process, under a lock of its own.
void StartOpenSSL() {
    [[maybe_unused]] static const bool s_started = [] {
        OPENSSL_init_ssl(0, nullptr);
        OPENSSL_init_ssl(kLoadTexts, nullptr);
        if (CXSSLContext::IsVersionRefused(static_cast<uint32_t>(OpenSSL_version_num()))) {
            std::abort();
        }
        return true;
    }();
}

CXString& ChosenVerifyFile() {
    static CXString path;
    return path;
}

} // namespace

bool CXSSLContext::IsVersionRefused(uint32_t version) {
    return version - 0x10001000U < 112;
}

void CXSSLContext::LogError() {
    char text[256] = {};
    ERR_error_string_n(ERR_get_error(), text, sizeof(text));
    CXLogFormat("OpenSSL error: \"%s\"", text);
}

CXSSLContext::CXSSLContext() {
    StartOpenSSL();
    m_context = SSL_CTX_new(TLS_method());
    if (m_context != nullptr) {
        SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION);
    }
}

CXSSLContext::~CXSSLContext() {
    SSL_CTX_free(m_context);
}

CXResult CXSSLContext::LoadDefaultVerifyPaths() {
    const CXString& chosen = ChosenVerifyFile();
    return LoadVerifyFile(
        chosen.IsEmpty()
            ? CXFileSystem::Join(CXFileSystem::GetApplicationFolder(), "data/openssl.crt")
            : chosen);
}

void CXSSLContext::SetDefaultVerifyFile(const CXString& path) {
    ChosenVerifyFile() = path;
}

CXResult CXSSLContext::LoadVerifyFile(const CXString& path) {
    if (m_context == nullptr) {
        return kCXResultFailed;
    }
    const CXString native =
        CXFileSystem::HasWindowsPaths() ? CXFileSystem::GetExtendedPath(path) : path;
    ERR_clear_error();
    CXResult result = kCXResultOK;
    if (SSL_CTX_load_verify_locations(m_context, native.GetData(), nullptr) != 1) {
        CXLogFormat("CXSSLContext::LoadDefaultVerifyPaths> failed to load certificate at '%s'",
                    path.GetData());
        LogError();
        result = kCXResultNotFound;
    }
    SSL_CTX_set_verify(m_context, SSL_VERIFY_PEER, nullptr);
    return result;
}
