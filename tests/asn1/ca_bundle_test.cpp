/* Certificates no one here wrote: every certificate of the machine's CA
 * bundle is decoded and compared field by field with what libcrypto's own
 * X509 parser reports for the same bytes. */
#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <stdio.h>
#include <string.h>
#include <time.h>

#include <map>
#include <string>
#include <vector>

#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char kBundle[] = "/etc/ssl/certs/ca-certificates.crt";

Bytes View(const VexaAsnOcts &v)
{
    return v.data == nullptr ? Bytes() : Bytes(v.data, v.data + v.len);
}

/* The decoder's serial rule: the INTEGER's content octets with one leading
 * zero octet dropped. */
Bytes OracleSerial(X509 *x)
{
    unsigned char *der = nullptr;
    const int n = i2d_ASN1_INTEGER(X509_get0_serialNumber(x), &der);
    Bytes content;
    if (n > 2) {
        /* short-form length for serials up to 127 octets */
        const size_t header = (der[1] & 0x80) != 0 ? 2 + (der[1] & 0x7F) : 2;
        content.assign(der + header, der + n);
    }
    OPENSSL_free(der);
    if (!content.empty() && content[0] == 0x00) {
        content.erase(content.begin());
    }
    return content;
}

std::string Hex(const Bytes &b)
{
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (uint8_t v : b) {
        s += digits[v >> 4];
        s += digits[v & 15];
    }
    return s;
}

/* RDN by RDN, attribute by attribute: type octets, string tag and value
 * octets must all agree. Empty when they do. */
std::string CompareName(const X509_NAME *oracle, const VexaX509Name &name)
{
    const int entries = X509_NAME_entry_count(oracle);
    std::vector<std::vector<const X509_NAME_ENTRY *>> rdns;
    for (int i = 0; i < entries; i++) {
        const X509_NAME_ENTRY *e = X509_NAME_get_entry(oracle, i);
        const size_t set = static_cast<size_t>(X509_NAME_ENTRY_set(e));
        if (rdns.size() <= set) {
            rdns.resize(set + 1);
        }
        rdns[set].push_back(e);
    }
    if (rdns.size() != name.count) {
        return "RDN count " + std::to_string(name.count) + " vs " + std::to_string(rdns.size());
    }
    for (size_t r = 0; r < rdns.size(); r++) {
        if (rdns[r].size() != name.rdns[r].count) {
            return "attribute count of RDN " + std::to_string(r);
        }
        for (size_t a = 0; a < rdns[r].size(); a++) {
            const VexaX509AttrTypeAndValue &mine = name.rdns[r].attrs[a];
            const ASN1_OBJECT *type = X509_NAME_ENTRY_get_object(rdns[r][a]);
            const Bytes typeOctets(OBJ_get0_data(type), OBJ_get0_data(type) + OBJ_length(type));
            const ASN1_STRING *value = X509_NAME_ENTRY_get_data(rdns[r][a]);
            const Bytes valueOctets(ASN1_STRING_get0_data(value),
                                    ASN1_STRING_get0_data(value) + ASN1_STRING_length(value));
            if (View(mine.type) != typeOctets || mine.type.tagNumber != 6) {
                return "type of RDN " + std::to_string(r);
            }
            if (View(mine.value) != valueOctets || static_cast<int>(mine.value.tagNumber) != ASN1_STRING_type(value)) {
                return "value of RDN " + std::to_string(r);
            }
        }
    }
    return "";
}

bool OracleEpoch(const ASN1_TIME *t, int64_t *out)
{
    struct tm tm {};
    if (ASN1_TIME_to_tm(t, &tm) != 1) {
        return false;
    }
    *out = static_cast<int64_t>(timegm(&tm));
    return true;
}

Bytes KeyPart(EVP_PKEY *key, const char *param)
{
    BIGNUM *bn = nullptr;
    if (EVP_PKEY_get_bn_param(key, param, &bn) != 1) {
        return {};
    }
    Bytes out(static_cast<size_t>(BN_num_bytes(bn)));
    BN_bn2bin(bn, out.data());
    BN_free(bn);
    return out;
}

/* Differences between the decoded record and the oracle; empty when none. */
std::string Compare(X509 *x, const VexaX509Cert &cert)
{
    const VexaX509TbsCert &tbs = cert.tbsCertificate;
    if (View(tbs.serialNumber) != OracleSerial(x)) {
        return "serial " + Hex(View(tbs.serialNumber)) + " vs " + Hex(OracleSerial(x));
    }
    std::string diff = CompareName(X509_get_issuer_name(x), tbs.issuer);
    if (!diff.empty()) {
        return "issuer: " + diff;
    }
    diff = CompareName(X509_get_subject_name(x), tbs.subject);
    if (!diff.empty()) {
        return "subject: " + diff;
    }
    const struct {
        const char *name;
        const VexaAsnOcts *mine;
        const ASN1_TIME *oracle;
    } times[] = {{"notBefore", &tbs.validity.notBefore, X509_get0_notBefore(x)},
                 {"notAfter", &tbs.validity.notAfter, X509_get0_notAfter(x)}};
    for (const auto &t : times) {
        int64_t mine = 0;
        int64_t oracle = 0;
        if (VexaAsnTimeToEpoch(t.mine, &mine) != VEXA_OK || !OracleEpoch(t.oracle, &oracle) || mine != oracle) {
            return std::string(t.name) + " " + std::to_string(mine) + " vs " + std::to_string(oracle);
        }
    }
    EVP_PKEY *key = X509_get0_pubkey(x);
    const VexaRsaPubKey &rsa = tbs.subjectPublicKeyInfo.subjectPublicKey;
    if (View(rsa.modulus) != KeyPart(key, OSSL_PKEY_PARAM_RSA_N)) {
        return "modulus";
    }
    if (View(rsa.publicExponent) != KeyPart(key, OSSL_PKEY_PARAM_RSA_E)) {
        return "exponent";
    }
    return "";
}

bool IsRsa(X509 *x)
{
    EVP_PKEY *key = X509_get0_pubkey(x);
    return key != nullptr && (EVP_PKEY_is_a(key, "RSA") || EVP_PKEY_is_a(key, "RSA-PSS"));
}

/* Why the decoder may refuse a certificate: a key that is no RSAPublicKey,
 * no version field, or a name past 10 RDNs of 10 attributes. */
std::string RefusalReason(X509 *x)
{
    if (!IsRsa(x)) {
        return "non-RSA key";
    }
    if (X509_get_version(x) == X509_VERSION_1) {
        return "version 1";
    }
    for (const X509_NAME *name : {X509_get_subject_name(x), X509_get_issuer_name(x)}) {
        const int n = X509_NAME_entry_count(name);
        if (n > 0 && X509_NAME_ENTRY_set(X509_NAME_get_entry(name, n - 1)) >= VEXA_X509_NAME_MAX_RDNS) {
            return "name over capacity";
        }
    }
    return "";
}

TEST(CaBundle, EveryRsaCertificateMatchesLibcrypto)
{
    BIO *in = BIO_new_file(kBundle, "r");
    ASSERT_NE(in, nullptr) << kBundle << " missing: install Debian's ca-certificates";
    int total = 0;
    int decoded = 0;
    int matched = 0;
    int refused = 0;
    std::map<std::string, int> reasons;
    for (;;) {
        char *pemName = nullptr;
        char *header = nullptr;
        unsigned char *data = nullptr;
        long len = 0;
        if (PEM_read_bio(in, &pemName, &header, &data, &len) != 1) {
            break;
        }
        const bool isCert = strcmp(pemName, "CERTIFICATE") == 0;
        OPENSSL_free(pemName);
        OPENSSL_free(header);
        if (!isCert) {
            OPENSSL_free(data);
            continue;
        }
        total++;
        const unsigned char *p = data;
        X509 *oracle = d2i_X509(nullptr, &p, len);
        VexaX509Cert *cert = nullptr;
        uint32_t consumed = 0;
        const uint32_t code = VexaX509DecodeCert(data, static_cast<uint32_t>(len), &cert, &consumed);
        const std::string label = "certificate " + std::to_string(total);
        if (oracle == nullptr) {
            ADD_FAILURE() << label << ": libcrypto cannot parse it";
        } else if (code == VEXA_OK) {
            decoded++;
            EXPECT_EQ(consumed, static_cast<uint32_t>(len)) << label;
            EXPECT_TRUE(IsRsa(oracle)) << label << ": only RSA keys decode";
            const std::string diff = Compare(oracle, *cert);
            EXPECT_EQ(diff, "") << label;
            matched += diff.empty() ? 1 : 0;
        } else {
            refused++;
            reasons[RefusalReason(oracle)]++;
            EXPECT_EQ(cert, nullptr) << label;
            EXPECT_NE(RefusalReason(oracle), "") << label << " refused with 0x" << std::hex << code
                                                 << " for no reason the decoder's rules give";
        }
        VexaX509FreeCert(cert);
        X509_free(oracle);
        OPENSSL_free(data);
    }
    BIO_free(in);
    std::string why;
    for (const auto &r : reasons) {
        why += (why.empty() ? "" : ", ") + r.first + ": " + std::to_string(r.second);
    }
    printf("CA bundle: %d certificates, %d decoded, %d matched libcrypto, %d refused (%s)\n", total, decoded, matched,
           refused, why.c_str());
    EXPECT_GT(total, 50);
    EXPECT_GT(decoded, 0);
    EXPECT_EQ(matched, decoded);
    EXPECT_EQ(decoded + refused, total);
}

} // namespace
