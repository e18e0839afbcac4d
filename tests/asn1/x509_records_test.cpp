#include <gtest/gtest.h>

#include <openssl/ec.h>
#include <openssl/evp.h>

#include <memory>
#include <string>

#include "asn1/asn1_items.h"
#include "tests/asn1/der_builder.h"
#include "tests/asn1/log_capture.h"
#include "tests/asn1/pki_maker.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using pkitest::Bytes;

Bytes View(const VexaAsnOcts &v)
{
    return v.data == nullptr ? Bytes() : Bytes(v.data, v.data + v.len);
}

std::string Text(const VexaAsnOcts &v)
{
    return v.data == nullptr ? std::string() : std::string(reinterpret_cast<const char *>(v.data), v.len);
}

int64_t Epoch(const VexaAsnOcts &v)
{
    int64_t t = 0;
    EXPECT_EQ(VexaAsnTimeToEpoch(&v, &t), VEXA_OK);
    return t;
}

/* The first attribute of each RDN as "type-id=value". */
std::vector<std::string> Rdns(const VexaX509Name &name)
{
    std::vector<std::string> out;
    for (uint32_t i = 0; i < name.count; i++) {
        const VexaX509AttrTypeAndValue &a = name.rdns[i].attrs[0];
        out.push_back(std::to_string(VexaOidGetId(&a.type)) + "=" + Text(a.value));
    }
    return out;
}

struct CertHolder {
    Bytes der;
    VexaX509Cert *cert = nullptr;
    uint32_t code = 0;
    uint32_t consumed = 0;
    ~CertHolder() { VexaX509FreeCert(cert); }
};

std::unique_ptr<CertHolder> DecodeCert(const Bytes &der)
{
    std::unique_ptr<CertHolder> h(new CertHolder);
    h->der = der;
    h->code = VexaX509DecodeCert(h->der.data(), static_cast<uint32_t>(h->der.size()), &h->cert, &h->consumed);
    return h;
}

Bytes ModulusOfKey()
{
    BIGNUM *n = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(pkitest::Key(), "n", &n), 1);
    Bytes out(static_cast<size_t>(BN_num_bytes(n)));
    BN_bn2bin(n, out.data());
    BN_free(n);
    return out;
}

TEST(CertificateRecord, HoldsTheFieldsLibcryptoWrote)
{
    pkitest::CertSpec def;
    def.serial = {0x9A, 0x00, 0x01}; /* high bit set: encoded with a sign octet */
    def.extensions = {{"basicConstraints", "critical,CA:TRUE"},
                       {"keyUsage", "critical,keyCertSign,cRLSign"},
                       {"subjectKeyIdentifier", "hash"},
                       {"extendedKeyUsage", "codeSigning"}};
    std::unique_ptr<CertHolder> h = DecodeCert(pkitest::MakeCert(def));
    ASSERT_EQ(h->code, VEXA_OK);
    const VexaX509Cert &c = *h->cert;
    EXPECT_EQ(c.refCount, 1u);
    EXPECT_EQ(c.verifiedIssuer, nullptr);
    EXPECT_EQ(h->consumed, h->der.size());

    const VexaX509TbsCert &tbs = c.tbsCertificate;
    EXPECT_EQ(View(tbs.serialNumber), def.serial);
    EXPECT_EQ(Rdns(tbs.issuer), (std::vector<std::string>{"168=XX", "164=Example", "161=Example Root"}));
    EXPECT_EQ(Rdns(tbs.subject), (std::vector<std::string>{"168=XX", "164=Example", "161=Leaf"}));
    EXPECT_EQ(tbs.subject.rdns[2].attrs[0].value.tagNumber, 12u) << "the string keeps its type";
    EXPECT_EQ(tbs.validity.notBefore.tagNumber, 23u);
    EXPECT_EQ(tbs.validity.notAfter.tagNumber, 24u);
    EXPECT_EQ(Epoch(tbs.validity.notBefore), 1704067200);
    EXPECT_EQ(Epoch(tbs.validity.notAfter), 2682374400);

    const VexaRsaPubKey &key = tbs.subjectPublicKeyInfo.subjectPublicKey;
    EXPECT_EQ(View(key.modulus), ModulusOfKey());
    EXPECT_EQ(key.modulus.len, 256u) << "the key length in bytes";
    EXPECT_EQ(View(key.publicExponent), (Bytes{0x01, 0x00, 0x01}));

    EXPECT_EQ(tbs.extensions.basicConstraintsCa, 1u);
    EXPECT_EQ(tbs.extensions.keyUsage, 0x06u);
    EXPECT_EQ(tbs.extensions.extKeyUsage, VEXA_EKU_CODE_SIGNING);

    EXPECT_EQ(VexaOidGetId(&c.signatureAlgorithm.algorithm), AOID_SHA256WITHRSAENCRYPTION);
    EXPECT_EQ(c.signatureAlgorithm.parameters.data, nullptr) << "a NULL parameter";
    EXPECT_EQ(c.signatureValue.len, 256u);
    /* the signed bytes: the whole TBSCertificate, just after the outer header */
    EXPECT_EQ(c.tbsCertificateRaw.data, h->der.data() + 4);
    EXPECT_EQ(c.tbsCertificateRaw.data[0], 0x30);
    EXPECT_EQ(c.tbsCertificateRaw.tagNumber, 16u);
    X509 *x = pkitest::BuildCert(def);
    unsigned char *tbsDer = nullptr;
    const int tbsLen = i2d_re_X509_tbs(x, &tbsDer);
    EXPECT_EQ(static_cast<int>(c.tbsCertificateRaw.len), tbsLen);
    OPENSSL_free(tbsDer);
    X509_free(x);
}

TEST(CertificateRecord, TakesOnlyBasicConstraintsKeyUsageAndTheFirstPurpose)
{
    const struct {
        const char *name;
        std::vector<std::pair<std::string, std::string>> extensions;
        bool unknownCritical;
        uint32_t ca;
        uint32_t keyUsage;
        uint32_t extKeyUsage;
    } cases[] = {
        {"version 3 without extensions", {}, false, 0, 0, 0},
        {"keyCertSign and cRLSign", {{"keyUsage", "keyCertSign,cRLSign"}}, false, 0, 6, 0},
        {"two key usage octets", {{"keyUsage", "keyCertSign,cRLSign,decipherOnly"}}, false, 0, 0x0680, 0},
        {"digitalSignature", {{"keyUsage", "critical,digitalSignature"}}, false, 0, 0x80, 0},
        {"serverAuth before codeSigning", {{"extendedKeyUsage", "serverAuth,codeSigning"}}, false, 0, 0, 0},
        {"codeSigning before serverAuth", {{"extendedKeyUsage", "codeSigning,serverAuth"}}, false, 0, 0, 0x08},
        {"timeStamping", {{"extendedKeyUsage", "critical,timeStamping"}}, false, 0, 0, 0x40},
        {"cA FALSE", {{"basicConstraints", "CA:FALSE"}}, false, 0, 0, 0},
        {"cA TRUE with a path length", {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, false, 1, 0, 0},
        {"unknown critical extension is ignored", {{"keyUsage", "cRLSign"}}, true, 0, 0x02, 0},
        {"other extensions are stepped over",
         {{"subjectKeyIdentifier", "hash"}, {"authorityKeyIdentifier", "keyid"}, {"subjectAltName", "DNS:a.example"},
          {"keyUsage", "keyCertSign"}},
         false, 0, 0x04, 0},
    };
    for (const auto &c : cases) {
        pkitest::CertSpec def;
        def.extensions = c.extensions;
        def.unknownCriticalExtension = c.unknownCritical;
        std::unique_ptr<CertHolder> h = DecodeCert(pkitest::MakeCert(def));
        ASSERT_EQ(h->code, VEXA_OK) << c.name;
        const VexaX509Extensions &e = h->cert->tbsCertificate.extensions;
        EXPECT_EQ(e.basicConstraintsCa, c.ca) << c.name;
        EXPECT_EQ(e.keyUsage, c.keyUsage) << c.name;
        EXPECT_EQ(e.extKeyUsage, c.extKeyUsage) << c.name;
    }
}

pkitest::NameSpec ManyRdns(int n)
{
    pkitest::NameSpec def;
    for (int i = 0; i < n; i++) {
        def.push_back({"OU", "unit " + std::to_string(i)});
    }
    return def;
}

pkitest::NameSpec OneRdnOf(int n)
{
    pkitest::NameSpec def = {{"CN", "first"}};
    for (int i = 1; i < n; i++) {
        def.push_back({"+OU", "unit " + std::to_string(i)});
    }
    return def;
}

TEST(CertificateRecord, RefusesWhatItsCapacitiesAndRulesExclude)
{
    EVP_PKEY *ecKey = EVP_EC_gen("P-256");
    ASSERT_NE(ecKey, nullptr);
    const struct {
        const char *name;
        long version;
        pkitest::NameSpec subject;
        EVP_PKEY *subjectKey;
        uint32_t code;
        uint32_t rdns;
    } cases[] = {
        {"ten RDNs", 2, ManyRdns(10), nullptr, VEXA_OK, 10},
        {"eleven RDNs", 2, ManyRdns(11), nullptr, VEXA_ERR_ASN_LIST, 0},
        {"ten attributes in one RDN", 2, OneRdnOf(10), nullptr, VEXA_OK, 1},
        {"eleven attributes in one RDN", 2, OneRdnOf(11), nullptr, VEXA_ERR_ASN_LIST, 0},
        {"version 1 has no version field", 0, {{"CN", "v1"}}, nullptr, VEXA_ERR_ASN_SEQ, 0},
        {"version 2", 1, {{"CN", "v2"}}, nullptr, VEXA_OK, 1},
        {"an EC key is no RSAPublicKey", 2, {{"CN", "ec"}}, ecKey, VEXA_ERR_ASN_TAG, 0},
    };
    for (const auto &c : cases) {
        pkitest::CertSpec def;
        def.version = c.version;
        def.subject = c.subject;
        def.subjectKey = c.subjectKey;
        std::unique_ptr<CertHolder> h = DecodeCert(pkitest::MakeCert(def));
        EXPECT_EQ(h->code, c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(h->cert->tbsCertificate.subject.count, c.rdns) << c.name;
            EXPECT_EQ(h->cert->tbsCertificate.subject.rdns[0].count, c.rdns == 1 ? 10u - 9u * (c.version == 1) : 1u)
                << c.name;
        } else {
            EXPECT_EQ(h->cert, nullptr) << c.name;
        }
    }
    EVP_PKEY_free(ecKey);
}

TEST(CertificateRecord, WalksConcatenatedCertificatesAndSharesByReference)
{
    pkitest::CertSpec second;
    second.serial = {0x05};
    const Bytes a = pkitest::MakeCert(pkitest::CertSpec());
    const Bytes b = pkitest::MakeCert(second);
    const Bytes both = dertest::Cat({a, b});
    VexaX509Cert *first = nullptr;
    uint32_t consumed = 0;
    ASSERT_EQ(VexaX509DecodeCert(both.data(), static_cast<uint32_t>(both.size()), &first, &consumed), VEXA_OK);
    EXPECT_EQ(consumed, a.size());
    VexaX509Cert *next = nullptr;
    uint32_t consumed2 = 0;
    ASSERT_EQ(VexaX509DecodeCert(both.data() + consumed, static_cast<uint32_t>(both.size() - consumed), &next,
                                 &consumed2),
              VEXA_OK);
    EXPECT_EQ(View(next->tbsCertificate.serialNumber), (Bytes{0x05}));

    first->refCount++; /* a second holder */
    VexaX509FreeCert(first);
    EXPECT_EQ(first->refCount, 1u) << "still alive for the other holder";
    VexaX509FreeCert(first);
    VexaX509FreeCert(next);
    VexaX509FreeCert(nullptr);

    VexaX509Cert *none = nullptr;
    EXPECT_EQ(VexaX509DecodeCert(nullptr, 10, &none, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaX509DecodeCert(a.data(), 0, &none, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaX509DecodeCert(a.data(), static_cast<uint32_t>(a.size()), nullptr, &consumed), VEXA_ERR_PARAM);

    VexaAsnOcts view{static_cast<uint32_t>(a.size()), 0, 1, 16, a.data()};
    ASSERT_EQ(VexaX509DecodeCertFromOcts(&view, &none, &consumed), VEXA_OK);
    VexaX509FreeCert(none);
    none = nullptr;
    const VexaAsnOcts wrongTags[] = {{view.len, 2, 1, 16, a.data()}, {view.len, 0, 0, 16, a.data()},
                                     {view.len, 0, 1, 17, a.data()}};
    for (const VexaAsnOcts &w : wrongTags) {
        EXPECT_EQ(VexaX509DecodeCertFromOcts(&w, &none, &consumed), VEXA_ERR_CERT_FORMAT);
    }
}

/* Every prefix and every single-octet change of real DER decodes or fails
 * cleanly; run under the address sanitizer this shows no read leaves the
 * input. */
template <class Decode>
void Mangle(const Bytes &der, Decode decode)
{
    for (size_t n = 1; n < der.size(); n++) {
        std::unique_ptr<uint8_t[]> cut(new uint8_t[n]);
        std::copy(der.begin(), der.begin() + static_cast<long>(n), cut.get());
        EXPECT_NE(decode(cut.get(), static_cast<uint32_t>(n)), VEXA_OK) << "prefix of " << n;
    }
    const uint8_t changes[] = {0x01, 0x80, 0xFF};
    for (size_t i = 0; i < der.size(); i++) {
        for (uint8_t x : changes) {
            std::unique_ptr<uint8_t[]> copy(new uint8_t[der.size()]);
            std::copy(der.begin(), der.end(), copy.get());
            copy[i] ^= x;
            decode(copy.get(), static_cast<uint32_t>(der.size()));
        }
    }
}

TEST(DecoderRobustness, TruncatedOrCorruptedInputFailsCleanly)
{
    pkitest::CertSpec def;
    def.extensions = {{"basicConstraints", "critical,CA:TRUE"}, {"keyUsage", "keyCertSign"},
                       {"extendedKeyUsage", "codeSigning"}};
    Mangle(pkitest::MakeCert(def), [](const uint8_t *p, uint32_t n) {
        VexaX509Cert *c = nullptr;
        uint32_t used = 0;
        const uint32_t code = VexaX509DecodeCert(p, n, &c, &used);
        if (code == VEXA_OK) {
            EXPECT_LE(used, n);
        }
        VexaX509FreeCert(c);
        return code;
    });
    pkitest::CrlSpec crl;
    crl.indirect = true;
    Mangle(pkitest::MakeCrl(crl), [](const uint8_t *p, uint32_t n) {
        VexaX509Crl *c = nullptr;
        uint32_t used = 0;
        const uint32_t code = VexaX509DecodeCrl(p, n, &c, &used);
        VexaX509FreeCrl(c);
        return code;
    });
    pkitest::CmsSpec cms;
    cms.timeStampToken = pkitest::MakeToken(1717243200).der;
    Mangle(pkitest::MakeCms(cms), [](const uint8_t *p, uint32_t n) {
        VexaPkcs7Content *c = nullptr;
        uint32_t used = 0;
        const uint32_t code = VexaPkcs7DecodeContent(p, n, &c, &used);
        VexaPkcs7FreeContent(c);
        return code;
    });
}

struct CrlHolder {
    Bytes der;
    VexaX509Crl *crl = nullptr;
    uint32_t code = 0;
    ~CrlHolder() { VexaX509FreeCrl(crl); }
};

std::unique_ptr<CrlHolder> DecodeCrl(const pkitest::CrlSpec &def)
{
    std::unique_ptr<CrlHolder> h(new CrlHolder);
    h->der = pkitest::MakeCrl(def);
    uint32_t consumed = 0;
    h->code = VexaX509DecodeCrl(h->der.data(), static_cast<uint32_t>(h->der.size()), &h->crl, &consumed);
    if (h->code == VEXA_OK) {
        EXPECT_EQ(consumed, h->der.size());
    }
    return h;
}

TEST(CrlRecord, HoldsTheFieldsLibcryptoWrote)
{
    pkitest::CrlSpec def;
    def.revoked = 3;
    def.indirect = true;
    std::unique_ptr<CrlHolder> h = DecodeCrl(def);
    ASSERT_EQ(h->code, VEXA_OK);
    const VexaX509Crl &crl = *h->crl;
    EXPECT_EQ(crl.refCount, 1u);
    const VexaX509TbsCrl &tbs = crl.tbsCertList;
    EXPECT_EQ(tbs.version, 1u);
    EXPECT_EQ(VexaOidGetId(&tbs.signature.algorithm), AOID_SHA256WITHRSAENCRYPTION);
    EXPECT_EQ(Rdns(tbs.issuer), (std::vector<std::string>{"168=XX", "164=Example", "161=Example Root"}));
    EXPECT_EQ(Epoch(tbs.thisUpdate), 1717200000);
    EXPECT_EQ(Epoch(tbs.nextUpdate), 1719792000);
    ASSERT_EQ(tbs.revokedCertificates.count, 3u);
    for (uint32_t i = 0; i < 3; i++) {
        const VexaX509RevokedEntry &e = tbs.revokedCertificates.entries[i];
        EXPECT_EQ(View(e.userCertificate), pkitest::RevokedSerial(static_cast<int>(i))) << "sign octet dropped";
        EXPECT_EQ(Epoch(e.revocationDate), 1715731200);
        EXPECT_EQ(e.reasonCode, 1u);
    }
    const VexaX509Idp &idp = tbs.crlExtensions.issuingDistributionPoint;
    EXPECT_EQ(idp.indirectCRL, 1u);
    EXPECT_EQ(idp.onlyContainsUserCerts, 1u);
    EXPECT_EQ(idp.onlyContainsCACerts, 0u);
    EXPECT_EQ(idp.distributionPoint.data, nullptr);
    EXPECT_EQ(crl.tbsCertListRaw.data, h->der.data() + 4);
    EXPECT_EQ(crl.signatureValue.len, 256u);
}

TEST(CrlRecord, DecodesWithinItsCapacitiesAndRequiredFields)
{
    const struct {
        const char *name;
        int revoked;
        int reason;
        bool version2;
        std::string nextUpdate;
        bool crlNumber;
        uint32_t code;
    } cases[] = {
        {"no revoked entries", 0, 1, true, "20240701000000Z", true, VEXA_OK},
        {"twenty revoked entries", 20, 1, true, "20240701000000Z", true, VEXA_OK},
        {"twenty-one revoked entries", 21, 1, true, "20240701000000Z", true, VEXA_ERR_ASN_SEQ},
        {"entries without a reason", 2, -1, true, "20240701000000Z", true, VEXA_OK},
        {"no extensions at all", 2, 1, true, "20240701000000Z", false, VEXA_OK},
        {"nextUpdate as GeneralizedTime", 1, 1, true, "20600101000000Z", true, VEXA_OK},
        {"no nextUpdate, revoked list follows", 2, 1, true, "", true, VEXA_ERR_ASN_OCTS_TAG},
        {"no nextUpdate, extensions follow", 0, 1, true, "", true, VEXA_ERR_ASN_OCTS_TAG},
        {"no nextUpdate, nothing follows", 0, 1, true, "", false, VEXA_ERR_ASN_SEQ},
        {"no version", 2, 1, false, "20240701000000Z", false, VEXA_ERR_ASN_TAG},
    };
    for (const auto &c : cases) {
        pkitest::CrlSpec def;
        def.revoked = c.revoked;
        def.reason = c.reason;
        def.version2 = c.version2;
        def.nextUpdate = c.nextUpdate;
        def.crlNumber = c.crlNumber;
        std::unique_ptr<CrlHolder> h = DecodeCrl(def);
        EXPECT_EQ(h->code, c.code) << c.name;
        if (c.code != VEXA_OK) {
            continue;
        }
        const VexaX509TbsCrl &tbs = h->crl->tbsCertList;
        EXPECT_EQ(tbs.revokedCertificates.count, static_cast<uint32_t>(c.revoked)) << c.name;
        for (int i = 0; i < c.revoked; i++) {
            EXPECT_EQ(tbs.revokedCertificates.entries[i].reasonCode, c.reason < 0 ? 0u : 1u) << c.name;
        }
        EXPECT_EQ(tbs.crlExtensions.issuingDistributionPoint.indirectCRL, 0u) << c.name;
    }
}

struct CmsHolder {
    Bytes der;
    VexaPkcs7Content *content = nullptr;
    uint32_t code = 0;
    uint32_t consumed = 0;
    ~CmsHolder() { VexaPkcs7FreeContent(content); }
};

std::unique_ptr<CmsHolder> DecodeCms(const Bytes &der)
{
    std::unique_ptr<CmsHolder> h(new CmsHolder);
    h->der = der;
    h->code = VexaPkcs7DecodeContent(h->der.data(), static_cast<uint32_t>(h->der.size()), &h->content, &h->consumed);
    if (h->code != VEXA_OK) {
        EXPECT_EQ(h->content, nullptr);
    }
    return h;
}

Bytes Sha256(const std::string &s)
{
    Bytes out(32);
    unsigned int n = 0;
    EVP_Digest(s.data(), s.size(), out.data(), &n, EVP_sha256(), nullptr);
    return out;
}

TEST(SignedDataRecord, HoldsSignerCertificatesAndAttributes)
{
    std::unique_ptr<CmsHolder> h = DecodeCms(pkitest::MakeCms(pkitest::CmsSpec()));
    ASSERT_EQ(h->code, VEXA_OK);
    EXPECT_EQ(h->consumed, h->der.size());
    const VexaPkcs7Content &ci = *h->content;
    EXPECT_EQ(VexaOidGetId(&ci.contentType), AOID_PKCS7_SIGNEDDATA);
    const VexaPkcs7SignedData &sd = ci.content;
    EXPECT_EQ(sd.version, 1u);
    EXPECT_EQ(sd.encapContentInfo.eContent.data, nullptr) << "detached";
    EXPECT_EQ(sd.encapContentInfo.eContentType.len, 9u);
    ASSERT_EQ(sd.certificates.count, 1u);
    EXPECT_EQ(sd.certificates.certs[0].data[0], 0x30) << "whole certificate elements";
    ASSERT_EQ(sd.decodedCerts.count, 1u);
    const VexaX509Cert *signerCert = static_cast<const VexaX509Cert *>(sd.decodedCerts.items[0]);
    EXPECT_EQ(Rdns(signerCert->tbsCertificate.subject), (std::vector<std::string>{"161=Code Signer"}));
    EXPECT_EQ(signerCert->tbsCertificate.extensions.extKeyUsage, VEXA_EKU_CODE_SIGNING);
    EXPECT_EQ(signerCert->tbsCertificate.extensions.keyUsage, 0x80u);

    ASSERT_EQ(sd.signerInfos.count, 1u);
    const VexaPkcs7SignerInfo &si = sd.signerInfos.signers[0];
    EXPECT_EQ(si.version, 1u);
    EXPECT_EQ(Rdns(si.sid.issuer), Rdns(signerCert->tbsCertificate.issuer));
    EXPECT_EQ(VexaAsnOctsCompare(&si.sid.serialNumber, &signerCert->tbsCertificate.serialNumber), 0);
    EXPECT_EQ(VexaGetHashAlgFromOid(&si.digestAlgorithm.algorithm), 43u);
    ASSERT_NE(si.signedAttrsRaw.data, nullptr);
    EXPECT_EQ(si.signedAttrsRaw.data[0], 0xA0) << "the bytes as encoded";
    EXPECT_EQ(si.signedAttrsRaw.tagClass * 64 | si.signedAttrsRaw.constructed * 32 | si.signedAttrsRaw.tagNumber,
              0x31u)
        << "the tag they were signed under";
    EXPECT_EQ(View(si.signedAttrs.messageDigest), Sha256(pkitest::SignedContent()));
    EXPECT_EQ(si.signature.len, 256u);
    EXPECT_EQ(si.unsignedAttrs.timeStampToken.data, nullptr);
}

TEST(SignedDataRecord, DecodesWithinItsCapacities)
{
    const struct {
        const char *name;
        pkitest::CmsSpec def;
        uint32_t code;
        uint32_t certs;
    } cases[] = {
        {"two certificates", {1, 1, true, true, false, {}}, VEXA_OK, 2},
        {"three certificates", {1, 2, true, true, false, {}}, VEXA_ERR_CMS_DECODE, 0},
        {"two signers", {2, 0, true, true, false, {}}, VEXA_ERR_CMS_DECODE, 0},
        {"no certificates", {1, 0, true, false, false, {}}, VEXA_OK, 0},
        {"no signed attributes", {1, 0, false, true, false, {}}, VEXA_OK, 1},
        {"signer named by key identifier", {1, 0, true, true, true, {}}, VEXA_ERR_CMS_DECODE, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<CmsHolder> h = DecodeCms(pkitest::MakeCms(c.def));
        EXPECT_EQ(h->code, c.code) << c.name;
        if (c.code != VEXA_OK) {
            continue;
        }
        const VexaPkcs7SignedData &sd = h->content->content;
        EXPECT_EQ(sd.decodedCerts.count, c.certs) << c.name;
        EXPECT_EQ(sd.certificates.count, c.certs) << c.name;
        const VexaPkcs7SignerInfo &si = sd.signerInfos.signers[0];
        if (!c.def.signedAttrs) {
            EXPECT_EQ(si.signedAttrsRaw.data, nullptr) << c.name;
            EXPECT_EQ(si.signedAttrs.messageDigest.data, nullptr) << c.name;
            EXPECT_EQ(si.signature.len, 256u) << c.name;
        }
    }
}

class SignedDataDiagnostics : public logtest::Captured {};

TEST_F(SignedDataDiagnostics, ABrokenEmbeddedCertificateFailsTheWhole)
{
    const Bytes cert = pkitest::MakeCert([] {
        pkitest::CertSpec s;
        s.subject = {{"CN", "Code Signer"}};
        s.extensions = {{"keyUsage", "critical,digitalSignature"},
                        {"extendedKeyUsage", "codeSigning"},
                        {"subjectKeyIdentifier", "hash"}};
        return s;
    }());
    Bytes cms = pkitest::MakeCms(pkitest::CmsSpec());
    /* the signer certificate as embedded: the [0] version wrapper becomes
     * [1], lengths unchanged, so only the certificate decode fails */
    auto at = std::search(cms.begin(), cms.end(), cert.begin(), cert.begin() + 64);
    ASSERT_NE(at, cms.end());
    ASSERT_EQ(at[8], 0xA0);
    at[8] = 0xA1;
    std::unique_ptr<CmsHolder> h = DecodeCms(cms);
    EXPECT_EQ(h->code, VEXA_ERR_CMS_DECODE);
    EXPECT_TRUE(logtest::HasRecord("InternalDecodeCert", VEXA_ERR_CMS_DECODE, ""));
}

TEST(TimestampRecord, DecodesATokenAndItsTstInfo)
{
    const long genTime = 1717243200; /* 2024-06-01 12:00:00 */
    const pkitest::Token token = pkitest::MakeToken(genTime);
    ASSERT_FALSE(token.der.empty());
    std::unique_ptr<CmsHolder> h = DecodeCms(token.der);
    ASSERT_EQ(h->code, VEXA_OK);
    const VexaPkcs7SignedData &sd = h->content->content;
    EXPECT_EQ(sd.decodedCerts.count, 1u) << "the TSA certificate";
    const VexaX509Cert *tsa = static_cast<const VexaX509Cert *>(sd.decodedCerts.items[0]);
    EXPECT_EQ(tsa->tbsCertificate.extensions.extKeyUsage, VEXA_EKU_TIME_STAMPING);
    const VexaAsnOcts &eContent = sd.encapContentInfo.eContent;
    EXPECT_EQ(eContent.tagClass, 2u);
    EXPECT_EQ(eContent.constructed, 1u);
    EXPECT_EQ(eContent.tagNumber, 0u);
    ASSERT_NE(eContent.data, nullptr);
    EXPECT_NE(sd.signerInfos.signers[0].signedAttrs.messageDigest.data, nullptr);

    void *octets = nullptr;
    uint32_t used = 0;
    ASSERT_EQ(VexaAsnDecodeItem(eContent.data, eContent.len, &g_itemVexaAsnOcts, 0, &octets, &used), VEXA_OK);
    const VexaAsnOcts tstBytes = *static_cast<VexaAsnOcts *>(octets);
    VexaFree(octets);
    EXPECT_EQ(tstBytes.tagNumber, 4u);

    void *record = nullptr;
    ASSERT_EQ(VexaAsnDecodeItem(tstBytes.data, tstBytes.len, &g_itemVexaTimestampInfo, 0, &record, &used), VEXA_OK);
    const VexaTimestampInfo tst = *static_cast<VexaTimestampInfo *>(record);
    VexaFree(record);
    EXPECT_EQ(used, tstBytes.len) << "accuracy, ordering, nonce and TSA name are all stepped over";
    EXPECT_EQ(VexaGetHashAlgFromOid(&tst.messageImprint.hashAlgorithm.algorithm), 43u);
    EXPECT_EQ(View(tst.messageImprint.hashedMessage), token.imprint);
    EXPECT_EQ(tst.genTime.tagNumber, 24u);
    EXPECT_EQ(tst.genTime.len, 15u);
    EXPECT_EQ(Epoch(tst.genTime), genTime);
}

TEST(TimestampRecord, SignerKeepsTheWholeTokenAsUnsignedAttribute)
{
    pkitest::CmsSpec def;
    def.timeStampToken = pkitest::MakeToken(1717243200).der;
    std::unique_ptr<CmsHolder> h = DecodeCms(pkitest::MakeCms(def));
    ASSERT_EQ(h->code, VEXA_OK);
    const VexaAsnOcts &token = h->content->content.signerInfos.signers[0].unsignedAttrs.timeStampToken;
    EXPECT_EQ(View(token), def.timeStampToken) << "identifier and length included";
    VexaPkcs7Content *again = nullptr;
    uint32_t used = 0;
    EXPECT_EQ(VexaPkcs7DecodeContent(token.data, token.len, &again, &used), VEXA_OK);
    VexaPkcs7FreeContent(again);
}

} // namespace
