// SPDX-License-Identifier: Apache-2.0
/* Certificate extensions forge makes: key usage, extended key usage, basic
 * constraints and key identifiers from their own options, and any further
 * extension of a certificate or CRL given as NAME=VALUE in libcrypto's
 * configuration syntax (name constraints, policies, distribution points,
 * delta CRL indicators, or raw DER under any identifier), so tests can
 * build paths a verifier must refuse. */
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

namespace {

std::vector<std::string> SplitList(const std::string &text)
{
    std::vector<std::string> items;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        if (comma == std::string::npos) {
            comma = text.size();
        }
        if (comma > start) {
            items.push_back(text.substr(start, comma - start));
        }
        start = comma + 1;
    }
    return items;
}

struct KeyUsageBit {
    const char *name;
    int bit;
};

constexpr KeyUsageBit kKeyUsageBits[] = {
    {"digitalSignature", 0}, {"nonRepudiation", 1}, {"contentCommitment", 1},
    {"keyEncipherment", 2},  {"dataEncipherment", 3}, {"keyAgreement", 4},
    {"keyCertSign", 5},      {"cRLSign", 6},          {"encipherOnly", 7},
    {"decipherOnly", 8},
};

struct EkuName {
    const char *name;
    const char *oid;
};

constexpr EkuName kEkuNames[] = {
    {"serverAuth", "1.3.6.1.5.5.7.3.1"},      {"clientAuth", "1.3.6.1.5.5.7.3.2"},
    {"codeSigning", "1.3.6.1.5.5.7.3.3"},     {"emailProtection", "1.3.6.1.5.5.7.3.4"},
    {"timeStamping", "1.3.6.1.5.5.7.3.8"},    {"OCSPSigning", "1.3.6.1.5.5.7.3.9"},
    {"anyExtendedKeyUsage", "2.5.29.37.0"},
};

} // namespace

uint32_t AddKeyUsage(X509 *cert, const std::string &list)
{
    ASN1_BIT_STRING *bits = ASN1_BIT_STRING_new();
    if (bits == nullptr) {
        return kErrCrypto;
    }
    uint32_t rc = kOk;
    for (const std::string &item : SplitList(list)) {
        int bit = -1;
        for (const KeyUsageBit &k : kKeyUsageBits) {
            if (item == k.name) {
                bit = k.bit;
            }
        }
        if (bit < 0) {
            Fail("unknown key usage '%s'", item.c_str());
            rc = kErrUsage;
            break;
        }
        if (ASN1_BIT_STRING_set_bit(bits, bit, 1) != 1) {
            rc = kErrCrypto;
            break;
        }
    }
    if (rc == kOk && X509_add1_ext_i2d(cert, NID_key_usage, bits, 1, X509V3_ADD_DEFAULT) != 1) {
        rc = kErrCrypto;
    }
    ASN1_BIT_STRING_free(bits);
    return rc;
}

uint32_t AddExtKeyUsage(X509 *cert, const std::string &list, bool critical)
{
    EXTENDED_KEY_USAGE *eku = sk_ASN1_OBJECT_new_null();
    if (eku == nullptr) {
        return kErrCrypto;
    }
    uint32_t rc = kOk;
    for (const std::string &item : SplitList(list)) {
        const char *oid = item.c_str();
        for (const EkuName &e : kEkuNames) {
            if (item == e.name) {
                oid = e.oid;
            }
        }
        ASN1_OBJECT *obj = OBJ_txt2obj(oid, 1);
        if (obj == nullptr || sk_ASN1_OBJECT_push(eku, obj) <= 0) {
            ASN1_OBJECT_free(obj);
            ERR_clear_error();
            Fail("unknown extended key usage '%s'", item.c_str());
            rc = kErrUsage;
            break;
        }
    }
    if (rc == kOk &&
        X509_add1_ext_i2d(cert, NID_ext_key_usage, eku, critical ? 1 : 0, X509V3_ADD_DEFAULT) != 1) {
        rc = kErrCrypto;
    }
    sk_ASN1_OBJECT_pop_free(eku, ASN1_OBJECT_free);
    return rc;
}

uint32_t AddBasicConstraints(X509 *cert, const std::string &ca, const std::string *pathLen)
{
    if (ca == "none") {
        return kOk;
    }
    if (ca != "yes" && ca != "no") {
        Fail("--ca must be yes, no or none");
        return kErrUsage;
    }
    BASIC_CONSTRAINTS *bc = BASIC_CONSTRAINTS_new();
    if (bc == nullptr) {
        return kErrCrypto;
    }
    bc->ca = ca == "yes" ? 0xFF : 0;
    uint32_t rc = kOk;
    if (pathLen != nullptr) {
        uint32_t n = 0;
        rc = ParseU32(*pathLen, &n);
        if (rc == kOk) {
            bc->pathlen = ASN1_INTEGER_new();
            if (bc->pathlen == nullptr || ASN1_INTEGER_set_uint64(bc->pathlen, n) != 1) {
                rc = kErrCrypto;
            }
        }
    }
    if (rc == kOk &&
        X509_add1_ext_i2d(cert, NID_basic_constraints, bc, ca == "yes" ? 1 : 0,
                          X509V3_ADD_DEFAULT) != 1) {
        rc = kErrCrypto;
    }
    BASIC_CONSTRAINTS_free(bc);
    return rc;
}

namespace {

/* SHA-1 of the public key bits, the usual key identifier. */
uint32_t KeyId(X509 *cert, ASN1_OCTET_STRING **out)
{
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (X509_pubkey_digest(cert, EVP_sha1(), md, &len) != 1) {
        return kErrCrypto;
    }
    *out = ASN1_OCTET_STRING_new();
    if (*out == nullptr || ASN1_OCTET_STRING_set(*out, md, static_cast<int>(len)) != 1) {
        ASN1_OCTET_STRING_free(*out);
        *out = nullptr;
        return kErrCrypto;
    }
    return kOk;
}

} // namespace

uint32_t AddKeyIds(X509 *cert, X509 *issuer)
{
    ASN1_OCTET_STRING *ski = nullptr;
    uint32_t rc = KeyId(cert, &ski);
    if (rc != kOk) {
        return rc;
    }
    if (X509_add1_ext_i2d(cert, NID_subject_key_identifier, ski, 0, X509V3_ADD_DEFAULT) != 1) {
        rc = kErrCrypto;
    }
    ASN1_OCTET_STRING_free(ski);
    if (rc != kOk || issuer == cert) {
        return rc; /* a self-signed certificate names no other authority */
    }
    AUTHORITY_KEYID *akid = AUTHORITY_KEYID_new();
    if (akid == nullptr) {
        return kErrCrypto;
    }
    rc = KeyId(issuer, &akid->keyid);
    if (rc == kOk &&
        X509_add1_ext_i2d(cert, NID_authority_key_identifier, akid, 0, X509V3_ADD_DEFAULT) != 1) {
        rc = kErrCrypto;
    }
    AUTHORITY_KEYID_free(akid);
    return rc;
}

uint32_t AddConfExtensions(const Args &args, X509 *issuer, X509 *cert, X509_CRL *crl)
{
    for (const std::string &option : FindAllOpts(args, "ext")) {
        const size_t eq = option.find('=');
        if (eq == std::string::npos || eq == 0 || eq + 1 == option.size()) {
            Fail("--ext wants NAME=VALUE, not '%s'", option.c_str());
            return kErrUsage;
        }
        const std::string name = option.substr(0, eq);
        const std::string value = option.substr(eq + 1);
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, issuer, cert, nullptr, crl, 0);
        X509_EXTENSION *ext = X509V3_EXT_nconf(nullptr, &ctx, name.c_str(), value.c_str());
        if (ext == nullptr) {
            ERR_clear_error();
            Fail("--ext '%s': libcrypto cannot make that extension", option.c_str());
            return kErrUsage;
        }
        const int added = cert != nullptr ? X509_add_ext(cert, ext, -1) : X509_CRL_add_ext(crl, ext, -1);
        X509_EXTENSION_free(ext);
        if (added != 1) {
            return kErrCrypto;
        }
    }
    return kOk;
}

} // namespace forge
