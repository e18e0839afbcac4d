// SPDX-License-Identifier: Apache-2.0
/* forge inspect's descriptions of what an image carries: certificates with
 * their usages, time-stamp tokens, the CRL block, and the findings on
 * encodings checktool does not take. Every time is ISO 8601 UTC. */
#include <string.h>
#include <time.h>

#include <algorithm>

#include <openssl/bio.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509v3.h>

#include "image_layout.h"
#include "inspect.h"

namespace forge {

namespace {

constexpr size_t kGenTimeWholeSeconds = 15;

std::string BioText(void (*print)(BIO *, const void *), const void *what)
{
    BIO *bio = BIO_new(BIO_s_mem());
    if (bio == nullptr) {
        return "";
    }
    print(bio, what);
    char *data = nullptr;
    const long len = BIO_get_mem_data(bio, &data);
    std::string text(data != nullptr && len > 0 ? std::string(data, static_cast<size_t>(len)) : "");
    BIO_free(bio);
    return text;
}

} // namespace

std::string NameText(const X509_NAME *name)
{
    return BioText([](BIO *b, const void *n) {
        X509_NAME_print_ex(b, static_cast<const X509_NAME *>(n), 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    }, name);
}

std::string IsoTime(const ASN1_TIME *t)
{
    struct tm tm {};
    if (t == nullptr || ASN1_TIME_to_tm(t, &tm) != 1) {
        return "";
    }
    char buf[32];
    strftime(buf, sizeof(buf), "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

std::string IntegerHex(const ASN1_INTEGER *i)
{
    BIGNUM *bn = i != nullptr ? ASN1_INTEGER_to_BN(i, nullptr) : nullptr;
    char *hex = bn != nullptr ? BN_bn2hex(bn) : nullptr;
    std::string text = hex != nullptr ? std::string("0x") + hex : "";
    OPENSSL_free(hex);
    BN_free(bn);
    return text;
}

std::string ObjName(const ASN1_OBJECT *obj)
{
    char buf[128];
    OBJ_obj2txt(buf, sizeof(buf), obj, 0);
    return buf;
}

void AddFinding(Json *report, uint64_t offset, const std::string &what, const std::string &advice)
{
    Json f = {{"offset", offset}, {"encoding", what}};
    if (!advice.empty()) {
        f["advice"] = advice;
    }
    (*report)["refusedEncodings"].push_back(f);
}

size_t Find(const Bytes &haystack, const Bytes &needle)
{
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end());
    return it == haystack.end() ? 0 : static_cast<size_t>(it - haystack.begin());
}

Json CertReport(X509 *cert, uint64_t offset, Json *report)
{
    static const struct {
        uint32_t bit;
        const char *name;
    } kUsages[] = {{KU_DIGITAL_SIGNATURE, "digitalSignature"}, {KU_NON_REPUDIATION, "nonRepudiation"},
                   {KU_KEY_ENCIPHERMENT, "keyEncipherment"},   {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
                   {KU_KEY_AGREEMENT, "keyAgreement"},         {KU_KEY_CERT_SIGN, "keyCertSign"},
                   {KU_CRL_SIGN, "cRLSign"},                   {KU_ENCIPHER_ONLY, "encipherOnly"},
                   {KU_DECIPHER_ONLY, "decipherOnly"}};
    Json c = {{"offset", offset},
              {"subject", NameText(X509_get_subject_name(cert))},
              {"issuer", NameText(X509_get_issuer_name(cert))},
              {"serial", IntegerHex(X509_get0_serialNumber(cert))},
              {"notBefore", IsoTime(X509_get0_notBefore(cert))},
              {"notAfter", IsoTime(X509_get0_notAfter(cert))},
              {"ca", (X509_get_extension_flags(cert) & EXFLAG_CA) != 0},
              {"keyBits", EVP_PKEY_get_bits(X509_get0_pubkey(cert))}};
    const long pathLen = X509_get_pathlen(cert);
    if (pathLen >= 0) {
        c["pathLen"] = pathLen;
    }
    Json usages = Json::array();
    const uint32_t ku = X509_get_key_usage(cert);
    if (ku != UINT32_MAX) {
        for (const auto &u : kUsages) {
            if ((ku & u.bit) != 0) {
                usages.push_back(u.name);
            }
        }
    }
    c["keyUsage"] = usages;
    Json ekus = Json::array();
    EXTENDED_KEY_USAGE *eku = static_cast<EXTENDED_KEY_USAGE *>(X509_get_ext_d2i(cert, NID_ext_key_usage, nullptr, nullptr));
    bool codeSigningLater = false;
    for (int i = 0; i < sk_ASN1_OBJECT_num(eku); i++) {
        const ASN1_OBJECT *purpose = sk_ASN1_OBJECT_value(eku, i);
        const char *sn = OBJ_nid2sn(OBJ_obj2nid(purpose));
        ekus.push_back(OBJ_obj2nid(purpose) != NID_undef ? sn : ObjName(purpose));
        codeSigningLater = codeSigningLater || (i > 0 && OBJ_obj2nid(purpose) == NID_code_sign);
    }
    sk_ASN1_OBJECT_pop_free(eku, ASN1_OBJECT_free);
    c["extendedKeyUsage"] = ekus;
    if (codeSigningLater) {
        AddFinding(report, offset, "codeSigning is not the first extended key usage of '" + c["subject"].get<std::string>() +
                                       "'; checktool reads the first only");
    }
    return c;
}

std::vector<X509 *> &KeptCerts()
{
    static std::vector<X509 *> certs;
    return certs;
}

Json CertsReport(STACK_OF(X509) *certs, const Bytes &sig, uint64_t base, Json *report)
{
    Json list = Json::array();
    for (int i = 0; i < sk_X509_num(certs); i++) {
        X509 *cert = sk_X509_value(certs, i);
        if (X509_up_ref(cert) == 1) {
            KeptCerts().push_back(cert);
        }
        unsigned char *der = nullptr;
        const int len = i2d_X509(cert, &der);
        const size_t at = len > 0 ? Find(sig, Bytes(der, der + len)) : 0;
        OPENSSL_free(der);
        list.push_back(CertReport(cert, base + at, report));
    }
    return list;
}

Json TokenReport(const Bytes &sig, uint64_t base, const ASN1_OCTET_STRING *sigValue, PKCS7 *token, Json *report)
{
    Json t = Json::object();
    TS_TST_INFO *tst = PKCS7_to_TS_TST_INFO(token);
    if (tst == nullptr) {
        t["error"] = "the token holds no TSTInfo";
        return t;
    }
    const ASN1_GENERALIZEDTIME *genTime = TS_TST_INFO_get_time(tst);
    const std::string raw(reinterpret_cast<const char *>(ASN1_STRING_get0_data(genTime)),
                          static_cast<size_t>(ASN1_STRING_length(genTime)));
    t["genTime"] = IsoTime(genTime);
    t["genTimeEncoded"] = raw;
    if (raw.size() != kGenTimeWholeSeconds) {
        AddFinding(report, base + Find(sig, Bytes(raw.begin(), raw.end())),
                   "genTime '" + raw + "' is not in whole seconds (YYYYMMDDHHMMSSZ)");
    }
    TS_MSG_IMPRINT *imprint = TS_TST_INFO_get_msg_imprint(tst);
    const X509_ALGOR *alg = TS_MSG_IMPRINT_get_algo(imprint);
    const ASN1_OCTET_STRING *msg = TS_MSG_IMPRINT_get_msg(imprint);
    const EVP_MD *md = EVP_get_digestbyobj(alg->algorithm);
    t["imprintAlgorithm"] = ObjName(alg->algorithm);
    Bytes hash;
    bool matches = md != nullptr &&
                   Digest(md, ASN1_STRING_get0_data(sigValue), static_cast<size_t>(ASN1_STRING_length(sigValue)), &hash) == kOk &&
                   hash.size() == static_cast<size_t>(ASN1_STRING_length(msg)) &&
                   memcmp(hash.data(), ASN1_STRING_get0_data(msg), hash.size()) == 0;
    t["imprintMatchesSignatureValue"] = matches;
    t["serial"] = IntegerHex(TS_TST_INFO_get_serial(tst));
    t["policy"] = ObjName(TS_TST_INFO_get_policy_id(tst));
    t["certificates"] = CertsReport(token->d.sign != nullptr ? token->d.sign->cert : nullptr, sig, base, report);
    TS_TST_INFO_free(tst);
    return t;
}

void CrlBlockReport(const Bytes &block, uint64_t base, Json *report)
{
    Json crls = Json::array();
    Json certs = Json::array();
    std::vector<std::pair<Bytes, uint64_t>> items;
    if (LooksLikePem(block)) {
        std::vector<PemBlock> pem;
        (void)PemBlocks(block, &pem);
        for (const PemBlock &b : pem) {
            items.push_back({b.der, base + Find(block, Bytes(b.label.begin(), b.label.end()))});
        }
    } else {
        BerParser parser{block, {}, 0, false};
        for (size_t pos = 0; pos < block.size();) {
            BerNode node;
            if (!ParseBer(&parser, pos, block.size(), 0, &node)) {
                if (block.size() - pos > 32) {
                    (*report)["crlBlockError"] = "not DER from offset " + std::to_string(base + pos);
                }
                break;
            }
            items.push_back({Bytes(block.begin() + static_cast<long>(pos), block.begin() + static_cast<long>(node.end)),
                             base + pos});
            pos = node.end;
        }
    }
    for (const auto &item : items) {
        const unsigned char *p = item.first.data();
        X509_CRL *crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(item.first.size()));
        if (crl == nullptr) {
            p = item.first.data();
            X509 *cert = d2i_X509(nullptr, &p, static_cast<long>(item.first.size()));
            if (cert != nullptr) {
                certs.push_back(CertReport(cert, item.second, report));
                X509_free(cert);
            }
            continue;
        }
        Json c = {{"offset", item.second},
                  {"issuer", NameText(X509_CRL_get_issuer(crl))},
                  {"version", X509_CRL_get_version(crl) + 1},
                  {"thisUpdate", IsoTime(X509_CRL_get0_lastUpdate(crl))},
                  {"nextUpdate", IsoTime(X509_CRL_get0_nextUpdate(crl))}};
        if (X509_CRL_get_version(crl) == 0) {
            AddFinding(report, item.second, "a v1 CRL of '" + c["issuer"].get<std::string>() + "'; checktool reads v2 only");
        }
        if (X509_CRL_get0_nextUpdate(crl) == nullptr) {
            AddFinding(report, item.second, "a CRL of '" + c["issuer"].get<std::string>() + "' without nextUpdate");
        }
        Json entries = Json::array();
        STACK_OF(X509_REVOKED) *revoked = X509_CRL_get_REVOKED(crl);
        for (int i = 0; i < sk_X509_REVOKED_num(revoked); i++) {
            X509_REVOKED *r = sk_X509_REVOKED_value(revoked, i);
            Json e = {{"serial", IntegerHex(X509_REVOKED_get0_serialNumber(r))},
                      {"revocationDate", IsoTime(X509_REVOKED_get0_revocationDate(r))}};
            ASN1_ENUMERATED *reason = static_cast<ASN1_ENUMERATED *>(X509_REVOKED_get_ext_d2i(r, NID_crl_reason, nullptr, nullptr));
            if (reason != nullptr) {
                e["reason"] = ASN1_ENUMERATED_get(reason);
                ASN1_ENUMERATED_free(reason);
            }
            entries.push_back(e);
        }
        c["entries"] = entries;
        crls.push_back(c);
        X509_CRL_free(crl);
    }
    (*report)["crlBlock"] = {{"crls", crls}, {"certificates", certs}};
}

} // namespace forge
