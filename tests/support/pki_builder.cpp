// SPDX-License-Identifier: Apache-2.0
#include "support/pki_builder.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
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

/* UTCTime up to 2049, GeneralizedTime from 2050 or when forced. */
ASN1_TIME *Time(int64_t t, bool generalized)
{
    return generalized ? ASN1_GENERALIZEDTIME_set(nullptr, static_cast<time_t>(t))
                       : ASN1_TIME_set(nullptr, static_cast<time_t>(t));
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

template <class T, class F>
std::string ToPem(T *obj, F write)
{
    BIO *bio = BIO_new(BIO_s_mem());
    write(bio, obj);
    char *data = nullptr;
    const long n = BIO_get_mem_data(bio, &data);
    std::string out(data, static_cast<size_t>(n));
    BIO_free(bio);
    return out;
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
    for (const bool notAfter : {false, true}) {
        ASN1_TIME *t = Time(notAfter ? def.notAfter : def.notBefore, def.generalizedTime);
        (notAfter ? X509_set1_notAfter : X509_set1_notBefore)(cert, t);
        ASN1_TIME_free(t);
    }
    EVP_PKEY *key = def.key ? def.key : SharedKey(2048);
    X509_set_pubkey(cert, key);
    /* every extension as libcrypto's config text, the named ones first */
    std::vector<std::pair<std::string, std::string>> extensions;
    if (def.ca >= 0) {
        extensions.push_back({"basicConstraints", def.ca ? "critical,CA:TRUE" : "critical,CA:FALSE"});
    }
    if (def.keyUsage > 0) {
        static const std::pair<int, const char *> kBits[] = {
            {KU_DIGITAL_SIGNATURE, "digitalSignature"}, {KU_NON_REPUDIATION, "nonRepudiation"},
            {KU_KEY_ENCIPHERMENT, "keyEncipherment"},   {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
            {KU_KEY_AGREEMENT, "keyAgreement"},         {KU_KEY_CERT_SIGN, "keyCertSign"},
            {KU_CRL_SIGN, "cRLSign"}};
        std::string value = "critical";
        for (const auto &b : kBits) {
            value += (def.keyUsage & b.first) != 0 ? std::string(",") + b.second : "";
        }
        extensions.push_back({"keyUsage", value});
    }
    if (!def.extKeyUsage.empty()) {
        std::string value;
        for (int nid : def.extKeyUsage) {
            value += (value.empty() ? "" : ",") + std::string(OBJ_nid2sn(nid));
        }
        extensions.push_back({"extendedKeyUsage", value});
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
    X509_sign(cert, def.issuerKey ? def.issuerKey : key, def.md ? def.md : EVP_sha256());
    return Cert(cert);
}

Crl MakeCrl(const CrlSpec &def)
{
    X509_CRL *crl = X509_CRL_new();
    X509_CRL_set_version(crl, 1);
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(def.issuer));
    for (const bool next : {false, true}) {
        if (!next || def.nextUpdate != 0) {
            ASN1_TIME *t = Time(next ? def.nextUpdate : def.thisUpdate, false);
            (next ? X509_CRL_set1_nextUpdate : X509_CRL_set1_lastUpdate)(crl, t);
            ASN1_TIME_free(t);
        }
    }
    for (const auto &r : def.revoked) {
        X509_REVOKED *rev = X509_REVOKED_new();
        ASN1_INTEGER *serial = ASN1_INTEGER_new();
        ASN1_INTEGER_set(serial, r.serial);
        X509_REVOKED_set_serialNumber(rev, serial);
        ASN1_INTEGER_free(serial);
        ASN1_TIME *t = Time(r.date, false);
        X509_REVOKED_set_revocationDate(rev, t);
        ASN1_TIME_free(t);
        if (r.reason >= 0) {
            ASN1_ENUMERATED *reason = ASN1_ENUMERATED_new();
            ASN1_ENUMERATED_set(reason, r.reason);
            X509_REVOKED_add1_ext_i2d(rev, NID_crl_reason, reason, 0, 0);
            ASN1_ENUMERATED_free(reason);
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
    X509_CRL_sort(crl);
    X509_CRL_sign(crl, def.issuerKey, def.md ? def.md : EVP_sha256());
    return Crl(crl);
}

Bytes Der(X509 *cert)
{
    return ToDer(cert, i2d_X509);
}

Bytes Der(X509_CRL *crl)
{
    return ToDer(crl, i2d_X509_CRL);
}

std::string Pem(X509 *cert)
{
    return ToPem(cert, PEM_write_bio_X509);
}

std::string Pem(X509_CRL *crl)
{
    return ToPem(crl, PEM_write_bio_X509_CRL);
}

VexaX509Cert *Decoded::Cert(const Bytes &bytes)
{
    der.push_back(bytes);
    VexaX509Cert *c = nullptr;
    uint32_t used = 0;
    EXPECT_EQ(VexaX509DecodeCert(der.back().data(), static_cast<uint32_t>(der.back().size()), &c, &used), 0u);
    certs.push_back(c);
    return c;
}

VexaX509Crl *Decoded::Crl(const Bytes &bytes)
{
    der.push_back(bytes);
    VexaX509Crl *c = nullptr;
    uint32_t used = 0;
    EXPECT_EQ(VexaX509DecodeCrl(der.back().data(), static_cast<uint32_t>(der.back().size()), &c, &used), 0u);
    crls.push_back(c);
    return c;
}

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
