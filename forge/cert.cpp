// SPDX-License-Identifier: Apache-2.0
/* forge cert: X.509 v3 certificates with exactly the extensions asked for,
 * extended key usages kept in the order given. */
#include <string.h>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

namespace {

const OptSpec kCertOpts[] = {
    {"pkcs11-module", "FILE", "PKCS#11 module for keys given as pkcs11: URIs without module-path"},
    {"subject", "DN", "subject name, e.g. \"/C=XX/O=Example/CN=Signer\" (\"+\" joins an RDN)"},
    {"key", "FILE", "the subject's key (PEM private or public key)"},
    {"self-signed", nullptr, "sign with --key and use the subject as issuer"},
    {"issuer-cert", "FILE", "issuer certificate (DER or PEM)"},
    {"issuer-key", "FILE", "issuer private key"},
    {"serial", "N", "serial number, decimal or 0x-hex"},
    {"not-before", "TIME", "start of validity (YYMMDDHHMMSSZ or YYYYMMDDHHMMSSZ)"},
    {"not-after", "TIME", "end of validity"},
    {"ca", "yes|no|none", "basicConstraints cA TRUE, cA FALSE, or no extension (default none)"},
    {"path-len", "N", "basicConstraints pathLenConstraint (with --ca yes)"},
    {"key-usage", "LIST", "comma list: digitalSignature nonRepudiation keyEncipherment "
                          "dataEncipherment keyAgreement keyCertSign cRLSign encipherOnly "
                          "decipherOnly (critical; no extension when absent)"},
    {"eku", "LIST", "extended key usages in this order: codeSigning timeStamping serverAuth "
                    "clientAuth emailProtection OCSPSigning anyExtendedKeyUsage or dotted OIDs"},
    {"eku-critical", nullptr, "mark the extended key usage extension critical"},
    {"no-key-ids", nullptr, "leave out subject and authority key identifiers"},
    {"ext", "NAME=VALUE", "add an extension in libcrypto's configuration syntax (repeatable), e.g. "
                          "nameConstraints=critical,permitted;DNS:example.com or "
                          "crlDistributionPoints=URI:http://example.com/ca.crl"},
    {"md", "NAME", "signature digest: sha256 (default), sha384, sha512 or sha1"},
    {"corrupt-signature", nullptr, "flip the last bit of the signature value"},
    {"form", "der|pem", "output form (default der)"},
    {"out", "FILE", "where to write the certificate"},
};

/* "/C=XX/O=Org/CN=Name"; "\/" is a literal slash, "+" before a field joins
 * it to the previous RDN. */
uint32_t ParseName(const std::string &text, X509_NAME *name)
{
    if (text.empty() || text[0] != '/') {
        Fail("a name starts with '/': '%s'", text.c_str());
        return kErrUsage;
    }
    std::vector<std::pair<std::string, bool>> fields; /* text, joins previous */
    std::string cur;
    bool join = false;
    for (size_t i = 1; i <= text.size(); ++i) {
        char c = i < text.size() ? text[i] : '\0';
        if (c == '\\' && i + 1 < text.size()) {
            cur += text[++i];
        } else if (c == '/' || c == '+' || c == '\0') {
            if (!cur.empty()) {
                fields.emplace_back(cur, join);
            }
            cur.clear();
            join = c == '+';
        } else {
            cur += c;
        }
    }
    for (const auto &f : fields) {
        size_t eq = f.first.find('=');
        if (eq == std::string::npos || eq == 0) {
            Fail("name field without '=': '%s'", f.first.c_str());
            return kErrUsage;
        }
        std::string type = f.first.substr(0, eq);
        std::string value = f.first.substr(eq + 1);
        int set = (f.second && X509_NAME_entry_count(name) > 0) ? -1 : 0;
        if (X509_NAME_add_entry_by_txt(name, type.c_str(), MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char *>(value.c_str()),
                                       -1, -1, set) != 1) {
            ERR_clear_error();
            Fail("bad name field '%s'", f.first.c_str());
            return kErrUsage;
        }
    }
    return kOk;
}

uint32_t SetSerial(X509 *cert, const std::string &text)
{
    Bytes der;
    uint32_t rc = ParseSerial(text, &der);
    if (rc != kOk) {
        return rc;
    }
    const unsigned char *p = der.data();
    ASN1_INTEGER *ai = d2i_ASN1_INTEGER(nullptr, &p, static_cast<long>(der.size()));
    bool ok = ai != nullptr && X509_set_serialNumber(cert, ai) == 1;
    ASN1_INTEGER_free(ai);
    return ok ? kOk : kErrCrypto;
}

uint32_t SetTime(X509 *cert, const std::string &text, bool notBefore)
{
    if (!IsTimeText(text)) {
        Fail("bad time '%s' (YYMMDDHHMMSSZ or YYYYMMDDHHMMSSZ)", text.c_str());
        return kErrUsage;
    }
    ASN1_TIME *t = ASN1_TIME_new();
    bool ok = t != nullptr && ASN1_TIME_set_string(t, text.c_str()) == 1 &&
              (notBefore ? X509_set1_notBefore(cert, t) : X509_set1_notAfter(cert, t)) == 1;
    ASN1_TIME_free(t);
    return ok ? kOk : kErrCrypto;
}

} // namespace

uint32_t RunCert(const Args &args)
{
    UsePkcs11Module(args);
    const std::string *subject = nullptr, *keyPath = nullptr, *serial = nullptr;
    const std::string *notBefore = nullptr, *notAfter = nullptr, *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "subject", &subject);
    if (rc == kOk) rc = RequireOpt(args, "key", &keyPath);
    if (rc == kOk) rc = RequireOpt(args, "serial", &serial);
    if (rc == kOk) rc = RequireOpt(args, "not-before", &notBefore);
    if (rc == kOk) rc = RequireOpt(args, "not-after", &notAfter);
    if (rc == kOk) rc = RequireOpt(args, "out", &outPath);
    if (rc != kOk) {
        return rc;
    }
    bool selfSigned = HasFlag(args, "self-signed");
    const std::string *issuerCertPath = FindOpt(args, "issuer-cert");
    const std::string *issuerKeyPath = FindOpt(args, "issuer-key");
    if (selfSigned == (issuerCertPath != nullptr) || (issuerCertPath == nullptr) != (issuerKeyPath == nullptr)) {
        Fail("give either --self-signed or both --issuer-cert and --issuer-key");
        return kErrUsage;
    }
    const std::string *mdName = FindOpt(args, "md");
    const EVP_MD *md = DigestByName(mdName != nullptr ? *mdName : "sha256");
    if (md == nullptr) {
        return kErrUsage;
    }

    PkeyPtr subjectKey;
    PkeyPtr signingKey;
    X509Ptr issuerCert;
    rc = LoadAnyKey(*keyPath, &subjectKey);
    if (rc == kOk && !selfSigned) {
        rc = LoadCert(*issuerCertPath, &issuerCert);
        if (rc == kOk) rc = LoadPrivateKey(*issuerKeyPath, &signingKey);
    } else if (rc == kOk) {
        rc = LoadPrivateKey(*keyPath, &signingKey);
    }
    if (rc != kOk) {
        return rc;
    }

    X509Ptr cert(X509_new());
    X509_NAME *name = X509_NAME_new();
    if (!cert || name == nullptr || X509_set_version(cert.get(), X509_VERSION_3) != 1) {
        X509_NAME_free(name);
        return kErrCrypto;
    }
    rc = ParseName(*subject, name);
    if (rc == kOk && X509_set_subject_name(cert.get(), name) != 1) rc = kErrCrypto;
    X509_NAME_free(name);
    if (rc == kOk) {
        X509_NAME *issuerName = selfSigned ? X509_get_subject_name(cert.get())
                                           : X509_get_subject_name(issuerCert.get());
        if (X509_set_issuer_name(cert.get(), issuerName) != 1) rc = kErrCrypto;
    }
    if (rc == kOk) rc = SetSerial(cert.get(), *serial);
    if (rc == kOk) rc = SetTime(cert.get(), *notBefore, true);
    if (rc == kOk) rc = SetTime(cert.get(), *notAfter, false);
    if (rc == kOk && X509_set_pubkey(cert.get(), subjectKey.get()) != 1) rc = kErrCrypto;
    if (rc == kOk) {
        const std::string *ca = FindOpt(args, "ca");
        rc = AddBasicConstraints(cert.get(), ca != nullptr ? *ca : "none", FindOpt(args, "path-len"));
    }
    if (rc == kOk) {
        if (const std::string *ku = FindOpt(args, "key-usage")) rc = AddKeyUsage(cert.get(), *ku);
    }
    if (rc == kOk) {
        if (const std::string *eku = FindOpt(args, "eku")) {
            rc = AddExtKeyUsage(cert.get(), *eku, HasFlag(args, "eku-critical"));
        }
    }
    if (rc == kOk && !HasFlag(args, "no-key-ids")) {
        rc = AddKeyIds(cert.get(), selfSigned ? cert.get() : issuerCert.get());
    }
    if (rc == kOk) rc = AddConfExtensions(args, selfSigned ? cert.get() : issuerCert.get(), cert.get(), nullptr);
    if (rc == kOk && X509_sign(cert.get(), signingKey.get(), md) <= 0) rc = kErrCrypto;
    Bytes der;
    if (rc == kOk) rc = CertDer(cert.get(), &der);
    if (rc != kOk) {
        if (rc == kErrCrypto) {
            Fail("building the certificate failed");
        }
        ERR_clear_error();
        return rc;
    }
    if (HasFlag(args, "corrupt-signature")) {
        der.back() ^= 0x01; /* the signature value ends the certificate */
    }
    return WriteForm(*outPath, FindOpt(args, "form"), "CERTIFICATE", der);
}

const Command kCertCommand = {
    "cert",
    "--subject DN --key FILE (--self-signed | --issuer-cert FILE --issuer-key FILE) "
    "--serial N --not-before TIME --not-after TIME [extensions] --out FILE",
    "Makes an X.509 v3 certificate signed with RSA PKCS#1 v1.5.",
    kCertOpts,
    sizeof(kCertOpts) / sizeof(kCertOpts[0]),
    RunCert,
};

} // namespace forge
