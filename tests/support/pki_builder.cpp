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
        int set = 0;
        while (std::getline(attrs, attr, '+')) {
            size_t eq = attr.find('=');
            std::string type = attr.substr(0, eq);
            int strType = V_ASN1_UTF8STRING;
            if (type.size() > 2 && type.compare(type.size() - 2, 2, "/P") == 0) {
                type.resize(type.size() - 2);
                strType = V_ASN1_PRINTABLESTRING;
            }
            X509_NAME_add_entry_by_txt(name, type.c_str(), strType,
                                       reinterpret_cast<const unsigned char *>(attr.c_str() + eq + 1), -1, -1, set);
            set = -1;
        }
    }
    return name;
}

ASN1_TIME *Time(int64_t t, bool generalized)
{
    ASN1_TIME *at = ASN1_TIME_new();
    if (generalized) {
        ASN1_GENERALIZEDTIME_set(at, static_cast<time_t>(t));
    } else {
        ASN1_TIME_set(at, static_cast<time_t>(t));
    }
    return at;
}

void AddExt(X509 *cert, X509 *issuer, int nid, const std::string &value)
{
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION *ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

} // namespace

Cert MakeCert(const CertSpec &def)
{
    X509 *cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), def.serial);
    X509_NAME *subject = ParseName(def.subject);
    X509_set_subject_name(cert, subject);
    X509_set_issuer_name(cert, def.issuer ? X509_get_subject_name(def.issuer) : subject);
    X509_NAME_free(subject);
    ASN1_TIME *nb = Time(def.notBefore, def.generalizedTime);
    ASN1_TIME *na = Time(def.notAfter, def.generalizedTime);
    X509_set1_notBefore(cert, nb);
    X509_set1_notAfter(cert, na);
    ASN1_TIME_free(nb);
    ASN1_TIME_free(na);
    EVP_PKEY *key = def.key ? def.key : SharedKey(2048);
    X509_set_pubkey(cert, key);
    X509 *issuer = def.issuer ? def.issuer : cert;
    if (def.ca >= 0) {
        AddExt(cert, issuer, NID_basic_constraints, def.ca ? "critical,CA:TRUE" : "critical,CA:FALSE");
    }
    if (def.keyUsage >= 0) {
        static const struct {
            int bit;
            const char *name;
        } kBits[] = {{KU_DIGITAL_SIGNATURE, "digitalSignature"}, {KU_NON_REPUDIATION, "nonRepudiation"},
                     {KU_KEY_ENCIPHERMENT, "keyEncipherment"},   {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
                     {KU_KEY_AGREEMENT, "keyAgreement"},         {KU_KEY_CERT_SIGN, "keyCertSign"},
                     {KU_CRL_SIGN, "cRLSign"}};
        std::string value = "critical";
        for (const auto &b : kBits) {
            if (def.keyUsage & b.bit) {
                value += std::string(",") + b.name;
            }
        }
        if (value != "critical") {
            AddExt(cert, issuer, NID_key_usage, value);
        }
    }
    if (!def.extKeyUsage.empty()) {
        std::string value;
        for (int nid : def.extKeyUsage) {
            value += (value.empty() ? "" : ",") + std::string(OBJ_nid2sn(nid));
        }
        AddExt(cert, issuer, NID_ext_key_usage, value);
    }
    X509_sign(cert, def.issuerKey ? def.issuerKey : key, def.md ? def.md : EVP_sha256());
    return Cert(cert);
}

Crl MakeCrl(const CrlSpec &def)
{
    X509_CRL *crl = X509_CRL_new();
    X509_CRL_set_version(crl, 1);
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(def.issuer));
    ASN1_TIME *tu = Time(def.thisUpdate, false);
    X509_CRL_set1_lastUpdate(crl, tu);
    ASN1_TIME_free(tu);
    if (def.nextUpdate != 0) {
        ASN1_TIME *nu = Time(def.nextUpdate, false);
        X509_CRL_set1_nextUpdate(crl, nu);
        ASN1_TIME_free(nu);
    }
    for (const auto &r : def.revoked) {
        X509_REVOKED *rev = X509_REVOKED_new();
        ASN1_INTEGER *serial = ASN1_INTEGER_new();
        ASN1_INTEGER_set(serial, r.serial);
        X509_REVOKED_set_serialNumber(rev, serial);
        ASN1_INTEGER_free(serial);
        ASN1_TIME *rd = Time(r.date, false);
        X509_REVOKED_set_revocationDate(rev, rd);
        ASN1_TIME_free(rd);
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
        X509_CRL_add1_ext_i2d(crl, NID_issuing_distribution_point, idp, 1, 0);
        ISSUING_DIST_POINT_free(idp);
    }
    X509_CRL_sort(crl);
    X509_CRL_sign(crl, def.issuerKey, def.md ? def.md : EVP_sha256());
    return Crl(crl);
}

Bytes Der(X509 *cert)
{
    unsigned char *p = nullptr;
    int n = i2d_X509(cert, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    return out;
}

Bytes Der(X509_CRL *crl)
{
    unsigned char *p = nullptr;
    int n = i2d_X509_CRL(crl, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    return out;
}

namespace {

template <typename T, typename F>
std::string ToPem(T *obj, F write)
{
    BIO *bio = BIO_new(BIO_s_mem());
    write(bio, obj);
    char *data = nullptr;
    long n = BIO_get_mem_data(bio, &data);
    std::string out(data, static_cast<size_t>(n));
    BIO_free(bio);
    return out;
}

} // namespace

std::string Pem(X509 *cert)
{
    return ToPem(cert, PEM_write_bio_X509);
}

std::string Pem(X509_CRL *crl)
{
    return ToPem(crl, PEM_write_bio_X509_CRL);
}

} // namespace testpki
