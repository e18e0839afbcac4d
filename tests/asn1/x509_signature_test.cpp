// SPDX-License-Identifier: Apache-2.0
/* Public keys out of certificates, one signature check over a byte range,
 * and names as text. */
#include <gtest/gtest.h>

#include <string>

#include "asn1/log_capture.h"
#include "asn1/x509_signature.h"
#include "support/pki_builder.h"
#include "tests/asn1/der_builder.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using dertest::Bytes;
using testpki::Fixture;

class X509SignatureTest : public logtest::Captured {
protected:
    testpki::Decoded d_;
};

/* Roots, CRLs, flipped bits, other keys and SHA-1 signatures are verified or
 * refused in the scenarios; here what the signature algorithm may name. */
TEST_F(X509SignatureTest, SignaturesVerifyOnlyUnderTheNamedDigest)
{
    static const uint8_t kRsaEncryption[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
    const VexaAsnOcts rsaEncryption = {sizeof kRsaEncryption, 0, 0, 6, kRsaEncryption};
    const VexaX509Cert *cert = d_.Cert(Fixture("pki/int.der"));
    const VexaRsaPubKey *key = &d_.Cert(Fixture("pki/root.der"))->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    /* alg: null for the one the certificate names */
    const struct { const char *name; const VexaAsnOcts *alg; uint32_t code; uint32_t verdict; } cases[] = {
        {"CA certificate under the root", nullptr, VEXA_OK, 1},
        {"SHA-384 named where SHA-256 was used", VexaOidFindById(AOID_SHA384WITHRSAENCRYPTION), VEXA_OK, 0},
        {"rsaEncryption names no digest", &rsaEncryption, VEXA_ERR_UNSUPPORTED_DIGEST, 99},
    };
    const VexaAsnOcts raw = cert->tbsCertificateRaw;
    const VexaAsnOcts sig = cert->signatureValue;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        logtest::Records().clear();
        VexaX509AlgId alg = cert->signatureAlgorithm;
        alg.algorithm = c.alg != nullptr ? *c.alg : alg.algorithm;
        uint32_t verdict = 99;
        EXPECT_EQ(VexaX509PubKeyVerify(raw.data, raw.len, sig.data, sig.len, key, &alg, &verdict), c.code);
        EXPECT_EQ(verdict, c.verdict);
        EXPECT_EQ(logtest::HasRecord("VexaX509PubKeyVerify", VEXA_ERR_UNSUPPORTED_DIGEST, ""), c.code != VEXA_OK);
        EXPECT_EQ(VexaX509PubKeyVerify(raw.data, raw.len, sig.data, sig.len, key, &alg, nullptr), VEXA_ERR_PARAM);
        EXPECT_EQ(VexaX509PubKeyVerify(raw.data, raw.len, sig.data, sig.len, nullptr, &alg, &verdict), VEXA_ERR_PARAM);
    }
}

/* Key parts longer than 512 bytes (a 4104-bit modulus) do not fit the
 * fixed key buffers of the crypto services; the 4096-bit root's 512 bytes
 * verify in the table above and through the scenarios. */
TEST_F(X509SignatureTest, KeyPartsOverFourKilobitsAreRefused)
{
    const VexaX509Cert *root = d_.Cert(Fixture("pki/root.der"));
    const Bytes big(513, 0xC3);
    for (bool modulus : {true, false}) {
        SCOPED_TRACE(modulus ? "modulus" : "exponent");
        logtest::Records().clear();
        VexaX509Cert cert = *root;
        VexaRsaPubKey *key = &cert.tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
        *(modulus ? &key->modulus : &key->publicExponent) = {513, 0, 0, 2, big.data()};
        VexaBigInt exponent = {};
        VexaBigInt mod = {};
        EXPECT_EQ(VexaX509ExtractPublicKey(&cert, &exponent, &mod), VEXA_ERR_KEY_TOO_LONG);
        EXPECT_TRUE(logtest::HasRecord("VexaX509ExtractPublicKey", VEXA_ERR_KEY_TOO_LONG, ""));
        uint32_t verdict = 99;
        EXPECT_EQ(VexaX509PubKeyVerify(root->tbsCertificateRaw.data, root->tbsCertificateRaw.len,
                                       root->signatureValue.data, root->signatureValue.len, key,
                                       &root->signatureAlgorithm, &verdict),
                  VEXA_ERR_PARAM);
        EXPECT_EQ(verdict, 99u);
        EXPECT_TRUE(logtest::HasRecord("InternalGetBigIntFromOcts", VEXA_ERR_GENERIC, "Unsupported key length 4104"));
    }
    VexaBigInt part = {};
    EXPECT_EQ(VexaX509ExtractPublicKey(nullptr, &part, &part), VEXA_ERR_PARAM);
}

/* The string holds 255 characters: an attribute that does not fit is left
 * out with the rest of its RDN and the next RDN is tried; each value is cut
 * to the 128-byte scratch first. Attribute types outside the identifier
 * table fail the whole name. */
TEST_F(X509SignatureTest, NamesAreWrittenInEncodingOrderWithinTheirBuffers)
{
    const std::string x(200, 'x');
    const std::string y(200, 'y');
    const std::string x124 = x.substr(0, 124);
    /* the RDN's two attributes encode to the same length, so DER's SET OF
     * order puts CN first; CN does not fit after 147 characters, E would */
    const std::string org(17, 'o');
    const std::string cnThenE = "CN=" + std::string(106, 'c') + "+emailAddress=" + std::string(100, 'e');
    const struct { const char *name; std::string subject; std::string text; uint32_t code; bool truncated; } cases[] = {
        {"every named prefix", "C=XX,ST=State,L=City,O=Org,OU=Unit,CN=Name,emailAddress=a@b.c",
         "C=XX,S=State,L=City,O=Org,OU=Unit,CN=Name,E=a@b.c", VEXA_OK, false},
        {"a multi-valued RDN", "C=XX,O=Org+OU=Unit,CN=Name", "C=XX,O=Org,OU=Unit,CN=Name", VEXA_OK, false},
        {"PrintableString values are copied alike", "C/P=XX,CN/P=Name", "C=XX,CN=Name", VEXA_OK, false},
        {"a 200-byte common name is cut to the scratch", "C=XX,CN=" + x, "C=XX,CN=" + x124, VEXA_OK, true},
        {"an attribute that does not fit is left out with the rest of its RDN",
         "CN=" + x + ",O=" + org + "," + cnThenE + ",C=XX", "CN=" + x124 + ",O=" + org + ",C=XX", VEXA_OK, true},
        {"two cut attributes fill exactly 255", "CN=" + x + ",CN=" + y + ",C=XX", "CN=" + x124 + ",CN=" + y.substr(0, 124),
         VEXA_OK, true},
        {"a known type without a prefix of its own", "C=val,2.16.840.1.101.3.4.2.1=val", "C=val,X=val", VEXA_OK, false},
        {"a type outside the identifier table", "C=XX,serialNumber=1", "", VEXA_ERR_CERT_FORMAT, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        logtest::Records().clear();
        testpki::CertSpec def;
        def.subject = c.subject;
        testpki::Cert made = testpki::MakeCert(def);
        const VexaX509Cert *cert = d_.Cert(made.get());
        ASSERT_NE(cert, nullptr);
        char *text = nullptr;
        uint32_t len = 99;
        EXPECT_EQ(VexaX509NameToString(&cert->tbsCertificate.subject, &text, &len), c.code);
        EXPECT_EQ(text != nullptr ? std::string(text) : std::string(), c.text);
        EXPECT_EQ(len, c.code == VEXA_OK ? c.text.size() : 99u);
        VexaFree(text);
        EXPECT_EQ(logtest::HasRecord("InternalGetMaxAttrLen", VEXA_ERR_ATTR_TRUNCATED,
                                     "attribute name too long, which is invalid."),
                  c.truncated);
    }
    char *text = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(VexaX509NameToString(nullptr, &text, &len), VEXA_ERR_PARAM);
}

} // namespace
