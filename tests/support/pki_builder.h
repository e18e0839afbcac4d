/* Certificates, CRLs and keys made in-process with libcrypto, for tests that
 * need many small variations (chains of any length, odd extensions). */
#ifndef TESTS_SUPPORT_PKI_BUILDER_H
#define TESTS_SUPPORT_PKI_BUILDER_H

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "support/test_env.h"

namespace testpki {

using testenv::Bytes;

struct KeyFree {
    void operator()(EVP_PKEY *k) const { EVP_PKEY_free(k); }
};
struct CertFree {
    void operator()(X509 *c) const { X509_free(c); }
};
struct CrlFree {
    void operator()(X509_CRL *c) const { X509_CRL_free(c); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Cert = std::unique_ptr<X509, CertFree>;
using Crl = std::unique_ptr<X509_CRL, CrlFree>;

/* One RSA key per size per test process: key generation is slow. */
EVP_PKEY *SharedKey(int bits, int index = 0);

/* 2026-01-01T00:00:00Z and a day in seconds, for readable test times. */
constexpr int64_t kT0 = 1767225600;
constexpr int64_t kDay = 86400;

struct CertSpec {
    std::string subject = "CN=Test";  /* "C=XX,O=Org,CN=Name" */
    long serial = 1;
    int64_t notBefore = kT0 - 365 * kDay;
    int64_t notAfter = kT0 + 365 * kDay;
    bool generalizedTime = false;     /* force GeneralizedTime for both dates */
    int ca = -1;                      /* -1: no basicConstraints, 0/1: cA */
    int keyUsage = -1;                /* KU_* bit mask of OpenSSL, -1: none */
    std::vector<int> extKeyUsage;     /* NIDs in order */
    const EVP_MD *md = nullptr;       /* default SHA-256 */
    EVP_PKEY *key = nullptr;          /* subject key */
    X509 *issuer = nullptr;           /* null: self-signed */
    EVP_PKEY *issuerKey = nullptr;
};

Cert MakeCert(const CertSpec &def);

struct RevokedSpec {
    long serial;
    int64_t date;
    int reason = -1; /* CRL_REASON_*, -1 none */
};

struct CrlSpec {
    X509 *issuer = nullptr;
    EVP_PKEY *issuerKey = nullptr;
    int64_t thisUpdate = kT0 - 30 * kDay;
    int64_t nextUpdate = kT0 + 30 * kDay; /* 0: none */
    std::vector<RevokedSpec> revoked;
    bool indirect = false;
    const EVP_MD *md = nullptr;
};

Crl MakeCrl(const CrlSpec &def);

Bytes Der(X509 *cert);
Bytes Der(X509_CRL *crl);
std::string Pem(X509 *cert);
std::string Pem(X509_CRL *crl);

} // namespace testpki

#endif
