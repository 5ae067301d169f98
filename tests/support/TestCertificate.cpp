#include "tests/support/TestCertificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <sstream>

namespace {

constexpr long kDay = 86400;

EVP_PKEY* MakeKey() {
    EVP_PKEY* key = nullptr;
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    EVP_PKEY_keygen_init(context);
    EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context, NID_X9_62_prime256v1);
    EVP_PKEY_keygen(context, &key);
    EVP_PKEY_CTX_free(context);
    return key;
}

void AddExtension(X509* certificate, int number, const std::string& value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, number, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

template <typename Writer> std::string ToPem(const Writer& write) {
    BIO* memory = BIO_new(BIO_s_mem());
    write(memory);
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory, &data);
    std::string text(data, static_cast<size_t>(size));
    BIO_free(memory);
    return text;
}

} // namespace

TestCertificate::TestCertificate(const CertificateFields& fields, const TestCertificate* issuer)
    : m_key(MakeKey()), m_certificate(X509_new()) {
    static std::atomic<long> serial{1};
    X509_set_version(m_certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(m_certificate), serial++);
    X509_gmtime_adj(X509_getm_notBefore(m_certificate), fields.fromDays * kDay);
    X509_gmtime_adj(X509_getm_notAfter(m_certificate), fields.toDays * kDay);
    X509_set_pubkey(m_certificate, m_key);
    X509_NAME* subject = X509_get_subject_name(m_certificate);
    const auto add = [&](const char* field, const std::string& text) {
        X509_NAME_add_entry_by_txt(subject, field, MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(text.size()), -1, 0);
    };
    add("O", "Tests");
    std::string alternatives;
    std::istringstream names(fields.names);
    for (std::string name; std::getline(names, name, ',');) {
        if (name.rfind("CN:", 0) == 0) {
            add("CN", name.substr(3));
        } else {
            alternatives += (alternatives.empty() ? "" : ",") + name;
        }
    }
    X509_set_issuer_name(
        m_certificate,
        X509_get_subject_name(issuer != nullptr ? issuer->m_certificate : m_certificate));
    AddExtension(m_certificate, NID_basic_constraints,
                 fields.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
    if (!alternatives.empty()) {
        AddExtension(m_certificate, NID_subject_alt_name, alternatives);
    }
    X509_sign(m_certificate, issuer != nullptr ? issuer->m_key : m_key, EVP_sha256());
}

TestCertificate::~TestCertificate() {
    X509_free(m_certificate);
    EVP_PKEY_free(m_key);
}

std::string TestCertificate::GetPem() const {
    return ToPem([this](BIO* out) { PEM_write_bio_X509(out, m_certificate); });
}

std::string TestCertificate::GetKeyPem() const {
    return ToPem([this](BIO* out) {
        PEM_write_bio_PrivateKey(out, m_key, nullptr, nullptr, 0, nullptr, nullptr);
    });
}
