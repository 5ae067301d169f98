#include "net/CXTrustFile.h"

#include "net/OpenSSLCompat.h"
#include "stream/CXStreamTools.h"

#include <openssl/pem.h>

#include <memory>

namespace {

constexpr uint64_t kLargestFile = 0x1000000;
constexpr int64_t kMillisecondsPerSecond = 1000;
constexpr int64_t kSecondsPerDay = 86400;

struct Freer {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(ASN1_TIME* time) const { ASN1_STRING_free(time); }
};

/// 0 for a time that can't be told.
int64_t ToMilliseconds(const ASN1_TIME* time) {
    const std::unique_ptr<ASN1_TIME, Freer> epoch(ASN1_TIME_set(nullptr, 0));
    int days = 0;
    int seconds = 0;
    if (epoch == nullptr || ASN1_TIME_diff(&days, &seconds, epoch.get(), time) != 1) {
        return 0;
    }
    return (days * kSecondsPerDay + seconds) * kMillisecondsPerSecond;
}

} // namespace

CXResult ReadTrustFile(const CXString& path, std::vector<CXTrustedRoot>& roots) {
    roots.clear();
    std::vector<uint8_t> bytes;
    if (ReadWholeFile(path, bytes, kLargestFile) != kCXResultOK) {
        return kCXResultNotFound;
    }
    const std::unique_ptr<BIO, Freer> bio(
        BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    ERR_clear_error();
    for (;;) {
        const std::unique_ptr<X509, Freer> certificate(
            PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (certificate == nullptr) {
            break;
        }
        char subject[256] = {};
        X509_NAME_oneline(X509_get_subject_name(certificate.get()), subject, sizeof(subject));
        roots.push_back({subject, ToMilliseconds(X509_get0_notBefore(certificate.get())),
                         ToMilliseconds(X509_get0_notAfter(certificate.get()))});
    }
    // The end of the file shows as a missing first line; anything else is a damaged certificate.
    const bool isEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    if (!isEnd) {
        return kCXResultBadData;
    }
    return roots.empty() ? kCXResultNotFound : kCXResultOK;
}
