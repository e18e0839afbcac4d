/* Public keys out of certificates, one signature check over a byte range,
 * and names as text. */
#include <gtest/gtest.h>

#include <string.h>

#include <deque>
#include <string>
#include <vector>

#include "asn1/log_capture.h"
#include "asn1/x509_signature.h"
#include "support/pki_builder.h"
#include "support/test_env.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using testenv::Bytes;

Bytes Fixture(const std::string &rel)
{
    Bytes b = testenv::ReadBytes(std::string(TESTDATA_DIR) + "/" + rel);
    EXPECT_FALSE(b.empty()) << rel;
    return b;
}

/* Decoded certificates whose DER the fixture keeps alive. */
class X509SignatureTest : public logtest::Captured {
protected:
    void TearDown() override
    {
        for (VexaX509Cert *c : certs_) {
            VexaX509FreeCert(c);
        }
        for (VexaX509Crl *c : crls_) {
            VexaX509FreeCrl(c);
        }
        logtest::Captured::TearDown();
    }
    VexaX509Cert *Cert(const Bytes &der)
    {
        der_.push_back(der);
        VexaX509Cert *c = nullptr;
        uint32_t used = 0;
        EXPECT_EQ(VexaX509DecodeCert(der_.back().data(), static_cast<uint32_t>(der_.back().size()), &c, &used),
                  VEXA_OK);
        certs_.push_back(c);
        return c;
    }
    VexaX509Crl *Crl(const Bytes &der)
    {
        der_.push_back(der);
        VexaX509Crl *c = nullptr;
        uint32_t used = 0;
        EXPECT_EQ(VexaX509DecodeCrl(der_.back().data(), static_cast<uint32_t>(der_.back().size()), &c, &used),
                  VEXA_OK);
        crls_.push_back(c);
        return c;
    }
    std::string Name(const VexaX509Name &name, uint32_t *code)
    {
        char *text = nullptr;
        uint32_t len = 0;
        *code = VexaX509NameToString(&name, &text, &len);
        if (*code != VEXA_OK) {
            EXPECT_EQ(text, nullptr);
            return "";
        }
        std::string s(text);
        EXPECT_EQ(len, s.size());
        VexaFree(text);
        return s;
    }

    std::deque<Bytes> der_; /* decoded views point into these */
    std::vector<VexaX509Cert *> certs_;
    std::vector<VexaX509Crl *> crls_;
};

uint32_t CheckCertSignature(const VexaX509Cert *cert, const VexaRsaPubKey *key, uint32_t *verdict,
                            const VexaX509AlgId *alg = nullptr)
{
    return VexaX509PubKeyVerify(cert->tbsCertificateRaw.data, cert->tbsCertificateRaw.len, cert->signatureValue.data,
                                cert->signatureValue.len, key, alg != nullptr ? alg : &cert->signatureAlgorithm,
                                verdict);
}

const VexaRsaPubKey *KeyOf(const VexaX509Cert *cert)
{
    return &cert->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
}

TEST_F(X509SignatureTest, SignaturesOfCertificatesAndCrlsVerify)
{
    const VexaX509Cert *root = Cert(Fixture("pki/root.der"));
    const VexaX509Cert *ca = Cert(Fixture("pki/int.der"));
    const VexaX509Crl *crl = Crl(Fixture("crl/root.crl"));
    /* the development root has a 4096-bit key: a 512-byte modulus */
    ASSERT_EQ(KeyOf(root)->modulus.len, 512u);
    uint32_t verdict = 99;
    EXPECT_EQ(CheckCertSignature(root, KeyOf(root), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    verdict = 99;
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(root), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    verdict = 99;
    EXPECT_EQ(VexaX509PubKeyVerify(crl->tbsCertListRaw.data, crl->tbsCertListRaw.len, crl->signatureValue.data,
                                   crl->signatureValue.len, KeyOf(root), &crl->signatureAlgorithm, &verdict),
              VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    /* the digest may be named by its own identifier too */
    VexaX509AlgId sha256 = {};
    sha256.algorithm = *VexaOidFindById(AOID_SHA256);
    verdict = 99;
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(root), &verdict, &sha256), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

TEST_F(X509SignatureTest, WrongSignaturesGiveVerdictZeroNotAFault)
{
    const VexaX509Cert *root = Cert(Fixture("pki/root.der"));
    const VexaX509Cert *ca = Cert(Fixture("pki/int.der"));
    Bytes sig(root->signatureValue.data, root->signatureValue.data + root->signatureValue.len);
    sig[sig.size() / 2] ^= 0x01;
    uint32_t verdict = 99;
    EXPECT_EQ(VexaX509PubKeyVerify(root->tbsCertificateRaw.data, root->tbsCertificateRaw.len, sig.data(),
                                   static_cast<uint32_t>(sig.size()), KeyOf(root), &root->signatureAlgorithm,
                                   &verdict),
              VEXA_OK);
    EXPECT_EQ(verdict, 0u);
    /* the right signature under another key */
    verdict = 99;
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(ca), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 0u);
    /* SHA-384 named where SHA-256 was used */
    VexaX509AlgId sha384 = {};
    sha384.algorithm = *VexaOidFindById(AOID_SHA384WITHRSAENCRYPTION);
    verdict = 99;
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(root), &verdict, &sha384), VEXA_OK);
    EXPECT_EQ(verdict, 0u);
}

TEST_F(X509SignatureTest, UnsupportedDigestsAreRefused)
{
    const VexaX509Cert *ca = Cert(Fixture("pki/int.der"));
    const VexaX509Cert *sha1Signed = Cert(Fixture("pki/signer_sha1.der"));
    uint32_t verdict = 99;
    EXPECT_EQ(CheckCertSignature(sha1Signed, KeyOf(ca), &verdict), VEXA_ERR_UNSUPPORTED_DIGEST);
    EXPECT_EQ(verdict, 99u);
    EXPECT_TRUE(logtest::HasRecord("VexaX509PubKeyVerify", VEXA_ERR_UNSUPPORTED_DIGEST, ""));
    /* rsaEncryption names no digest */
    VexaX509AlgId rsa = {};
    rsa.algorithm = ca->tbsCertificate.subjectPublicKeyInfo.algorithm.algorithm;
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(ca), &verdict, &rsa), VEXA_ERR_UNSUPPORTED_DIGEST);
    EXPECT_EQ(CheckCertSignature(ca, nullptr, &verdict), VEXA_ERR_PARAM);
    EXPECT_EQ(CheckCertSignature(ca, KeyOf(ca), nullptr), VEXA_ERR_PARAM);
}

/* Key parts longer than 512 bytes (a 4104-bit modulus) do not fit the
 * fixed key buffers of the crypto services. */
TEST_F(X509SignatureTest, KeyPartsOverFourKilobitsAreRefused)
{
    const VexaX509Cert *root = Cert(Fixture("pki/root.der"));
    const Bytes big(513, 0xC3);
    const struct {
        const char *name;
        bool modulus;
    } cases[] = {{"modulus", true}, {"exponent", false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        logtest::Records().clear();
        VexaX509Cert cert = *root;
        VexaRsaPubKey *key = &cert.tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
        VexaAsnOcts *part = c.modulus ? &key->modulus : &key->publicExponent;
        part->data = big.data();
        part->len = static_cast<uint32_t>(big.size());
        VexaBigInt exponent = {};
        VexaBigInt modulus = {};
        EXPECT_EQ(VexaX509ExtractPublicKey(&cert, &exponent, &modulus), VEXA_ERR_KEY_TOO_LONG);
        EXPECT_TRUE(logtest::HasRecord("VexaX509ExtractPublicKey", VEXA_ERR_KEY_TOO_LONG, ""));
        uint32_t verdict = 99;
        EXPECT_EQ(CheckCertSignature(root, key, &verdict), VEXA_ERR_PARAM);
        EXPECT_EQ(verdict, 99u);
        EXPECT_TRUE(logtest::HasRecord("InternalGetBigIntFromOcts", VEXA_ERR_GENERIC, "Unsupported key length 4104"));
    }
    /* 512 bytes still fit, and come out as they are */
    VexaBigInt exponent = {};
    VexaBigInt modulus = {};
    ASSERT_EQ(VexaX509ExtractPublicKey(root, &exponent, &modulus), VEXA_OK);
    EXPECT_EQ(modulus.len, 512u);
    EXPECT_EQ(memcmp(modulus.bytes, KeyOf(root)->modulus.data, 512), 0);
    EXPECT_EQ(exponent.len, KeyOf(root)->publicExponent.len);
    EXPECT_EQ(memcmp(exponent.bytes, KeyOf(root)->publicExponent.data, exponent.len), 0);
    EXPECT_EQ(VexaX509ExtractPublicKey(nullptr, &exponent, &modulus), VEXA_ERR_PARAM);
}

TEST_F(X509SignatureTest, NamesAreWrittenInEncodingOrder)
{
    const std::string cn200(200, 'a');
    const std::string cn100(100, 'b');
    const struct {
        const char *name;
        std::string subject;
        std::string text;
        bool truncated;
    } cases[] = {
        {"the usual three attributes", "C=XX,O=Example,CN=Example Root", "C=XX,O=Example,CN=Example Root", false},
        {"every named prefix", "C=XX,ST=State,L=City,O=Org,OU=Unit,CN=Name,emailAddress=a@b.c",
         "C=XX,S=State,L=City,O=Org,OU=Unit,CN=Name,E=a@b.c", false},
        {"a multi-valued RDN", "C=XX,O=Org+OU=Unit,CN=Name", "C=XX,O=Org,OU=Unit,CN=Name", false},
        {"PrintableString values are copied alike", "C/P=XX,CN/P=Name", "C=XX,CN=Name", false},
        {"a 200-byte common name is cut to the 128-byte scratch", "C=XX,CN=" + cn200,
         "C=XX,CN=" + cn200.substr(0, 124), true},
        {"an attribute that would pass 255 characters is left out",
         "CN=" + cn100 + ",CN=" + cn100 + ",CN=" + cn100 + ",C=XX", "CN=" + cn100 + ",CN=" + cn100 + ",C=XX",
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        logtest::Records().clear();
        testpki::CertSpec want;
        want.subject = c.subject;
        want.key = testpki::SharedKey(2048);
        testpki::Cert made = testpki::MakeCert(want);
        const VexaX509Cert *cert = Cert(testpki::Der(made.get()));
        ASSERT_NE(cert, nullptr);
        uint32_t code = 99;
        EXPECT_EQ(Name(cert->tbsCertificate.subject, &code), c.text);
        EXPECT_EQ(code, VEXA_OK);
        EXPECT_EQ(logtest::HasRecord("InternalGetMaxAttrLen", VEXA_ERR_ATTR_TRUNCATED,
                                     "attribute name too long, which is invalid."),
                  c.truncated);
    }
}

/* A name built attribute by attribute, values kept by the builder. */
struct NameBuilder {
    std::deque<std::string> values;
    VexaX509Name name = {};
    void Rdn(std::initializer_list<std::pair<int32_t, std::string>> attrs)
    {
        VexaX509Rdn *rdn = &name.rdns[name.count++];
        for (const auto &a : attrs) {
            values.push_back(a.second);
            VexaX509AttrTypeAndValue *attr = &rdn->attrs[rdn->count++];
            attr->type = *VexaOidFindById(a.first);
            attr->value.len = static_cast<uint32_t>(values.back().size());
            attr->value.tagNumber = 12;
            attr->value.data = reinterpret_cast<const uint8_t *>(values.back().data());
        }
    }
};

/* The string holds 255 characters at most: an attribute that does not fit
 * is left out with the rest of its RDN, and the next RDN is tried. */
TEST_F(X509SignatureTest, NameStringStopsAt255Characters)
{
    const std::string a(100, 'a');
    const std::string b(100, 'b');
    const std::string c(100, 'c');
    NameBuilder skip;
    skip.Rdn({{AOID_AT_COMMONNAME, a}});
    skip.Rdn({{AOID_AT_COMMONNAME, b}});
    skip.Rdn({{AOID_AT_COMMONNAME, c}, {AOID_AT_COUNTRYNAME, "YY"}});
    skip.Rdn({{AOID_AT_COUNTRYNAME, "XX"}});
    uint32_t code = 99;
    EXPECT_EQ(Name(skip.name, &code), "CN=" + a + ",CN=" + b + ",C=XX");
    EXPECT_EQ(code, VEXA_OK);

    /* two attributes cut to 127 characters each fill exactly 255 */
    NameBuilder full;
    full.Rdn({{AOID_AT_COMMONNAME, std::string(200, 'x')}});
    full.Rdn({{AOID_AT_COMMONNAME, std::string(200, 'y')}, {AOID_AT_COUNTRYNAME, "ZZ"}});
    full.Rdn({{AOID_AT_COUNTRYNAME, "XX"}});
    const std::string text = Name(full.name, &code);
    EXPECT_EQ(code, VEXA_OK);
    EXPECT_EQ(text, "CN=" + std::string(124, 'x') + ",CN=" + std::string(124, 'y'));
    EXPECT_EQ(text.size(), 255u);
}

/* Attribute types are looked up in the identifier table: unknown ones fail
 * the whole name, known ones without a prefix of their own get "X=". */
TEST_F(X509SignatureTest, AttributeTypesOutsideTheNameTable)
{
    static const uint8_t kRsaEncryption[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
    static const uint8_t kValue[] = {'v', 'a', 'l'};
    VexaAsnOcts unknown = {};
    unknown.len = sizeof(kRsaEncryption);
    unknown.tagNumber = 6;
    unknown.data = kRsaEncryption;
    ASSERT_EQ(VexaOidGetId(&unknown), AOID_UNKNOWN);
    VexaAsnOcts value = {};
    value.len = sizeof(kValue);
    value.tagNumber = 12;
    value.data = kValue;

    VexaX509Name name = {};
    name.count = 2;
    name.rdns[0].count = 1;
    name.rdns[0].attrs[0].type = *VexaOidFindById(AOID_AT_COUNTRYNAME);
    name.rdns[0].attrs[0].value = value;
    name.rdns[1].count = 1;
    name.rdns[1].attrs[0].type = *VexaOidFindById(AOID_SHA256);
    name.rdns[1].attrs[0].value = value;
    uint32_t code = 99;
    EXPECT_EQ(Name(name, &code), "C=val,X=val");
    EXPECT_EQ(code, VEXA_OK);

    name.rdns[1].attrs[0].type = unknown;
    EXPECT_EQ(Name(name, &code), "");
    EXPECT_EQ(code, VEXA_ERR_CERT_FORMAT);

    char buf[16] = {0};
    const char marker = 0;
    EXPECT_EQ(VexaX509FormatAttr(&name.rdns[1].attrs[0], buf, sizeof buf, &marker), VEXA_ERR_CERT_FORMAT);
    EXPECT_EQ(VexaX509FormatAttr(&name.rdns[0].attrs[0], buf, sizeof buf, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaX509FormatAttr(nullptr, buf, sizeof buf, &marker), VEXA_ERR_PARAM);
    /* a small buffer takes what fits with its terminating NUL */
    char small[5];
    memset(small, 'Z', sizeof small);
    EXPECT_EQ(VexaX509FormatAttr(&name.rdns[0].attrs[0], small, sizeof small, &marker), VEXA_OK);
    EXPECT_STREQ(small, "C=va");
    char *text = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(VexaX509NameToString(nullptr, &text, &len), VEXA_ERR_PARAM);
}

TEST(X509AttrLength, ValuesAreCutToWhatFitsWithTheNul)
{
    const struct {
        uint32_t size;
        uint32_t used;
        uint32_t wanted;
        uint32_t got;
    } cases[] = {
        {128, 3, 124, 124}, {128, 3, 125, 124}, {128, 3, 200, 124}, {128, 0, 0, 0}, {5, 2, 3, 2},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(InternalGetMaxAttrLen(c.size, c.used, c.wanted), c.got)
            << c.size << " " << c.used << " " << c.wanted;
    }
}

} // namespace
