// Certificates made on the spot, for servers that tests start.
#pragma once

#include <string>

struct evp_pkey_st;
struct x509_st;

/// What a certificate is to say.
struct CertificateFields {
    /// Divided by commas: "CN:" for a common name, otherwise an alternative name as OpenSSL's
    /// configuration writes it ("DNS:a.example", "IP:127.0.0.1").
    std::string names;
    int fromDays = -1; ///< validity, in days from now
    int toDays = 30;
    bool isAuthority = false;
};

/// A certificate with its private key.
class TestCertificate {
public:
    /// Signed by `issuer`, or by itself without one.
    explicit TestCertificate(const CertificateFields& fields,
                             const TestCertificate* issuer = nullptr);
    ~TestCertificate();
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    evp_pkey_st* GetKey() const { return m_key; }
    x509_st* GetCertificate() const { return m_certificate; }
    std::string GetPem() const;
    std::string GetKeyPem() const;

private:
    evp_pkey_st* m_key = nullptr;
    x509_st* m_certificate = nullptr;
};
