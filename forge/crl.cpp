// SPDX-License-Identifier: Apache-2.0
/* forge crl and forge crlfile: CRLs with chosen entries, dates and issuing
 * distribution point, and CRL files (CRLs plus certificates, DER
 * concatenated or PEM). */
#include <string.h>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

namespace {

const OptSpec kCrlOpts[] = {
    {"pkcs11-module", "FILE", "PKCS#11 module for keys given as pkcs11: URIs without module-path"},
    {"issuer-cert", "FILE", "certificate of the CRL issuer (its subject is the CRL issuer)"},
    {"issuer-key", "FILE", "private key that signs the CRL"},
    {"this-update", "TIME", "thisUpdate (YYMMDDHHMMSSZ or YYYYMMDDHHMMSSZ)"},
    {"next-update", "TIME", "nextUpdate"},
    {"no-next-update", nullptr, "leave nextUpdate out"},
    {"revoke", "SERIAL:TIME[:REASON]", "add an entry (repeatable, kept in order); REASON is a "
                                       "number or unspecified keyCompromise cACompromise "
                                       "affiliationChanged superseded cessationOfOperation "
                                       "certificateHold removeFromCRL privilegeWithdrawn "
                                       "aACompromise"},
    {"revoke-range", "FIRST:COUNT:TIME", "add COUNT entries with serials FIRST, FIRST+1, ..."},
    {"indirect", nullptr, "add a critical issuing distribution point with indirectCRL TRUE"},
    {"crl-number", "N", "add a CRL number extension"},
    {"ext", "NAME=VALUE", "add an extension in libcrypto's configuration syntax (repeatable), e.g. "
                          "deltaCRL=critical,DER:02:01:01 or issuingDistributionPoint=critical,onlyuser:TRUE"},
    {"version", "1|2", "2 writes the version field (default), 1 leaves it out"},
    {"no-key-id", nullptr, "leave out the authority key identifier"},
    {"md", "NAME", "signature digest: sha256 (default), sha384, sha512 or sha1"},
    {"corrupt-signature", nullptr, "flip the last bit of the signature value"},
    {"form", "der|pem", "output form (default der)"},
    {"out", "FILE", "where to write the CRL"},
};

struct ReasonName {
    const char *name;
    long code;
};

constexpr ReasonName kReasons[] = {
    {"unspecified", 0},          {"keyCompromise", 1},        {"cACompromise", 2},
    {"affiliationChanged", 3},   {"superseded", 4},           {"cessationOfOperation", 5},
    {"certificateHold", 6},      {"removeFromCRL", 8},        {"privilegeWithdrawn", 9},
    {"aACompromise", 10},
};

std::vector<std::string> SplitColons(const std::string &text)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon == std::string::npos ? std::string::npos
                                                                      : colon - start));
        if (colon == std::string::npos) {
            return parts;
        }
        start = colon + 1;
    }
}

uint32_t SetCrlTime(X509_CRL *crl, const std::string &text, bool thisUpdate)
{
    if (!IsTimeText(text)) {
        Fail("bad time '%s' (YYMMDDHHMMSSZ or YYYYMMDDHHMMSSZ)", text.c_str());
        return kErrUsage;
    }
    ASN1_TIME *t = ASN1_TIME_new();
    bool ok = t != nullptr && ASN1_TIME_set_string(t, text.c_str()) == 1 &&
              (thisUpdate ? X509_CRL_set1_lastUpdate(crl, t) : X509_CRL_set1_nextUpdate(crl, t)) == 1;
    ASN1_TIME_free(t);
    return ok ? kOk : kErrCrypto;
}

uint32_t AddEntry(X509_CRL *crl, const Bytes &serialDer, const std::string &date, const std::string *reason)
{
    if (!IsTimeText(date)) {
        Fail("bad revocation time '%s'", date.c_str());
        return kErrUsage;
    }
    long code = -1;
    if (reason != nullptr) {
        for (const ReasonName &r : kReasons) {
            if (*reason == r.name) {
                code = r.code;
            }
        }
        uint32_t n = 0;
        if (code < 0 && ParseU32(*reason, &n) == kOk && n <= 255) {
            code = static_cast<long>(n);
        }
        if (code < 0) {
            Fail("unknown reason '%s'", reason->c_str());
            return kErrUsage;
        }
    }
    X509_REVOKED *rev = X509_REVOKED_new();
    const unsigned char *p = serialDer.data();
    ASN1_INTEGER *serial = d2i_ASN1_INTEGER(nullptr, &p, static_cast<long>(serialDer.size()));
    ASN1_TIME *t = ASN1_TIME_new();
    bool ok = rev != nullptr && serial != nullptr && t != nullptr &&
              X509_REVOKED_set_serialNumber(rev, serial) == 1 &&
              ASN1_TIME_set_string(t, date.c_str()) == 1 &&
              X509_REVOKED_set_revocationDate(rev, t) == 1;
    if (ok && code >= 0) {
        ASN1_ENUMERATED *e = ASN1_ENUMERATED_new();
        ok = e != nullptr && ASN1_ENUMERATED_set(e, code) == 1 &&
             X509_REVOKED_add1_ext_i2d(rev, NID_crl_reason, e, 0, X509V3_ADD_DEFAULT) == 1;
        ASN1_ENUMERATED_free(e);
    }
    ASN1_INTEGER_free(serial);
    ASN1_TIME_free(t);
    /* add0 keeps the order of the calls: the entries appear as given. */
    if (ok && X509_CRL_add0_revoked(crl, rev) == 1) {
        return kOk;
    }
    X509_REVOKED_free(rev);
    return kErrCrypto;
}

uint32_t AddEntries(X509_CRL *crl, const Args &args)
{
    for (const OptValue &o : args.opts) {
        if (o.name == "revoke") {
            std::vector<std::string> parts = SplitColons(o.value);
            if (parts.size() < 2 || parts.size() > 3) {
                Fail("--revoke wants SERIAL:TIME[:REASON], not '%s'", o.value.c_str());
                return kErrUsage;
            }
            Bytes serial;
            uint32_t rc = ParseSerial(parts[0], &serial);
            if (rc == kOk) {
                rc = AddEntry(crl, serial, parts[1], parts.size() == 3 ? &parts[2] : nullptr);
            }
            if (rc != kOk) {
                return rc;
            }
        } else if (o.name == "revoke-range") {
            std::vector<std::string> parts = SplitColons(o.value);
            uint64_t first = 0;
            uint32_t count = 0;
            if (parts.size() != 3 || ParseU64(parts[0], &first) != kOk ||
                ParseU32(parts[1], &count) != kOk || count > 1000) {
                Fail("--revoke-range wants FIRST:COUNT:TIME (COUNT up to 1000)");
                return kErrUsage;
            }
            for (uint32_t i = 0; i < count; ++i) {
                Bytes serial = DerUint(first + i);
                uint32_t rc = AddEntry(crl, serial, parts[2], nullptr);
                if (rc != kOk) {
                    return rc;
                }
            }
        }
    }
    return kOk;
}

uint32_t AddCrlExtensions(X509_CRL *crl, X509 *issuer, const Args &args)
{
    if (!HasFlag(args, "no-key-id")) {
        unsigned char md[EVP_MAX_MD_SIZE];
        unsigned int len = 0;
        AUTHORITY_KEYID *akid = AUTHORITY_KEYID_new();
        bool ok = akid != nullptr && X509_pubkey_digest(issuer, EVP_sha1(), md, &len) == 1 &&
                  (akid->keyid = ASN1_OCTET_STRING_new()) != nullptr &&
                  ASN1_OCTET_STRING_set(akid->keyid, md, static_cast<int>(len)) == 1 &&
                  X509_CRL_add1_ext_i2d(crl, NID_authority_key_identifier, akid, 0,
                                        X509V3_ADD_DEFAULT) == 1;
        AUTHORITY_KEYID_free(akid);
        if (!ok) {
            return kErrCrypto;
        }
    }
    if (const std::string *number = FindOpt(args, "crl-number")) {
        uint64_t n = 0;
        uint32_t rc = ParseU64(*number, &n);
        if (rc != kOk) {
            return rc;
        }
        ASN1_INTEGER *ai = ASN1_INTEGER_new();
        bool ok = ai != nullptr && ASN1_INTEGER_set_uint64(ai, n) == 1 &&
                  X509_CRL_add1_ext_i2d(crl, NID_crl_number, ai, 0, X509V3_ADD_DEFAULT) == 1;
        ASN1_INTEGER_free(ai);
        if (!ok) {
            return kErrCrypto;
        }
    }
    if (HasFlag(args, "indirect")) {
        ISSUING_DIST_POINT *idp = ISSUING_DIST_POINT_new();
        bool ok = idp != nullptr;
        if (ok) {
            idp->indirectCRL = 0xFF;
            ok = X509_CRL_add1_ext_i2d(crl, NID_issuing_distribution_point, idp, 1,
                                       X509V3_ADD_DEFAULT) == 1;
        }
        ISSUING_DIST_POINT_free(idp);
        if (!ok) {
            return kErrCrypto;
        }
    }
    return kOk;
}

} // namespace

uint32_t RunCrl(const Args &args)
{
    UsePkcs11Module(args);
    const std::string *issuerCertPath = nullptr, *issuerKeyPath = nullptr;
    const std::string *thisUpdate = nullptr, *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "issuer-cert", &issuerCertPath);
    if (rc == kOk) rc = RequireOpt(args, "issuer-key", &issuerKeyPath);
    if (rc == kOk) rc = RequireOpt(args, "this-update", &thisUpdate);
    if (rc == kOk) rc = RequireOpt(args, "out", &outPath);
    if (rc != kOk) {
        return rc;
    }
    const std::string *nextUpdate = FindOpt(args, "next-update");
    if ((nextUpdate == nullptr) != HasFlag(args, "no-next-update")) {
        Fail("give either --next-update or --no-next-update");
        return kErrUsage;
    }
    const std::string *mdName = FindOpt(args, "md");
    const EVP_MD *md = DigestByName(mdName != nullptr ? *mdName : "sha256");
    if (md == nullptr) {
        return kErrUsage;
    }
    const std::string *version = FindOpt(args, "version");
    if (version != nullptr && *version != "1" && *version != "2") {
        Fail("--version must be 1 or 2");
        return kErrUsage;
    }
    X509Ptr issuer;
    PkeyPtr key;
    rc = LoadCert(*issuerCertPath, &issuer);
    if (rc == kOk) rc = LoadPrivateKey(*issuerKeyPath, &key);
    if (rc != kOk) {
        return rc;
    }
    CrlPtr crl(X509_CRL_new());
    if (!crl) {
        return kErrCrypto;
    }
    if ((version == nullptr || *version == "2") &&
        X509_CRL_set_version(crl.get(), X509_CRL_VERSION_2) != 1) {
        return kErrCrypto;
    }
    if (X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.get())) != 1) {
        return kErrCrypto;
    }
    rc = SetCrlTime(crl.get(), *thisUpdate, true);
    if (rc == kOk && nextUpdate != nullptr) rc = SetCrlTime(crl.get(), *nextUpdate, false);
    if (rc == kOk) rc = AddEntries(crl.get(), args);
    if (rc == kOk) rc = AddCrlExtensions(crl.get(), issuer.get(), args);
    if (rc == kOk) rc = AddConfExtensions(args, issuer.get(), nullptr, crl.get());
    if (rc == kOk && X509_CRL_sign(crl.get(), key.get(), md) <= 0) rc = kErrCrypto;
    Bytes der;
    if (rc == kOk) rc = CrlDer(crl.get(), &der);
    if (rc != kOk) {
        if (rc == kErrCrypto) {
            Fail("building the CRL failed");
        }
        ERR_clear_error();
        return rc;
    }
    if (HasFlag(args, "corrupt-signature")) {
        der.back() ^= 0x01; /* the signature value ends the CRL */
    }
    return WriteForm(*outPath, FindOpt(args, "form"), "X509 CRL", der);
}

/* ---- crlfile ---------------------------------------------------------- */

const Command kCrlCommand = {
    "crl",
    "--issuer-cert FILE --issuer-key FILE --this-update TIME (--next-update TIME | "
    "--no-next-update) [--revoke SERIAL:TIME[:REASON]]... [--indirect] [--ext NAME=VALUE]... --out FILE",
    "Makes an X.509 CRL signed with RSA PKCS#1 v1.5. Entries keep the order given.",
    kCrlOpts,
    sizeof(kCrlOpts) / sizeof(kCrlOpts[0]),
    RunCrl,
};

} // namespace forge
