// Certificates made on the spot, for servers that tests start.
#pragma once

#include <memory>
#include <string>
#include <vector>

struct evp_pkey_st;
struct x509_st;

/// What a certificate is to say.
struct CertificateSpec {
    std::vector<std::string> commonNames = {};
    /// As OpenSSL's configuration writes them: "DNS:a.example", "IP:127.0.0.1".
    std::vector<std::string> alternativeNames = {};
    int validFromDays = -1; ///< from now
    int validToDays = 30;
    bool isAuthority = false;
};

/// A certificate with its private key.
class TestCertificate {
public:
    /// Signed by `issuer`, or by itself without one.
    explicit TestCertificate(const CertificateSpec& spec, const TestCertificate* issuer = nullptr);
    ~TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    evp_pkey_st* GetKey() const { return m_key; }
    x509_st* GetCertificate() const { return m_certificate; }
    std::string GetCertificatePem() const;
    std::string GetKeyPem() const;

private:
    evp_pkey_st* m_key = nullptr;
    x509_st* m_certificate = nullptr;
};
