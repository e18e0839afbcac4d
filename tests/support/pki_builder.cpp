// SPDX-License-Identifier: Apache-2.0
#include "support/pki_builder.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <map>
#include <sstream>

namespace testpki {

EVP_PKEY *SharedKey(int bits, int index)
{
    static std::map<std::pair<int, int>, Key> keys;
    auto &slot = keys[{bits, index}];
    if (!slot) {
        slot.reset(EVP_RSA_gen(static_cast<unsigned>(bits)));
    }
    return slot.get();
}

void PublicParts(EVP_PKEY *key, VexaBigInt *e, VexaBigInt *n)
{
    for (auto part : {std::make_pair(OSSL_PKEY_PARAM_RSA_E, e), std::make_pair(OSSL_PKEY_PARAM_RSA_N, n)}) {
        BIGNUM *bn = nullptr;
        EXPECT_EQ(EVP_PKEY_get_bn_param(key, part.first, &bn), 1);
        part.second->len = static_cast<uint32_t>(BN_bn2bin(bn, part.second->bytes));
        BN_free(bn);
    }
}

Bytes SignData(EVP_PKEY *key, const EVP_MD *md, const Bytes &data)
{
    Bytes sig(static_cast<size_t>(EVP_PKEY_get_size(key)));
    size_t len = sig.size();
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    EXPECT_EQ(EVP_DigestSignInit(ctx, nullptr, md, nullptr, key), 1);
    EXPECT_EQ(EVP_DigestSign(ctx, sig.data(), &len, data.data(), data.size()), 1);
    EVP_MD_CTX_free(ctx);
    sig.resize(len);
    return sig;
}

namespace {

/* "C=XX,O=Org,CN=A+OU=B": commas separate RDNs, "+" adds an attribute to
 * the same RDN, and a type written "CN/P" is encoded as PrintableString
 * instead of UTF8String. */
X509_NAME *ParseName(const std::string &text)
{
    X509_NAME *name = X509_NAME_new();
    std::istringstream rdns(text);
    std::string rdn;
    while (std::getline(rdns, rdn, ',')) {
        std::istringstream attrs(rdn);
        std::string attr;
        for (int set = 0; std::getline(attrs, attr, '+'); set = -1) {
            const size_t eq = attr.find('=');
            std::string type = attr.substr(0, eq);
            const bool printable = type.size() > 2 && type.compare(type.size() - 2, 2, "/P") == 0;
            type.resize(printable ? type.size() - 2 : type.size());
            X509_NAME_add_entry_by_txt(name, type.c_str(), printable ? V_ASN1_PRINTABLESTRING : V_ASN1_UTF8STRING,
                                       reinterpret_cast<const unsigned char *>(attr.c_str() + eq + 1), -1, -1, set);
        }
    }
    return name;
}

/* Sets a time through libcrypto's setter: UTCTime up to 2049, GeneralizedTime after. */
template <class T, class F>
void SetTime(T *obj, F set, int64_t t)
{
    /* from day and second offsets, so a 32-bit time_t still reaches past 2038 */
    ASN1_TIME *time = ASN1_TIME_adj(nullptr, 0, static_cast<int>(t / 86400), static_cast<long>(t % 86400));
    set(obj, time);
    ASN1_TIME_free(time);
}

template <class T, class F>
Bytes ToDer(T *obj, F i2d)
{
    unsigned char *p = nullptr;
    const int n = i2d(obj, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    return out;
}

/* Decodes a copy of `bytes` that `der` keeps alive and remembers the record in `recs`. */
template <class T>
T *Decode(std::deque<Bytes> &der, std::vector<T *> &recs, const Bytes &bytes,
          uint32_t (*decode)(const uint8_t *, uint32_t, T **, uint32_t *))
{
    der.push_back(bytes);
    T *rec = nullptr;
    uint32_t used = 0;
    EXPECT_EQ(decode(der.back().data(), static_cast<uint32_t>(der.back().size()), &rec, &used), 0u);
    recs.push_back(rec);
    return rec;
}

} // namespace

Cert MakeCert(const CertSpec &def)
{
    X509 *cert = X509_new();
    X509_set_version(cert, def.version);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), def.serial);
    X509_NAME *subject = ParseName(def.subject);
    X509_set_subject_name(cert, subject);
    X509_set_issuer_name(cert, def.issuer ? X509_get_subject_name(def.issuer) : subject);
    X509_NAME_free(subject);
    SetTime(cert, X509_set1_notBefore, def.notBefore);
    SetTime(cert, X509_set1_notAfter, def.notAfter);
    EVP_PKEY *key = def.key ? def.key : SharedKey(2048);
    X509_set_pubkey(cert, key);
    /* every extension as libcrypto's config text, the named ones first */
    std::vector<std::pair<std::string, std::string>> extensions;
    if (def.ca >= 0) {
        extensions.push_back({"basicConstraints", def.ca ? "critical,CA:TRUE" : "critical,CA:FALSE"});
    }
    if (!def.keyUsage.empty()) {
        extensions.push_back({"keyUsage", "critical," + def.keyUsage});
    }
    extensions.insert(extensions.end(), def.extensions.begin(), def.extensions.end());
    for (const auto &e : extensions) {
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, def.issuer ? def.issuer : cert, cert, nullptr, nullptr, 0);
        X509_EXTENSION *ext = X509V3_EXT_nconf(nullptr, &ctx, e.first.c_str(), e.second.c_str());
        EXPECT_NE(ext, nullptr) << e.first << " " << e.second;
        X509_add_ext(cert, ext, -1);
        X509_EXTENSION_free(ext);
    }
    X509_sign(cert, def.issuerKey ? def.issuerKey : key, EVP_sha256());
    return Cert(cert);
}

Crl MakeCrl(const CrlSpec &def)
{
    X509_CRL *crl = X509_CRL_new();
    X509_CRL_set_version(crl, 1);
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(def.issuer));
    SetTime(crl, X509_CRL_set1_lastUpdate, def.thisUpdate);
    if (def.nextUpdate != 0) {
        SetTime(crl, X509_CRL_set1_nextUpdate, def.nextUpdate);
    }
    for (const auto &r : def.revoked) {
        X509_REVOKED *rev = X509_REVOKED_new();
        ASN1_INTEGER *serial = ASN1_INTEGER_new();
        ASN1_INTEGER_set(serial, r.serial);
        X509_REVOKED_set_serialNumber(rev, serial);
        ASN1_INTEGER_free(serial);
        SetTime(rev, X509_REVOKED_set_revocationDate, r.date);
        if (r.reason >= 0) {
            ASN1_ENUMERATED *reason = ASN1_ENUMERATED_new();
            ASN1_ENUMERATED_set(reason, r.reason);
            X509_REVOKED_add1_ext_i2d(rev, NID_crl_reason, reason, 0, 0);
            ASN1_ENUMERATED_free(reason);
        }
        if (r.criticalOid != nullptr) {
            ASN1_OBJECT *type = OBJ_txt2obj(r.criticalOid, 1);
            ASN1_OCTET_STRING *value = ASN1_OCTET_STRING_new();
            ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char *>("\x05\x00"), 2);
            X509_EXTENSION *ext = X509_EXTENSION_create_by_OBJ(nullptr, type, 1, value);
            X509_REVOKED_add_ext(rev, ext, -1);
            X509_EXTENSION_free(ext);
            ASN1_OCTET_STRING_free(value);
            ASN1_OBJECT_free(type);
        }
        X509_CRL_add0_revoked(crl, rev);
    }
    if (def.indirect) {
        ISSUING_DIST_POINT *idp = ISSUING_DIST_POINT_new();
        idp->indirectCRL = 0xFF; /* DER TRUE; OpenSSL writes the int as given */
        idp->onlyuser = def.onlyUserCerts ? 0xFF : 0;
        X509_CRL_add1_ext_i2d(crl, NID_issuing_distribution_point, idp, 1, 0);
        ISSUING_DIST_POINT_free(idp);
    }
    for (const auto &e : def.extensions) {
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, def.issuer, nullptr, nullptr, crl, 0);
        X509_EXTENSION *ext = X509V3_EXT_nconf(nullptr, &ctx, e.first.c_str(), e.second.c_str());
        EXPECT_NE(ext, nullptr) << e.first << " " << e.second;
        X509_CRL_add_ext(crl, ext, -1);
        X509_EXTENSION_free(ext);
    }
    X509_CRL_sort(crl);
    X509_CRL_sign(crl, def.issuerKey, EVP_sha256());
    return Crl(crl);
}

Bytes Der(X509 *cert) { return ToDer(cert, i2d_X509); }
Bytes Der(X509_CRL *crl) { return ToDer(crl, i2d_X509_CRL); }
VexaX509Cert *Decoded::Cert(const Bytes &bytes) { return Decode(der, certs, bytes, VexaX509DecodeCert); }
VexaX509Crl *Decoded::Crl(const Bytes &bytes) { return Decode(der, crls, bytes, VexaX509DecodeCrl); }

void Decoded::Clear()
{
    for (VexaX509Cert *c : certs) {
        VexaX509FreeCert(c);
    }
    for (VexaX509Crl *c : crls) {
        VexaX509FreeCrl(c);
    }
    certs.clear();
    crls.clear();
    der.clear();
}

} // namespace testpki
