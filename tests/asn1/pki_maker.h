/* Certificates, CRLs, CMS signatures and time-stamp tokens made with
 * libcrypto inside the test process, so the decoder meets DER that an
 * independent encoder wrote. One RSA key serves every object. */
#ifndef TESTS_ASN1_PKI_MAKER_H
#define TESTS_ASN1_PKI_MAKER_H

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/rsa.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

namespace pkitest {

using Bytes = std::vector<uint8_t>;

/* Key generation is the slow part: once per process. */
inline EVP_PKEY *Key()
{
    static EVP_PKEY *key = EVP_RSA_gen(2048);
    return key;
}

/* RDNs as (short name, value) pairs; a name starting with '+' joins the
 * previous RDN (a multi-valued RDN). */
using NameSpec = std::vector<std::pair<std::string, std::string>>;

inline X509_NAME *MakeName(const NameSpec &def)
{
    X509_NAME *name = X509_NAME_new();
    for (const auto &rdn : def) {
        const bool join = !rdn.first.empty() && rdn.first[0] == '+';
        const std::string field = join ? rdn.first.substr(1) : rdn.first;
        X509_NAME_add_entry_by_txt(name, field.c_str(), MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(rdn.second.c_str()), -1, -1, join ? -1 : 0);
    }
    return name;
}

struct CertSpec {
    long version = 2; /* v3; 0 omits the field */
    std::vector<uint8_t> serial = {0x01, 0x23};
    NameSpec subject = {{"C", "XX"}, {"O", "Example"}, {"CN", "Leaf"}};
    NameSpec issuer = {{"C", "XX"}, {"O", "Example"}, {"CN", "Example Root"}};
    std::string notBefore = "20240101000000Z"; /* before 2050: written as UTCTime */
    std::string notAfter = "20550101000000Z";  /* from 2050: GeneralizedTime */
    /* (name, value) for X509V3_EXT_conf, e.g. {"keyUsage", "critical,keyCertSign"} */
    std::vector<std::pair<std::string, std::string>> extensions;
    bool unknownCriticalExtension = false;
    EVP_PKEY *subjectKey = nullptr; /* null: the RSA key; the signature is always RSA */
};

inline X509 *BuildCert(const CertSpec &def)
{
    X509 *x = X509_new();
    X509_set_version(x, def.version);
    BIGNUM *bn = BN_bin2bn(def.serial.data(), static_cast<int>(def.serial.size()), nullptr);
    ASN1_INTEGER *serial = BN_to_ASN1_INTEGER(bn, nullptr);
    X509_set_serialNumber(x, serial);
    ASN1_INTEGER_free(serial);
    BN_free(bn);
    X509_NAME *subject = MakeName(def.subject);
    X509_NAME *issuer = MakeName(def.issuer);
    X509_set_subject_name(x, subject);
    X509_set_issuer_name(x, issuer);
    X509_NAME_free(subject);
    X509_NAME_free(issuer);
    ASN1_TIME *t = ASN1_TIME_new();
    ASN1_TIME_set_string_X509(t, def.notBefore.c_str());
    X509_set1_notBefore(x, t);
    ASN1_TIME_set_string_X509(t, def.notAfter.c_str());
    X509_set1_notAfter(x, t);
    ASN1_TIME_free(t);
    X509_set_pubkey(x, def.subjectKey != nullptr ? def.subjectKey : Key());
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, x, x, nullptr, nullptr, 0);
    for (const auto &e : def.extensions) {
        X509_EXTENSION *ext = X509V3_EXT_conf(nullptr, &ctx, e.first.c_str(), e.second.c_str());
        if (ext != nullptr) {
            X509_add_ext(x, ext, -1);
            X509_EXTENSION_free(ext);
        }
    }
    if (def.unknownCriticalExtension) {
        ASN1_OBJECT *obj = OBJ_txt2obj("1.3.6.1.4.1.99999.1", 1);
        ASN1_OCTET_STRING *value = ASN1_OCTET_STRING_new();
        const unsigned char content[] = {0x05, 0x00};
        ASN1_OCTET_STRING_set(value, content, sizeof content);
        X509_EXTENSION *ext = X509_EXTENSION_create_by_OBJ(nullptr, obj, 1, value);
        X509_add_ext(x, ext, -1);
        X509_EXTENSION_free(ext);
        ASN1_OCTET_STRING_free(value);
        ASN1_OBJECT_free(obj);
    }
    X509_sign(x, Key(), EVP_sha256());
    return x;
}

inline Bytes Der(X509 *x)
{
    unsigned char *p = nullptr;
    const int n = i2d_X509(x, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    return out;
}

inline Bytes MakeCert(const CertSpec &def)
{
    X509 *x = BuildCert(def);
    Bytes der = Der(x);
    X509_free(x);
    return der;
}

struct CrlSpec {
    bool version2 = true; /* false: no version field at all */
    NameSpec issuer = {{"C", "XX"}, {"O", "Example"}, {"CN", "Example Root"}};
    std::string lastUpdate = "20240601000000Z";
    std::string nextUpdate = "20240701000000Z"; /* empty: none */
    int revoked = 2;
    int reason = 1; /* keyCompromise on every entry; -1: no reason */
    bool indirect = false;
    bool crlNumber = true;
};

/* The serial of revoked entry i: two octets, the first with its high bit
 * set so the encoder adds a sign octet the decoder must drop. */
inline Bytes RevokedSerial(int i)
{
    return {0x80, static_cast<uint8_t>(i)};
}

inline Bytes MakeCrl(const CrlSpec &def)
{
    X509_CRL *crl = X509_CRL_new();
    if (def.version2) {
        X509_CRL_set_version(crl, 1);
    }
    X509_NAME *issuer = MakeName(def.issuer);
    X509_CRL_set_issuer_name(crl, issuer);
    X509_NAME_free(issuer);
    ASN1_TIME *t = ASN1_TIME_new();
    ASN1_TIME_set_string_X509(t, def.lastUpdate.c_str());
    X509_CRL_set1_lastUpdate(crl, t);
    if (!def.nextUpdate.empty()) {
        ASN1_TIME_set_string_X509(t, def.nextUpdate.c_str());
        X509_CRL_set1_nextUpdate(crl, t);
    }
    for (int i = 0; i < def.revoked; i++) {
        X509_REVOKED *r = X509_REVOKED_new();
        const Bytes serialBytes = RevokedSerial(i);
        BIGNUM *bn = BN_bin2bn(serialBytes.data(), static_cast<int>(serialBytes.size()), nullptr);
        ASN1_INTEGER *serial = BN_to_ASN1_INTEGER(bn, nullptr);
        X509_REVOKED_set_serialNumber(r, serial);
        ASN1_INTEGER_free(serial);
        BN_free(bn);
        ASN1_TIME_set_string_X509(t, "20240515000000Z");
        X509_REVOKED_set_revocationDate(r, t);
        if (def.reason >= 0) {
            ASN1_ENUMERATED *e = ASN1_ENUMERATED_new();
            ASN1_ENUMERATED_set(e, def.reason);
            X509_REVOKED_add1_ext_i2d(r, NID_crl_reason, e, 0, 0);
            ASN1_ENUMERATED_free(e);
        }
        X509_CRL_add0_revoked(crl, r);
    }
    ASN1_TIME_free(t);
    if (def.crlNumber) {
        ASN1_INTEGER *number = ASN1_INTEGER_new();
        ASN1_INTEGER_set(number, 42);
        X509_CRL_add1_ext_i2d(crl, NID_crl_number, number, 0, 0);
        ASN1_INTEGER_free(number);
    }
    if (def.indirect) {
        ISSUING_DIST_POINT *idp = ISSUING_DIST_POINT_new();
        /* as the configuration parser sets them: DER TRUE is 0xFF */
        idp->indirectCRL = 0xFF;
        idp->onlyuser = 0xFF;
        X509_CRL_add1_ext_i2d(crl, NID_issuing_distribution_point, idp, 1, 0);
        ISSUING_DIST_POINT_free(idp);
    }
    X509_CRL_sort(crl);
    X509_CRL_sign(crl, Key(), EVP_sha256());
    unsigned char *p = nullptr;
    const int n = i2d_X509_CRL(crl, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    X509_CRL_free(crl);
    return out;
}

inline Bytes CmsDer(CMS_ContentInfo *cms)
{
    unsigned char *p = nullptr;
    const int n = i2d_CMS_ContentInfo(cms, &p);
    Bytes out(p, p + (n > 0 ? n : 0));
    OPENSSL_free(p);
    return out;
}

struct CmsSpec {
    int signers = 1;
    int extraCerts = 0;         /* certificates besides the signer's */
    bool signedAttrs = true;    /* false: signature over the content itself */
    bool includeSigner = true;  /* false: no certificates at all */
    bool keyIdentifier = false; /* sid as subjectKeyIdentifier */
    Bytes timeStampToken;       /* added as an unsigned attribute when not empty */
};

inline const std::string &SignedContent()
{
    static const std::string content = "image body covered by the detached signature";
    return content;
}

inline Bytes MakeCms(const CmsSpec &def)
{
    CertSpec signerSpec;
    signerSpec.subject = {{"CN", "Code Signer"}};
    signerSpec.extensions = {{"keyUsage", "critical,digitalSignature"},
                             {"extendedKeyUsage", "codeSigning"},
                             {"subjectKeyIdentifier", "hash"}};
    X509 *signer = BuildCert(signerSpec);
    STACK_OF(X509) *extra = sk_X509_new_null();
    for (int i = 0; i < def.extraCerts; i++) {
        CertSpec s;
        s.serial = {static_cast<uint8_t>(0x40 + i)};
        sk_X509_push(extra, BuildCert(s));
    }
    unsigned int flags = CMS_DETACHED | CMS_BINARY | CMS_PARTIAL;
    if (!def.includeSigner) {
        flags |= CMS_NOCERTS;
    }
    CMS_ContentInfo *cms = CMS_sign(nullptr, nullptr, extra, nullptr, flags);
    unsigned int signerFlags = CMS_BINARY | (def.signedAttrs ? 0 : CMS_NOATTR) |
                               (def.keyIdentifier ? CMS_USE_KEYID : 0) | (def.includeSigner ? 0 : CMS_NOCERTS);
    std::vector<CMS_SignerInfo *> infos;
    for (int i = 0; i < def.signers; i++) {
        /* the certificate goes in once, whatever the number of signers */
        infos.push_back(CMS_add1_signer(cms, signer, Key(), EVP_sha256(), signerFlags | (i > 0 ? CMS_NOCERTS : 0)));
    }
    BIO *data = BIO_new_mem_buf(SignedContent().data(), static_cast<int>(SignedContent().size()));
    CMS_final(cms, data, nullptr, flags & ~CMS_PARTIAL);
    BIO_free(data);
    if (!def.timeStampToken.empty() && !infos.empty() && infos[0] != nullptr) {
        CMS_unsigned_add1_attr_by_NID(infos[0], NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                      def.timeStampToken.data(), static_cast<int>(def.timeStampToken.size()));
    }
    Bytes der = CmsDer(cms);
    CMS_ContentInfo_free(cms);
    sk_X509_pop_free(extra, X509_free);
    X509_free(signer);
    return der;
}

/* A time-stamp response's token with every optional TSTInfo field that
 * libcrypto can write (accuracy, ordering, nonce, TSA name). */
struct Token {
    Bytes der;        /* ContentInfo of the token */
    Bytes imprint;    /* the hashed message */
    long genTime = 0; /* seconds since 1970 */
};

inline int FixedTime(TS_RESP_CTX *, void *data, long *sec, long *usec)
{
    *sec = *static_cast<long *>(data);
    *usec = 0;
    return 1;
}

inline Token MakeToken(long genTime)
{
    static long s_time;
    s_time = genTime;
    CertSpec tsaSpec;
    tsaSpec.subject = {{"CN", "Time Stamping Authority"}};
    tsaSpec.extensions = {{"keyUsage", "critical,digitalSignature"}, {"extendedKeyUsage", "critical,timeStamping"}};
    X509 *tsa = BuildCert(tsaSpec);

    Token token;
    token.genTime = genTime;
    token.imprint.assign(32, 0);
    for (size_t i = 0; i < token.imprint.size(); i++) {
        token.imprint[i] = static_cast<uint8_t>(i * 7 + 1);
    }

    TS_REQ *req = TS_REQ_new();
    TS_REQ_set_version(req, 1);
    TS_MSG_IMPRINT *mi = TS_MSG_IMPRINT_new();
    X509_ALGOR *alg = X509_ALGOR_new();
    X509_ALGOR_set0(alg, OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
    TS_MSG_IMPRINT_set_algo(mi, alg);
    X509_ALGOR_free(alg);
    TS_MSG_IMPRINT_set_msg(mi, token.imprint.data(), static_cast<int>(token.imprint.size()));
    TS_REQ_set_msg_imprint(req, mi);
    TS_MSG_IMPRINT_free(mi);
    ASN1_INTEGER *nonce = ASN1_INTEGER_new();
    ASN1_INTEGER_set(nonce, 0x1234567);
    TS_REQ_set_nonce(req, nonce);
    ASN1_INTEGER_free(nonce);
    TS_REQ_set_cert_req(req, 1);
    BIO *reqBio = BIO_new(BIO_s_mem());
    i2d_TS_REQ_bio(reqBio, req);
    TS_REQ_free(req);

    TS_RESP_CTX *ctx = TS_RESP_CTX_new();
    TS_RESP_CTX_set_signer_cert(ctx, tsa);
    TS_RESP_CTX_set_signer_key(ctx, Key());
    ASN1_OBJECT *policy = OBJ_txt2obj("1.3.6.1.4.1.99999.2", 1);
    TS_RESP_CTX_set_def_policy(ctx, policy);
    ASN1_OBJECT_free(policy);
    TS_RESP_CTX_add_md(ctx, EVP_sha256());
    TS_RESP_CTX_set_accuracy(ctx, 1, 500, 0);
    TS_RESP_CTX_add_flags(ctx, TS_ORDERING | TS_TSA_NAME);
    TS_RESP_CTX_set_time_cb(ctx, FixedTime, &s_time);
    TS_RESP *resp = TS_RESP_create_response(ctx, reqBio);
    BIO_free(reqBio);
    if (resp != nullptr && TS_RESP_get_token(resp) != nullptr) {
        unsigned char *p = nullptr;
        const int n = i2d_PKCS7(TS_RESP_get_token(resp), &p);
        token.der.assign(p, p + (n > 0 ? n : 0));
        OPENSSL_free(p);
    }
    TS_RESP_free(resp);
    TS_RESP_CTX_free(ctx);
    X509_free(tsa);
    return token;
}

} // namespace pkitest

#endif
