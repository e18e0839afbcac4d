/* SPDX-License-Identifier: Apache-2.0 */
/* Certificates, CRLs and keys made in-process with libcrypto, for tests that
 * need many small variations (chains of any length, odd extensions), and the
 * decoded records of such DER or of the forge's fixtures. */
#ifndef TESTS_SUPPORT_PKI_BUILDER_H
#define TESTS_SUPPORT_PKI_BUILDER_H

#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <stdint.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/test_env.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_crypto.h"

namespace testpki {

using testenv::Bytes;
using testenv::Fixture;

template <class T, void (*Free)(T *)> struct Freer { void operator()(T *p) const { Free(p); } };
using Key = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY, EVP_PKEY_free>>;
using Cert = std::unique_ptr<X509, Freer<X509, X509_free>>;
using Crl = std::unique_ptr<X509_CRL, Freer<X509_CRL, X509_CRL_free>>;

/* One RSA key per size per test process: key generation is slow. */
EVP_PKEY *SharedKey(int bits, int index = 0);
/* An RSA key's public exponent and modulus as the crypto services take them. */
void PublicParts(EVP_PKEY *key, VexaBigInt *e, VexaBigInt *n);
/* A PKCS#1 v1.5 signature with `key` over `data` hashed with `md`. */
Bytes SignData(EVP_PKEY *key, const EVP_MD *md, const Bytes &data);

/* 2026-01-01T00:00:00Z and a day in seconds, for readable test times. */
constexpr int64_t kT0 = 1767225600;
constexpr int64_t kDay = 86400;

struct CertSpec {
    std::string subject = "CN=Test";     /* "C=XX,O=Org,CN=Name" */
    long serial = 1;
    int64_t notBefore = kT0 - 365 * kDay;
    int64_t notAfter = kT0 + 365 * kDay; /* from 2050 on GeneralizedTime */
    int ca = -1;                         /* -1: no basicConstraints, 0/1: cA */
    std::string keyUsage;                /* "keyCertSign,cRLSign", made critical; empty: none */
    EVP_PKEY *key = nullptr;             /* subject key, default SharedKey(2048) */
    X509 *issuer = nullptr;              /* null: self-signed */
    EVP_PKEY *issuerKey = nullptr;
    long version = 2;                    /* 0: version 1, which has no version field */
    /* any other extension as libcrypto's config text, e.g. {"subjectAltName",
     * "DNS:a.example"} or {"1.3.6.1.4.1.99999.1", "critical,DER:05:00"} */
    std::vector<std::pair<std::string, std::string>> extensions;
};

Cert MakeCert(const CertSpec &def);

struct RevokedSpec {
    long serial;
    int64_t date;
    int reason = -1;                     /* CRL_REASON_*, -1 none */
    const char *criticalOid = nullptr;   /* a critical entry extension of this type, value NULL */
};

struct CrlSpec {
    X509 *issuer = nullptr;
    EVP_PKEY *issuerKey = nullptr;
    int64_t thisUpdate = kT0 - 30 * kDay;
    int64_t nextUpdate = kT0 + 30 * kDay; /* 0: none */
    std::vector<RevokedSpec> revoked;
    bool indirect = false;
    bool onlyUserCerts = false; /* with indirect: the IDP's onlyContainsUserCerts */
    /* other CRL extensions as libcrypto's config text, e.g. {"deltaCRL", "critical,1"} */
    std::vector<std::pair<std::string, std::string>> extensions;
};

Crl MakeCrl(const CrlSpec &def);

Bytes Der(X509 *cert);
Bytes Der(X509_CRL *crl);

/* Decoded records whose DER this keeps alive; all freed with it. A decode
 * that fails is a test failure and gives null. */
struct Decoded {
    std::deque<Bytes> der;
    std::vector<VexaX509Cert *> certs;
    std::vector<VexaX509Crl *> crls;
    VexaX509Cert *Cert(const Bytes &bytes);
    VexaX509Cert *Cert(X509 *cert) { return Cert(Der(cert)); }
    VexaX509Crl *Crl(const Bytes &bytes);
    VexaX509Crl *Crl(X509_CRL *crl) { return Crl(Der(crl)); }
    void Clear();
    ~Decoded() { Clear(); }
};

} // namespace testpki

#endif
