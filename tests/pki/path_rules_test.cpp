// SPDX-License-Identifier: Apache-2.0
/* Paths and CRLs that carry what the library cannot honour must fail:
 * unprocessed critical extensions, a pathLenConstraint exceeded, and CRLs
 * that cannot speak for a certificate (critical extensions, deltas, a scope
 * that leaves it out). Each row builds root -> CA [-> sub-CA] -> leaf with
 * one current CRL per CA and verifies the leaf (or the CA). */
#include <gtest/gtest.h>

#include "asn1/der_builder.h"
#include "pki/pki.h"
#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "vexa/vexa_result.h"

namespace testpki {
namespace {

using Exts = std::vector<std::pair<std::string, std::string>>;

constexpr const char *kUnknownCritical = "1.3.6.1.4.1.99999.1";

struct Row {
    const char *name;
    Exts root, ca, sub, leaf; /* extensions of each certificate */
    bool withSub;             /* a sub-CA between the CA and the leaf */
    Exts crl;                 /* extensions of the CRL that speaks for the target */
    bool targetCa;            /* verify the CA (its CRL is the root's) instead of the leaf */
    uint32_t expect;
    const char *entryCriticalOid = nullptr; /* a critical extension on an entry of that CRL */
};

std::string DerText(const Bytes &der, bool critical)
{
    std::string text = critical ? "critical,DER" : "DER";
    char octet[4];
    for (uint8_t b : der) {
        snprintf(octet, sizeof(octet), ":%02X", b);
        text += octet;
    }
    return text;
}

/* CN=value as an RDN's AttributeTypeAndValue, as the builder encodes it */
Bytes CommonName(const std::string &value)
{
    return dertest::Seq({dertest::Oid({0x55, 0x04, 0x03}), dertest::Text(0x0C, value)});
}

class PathRules : public ::testing::Test {
protected:
    uint32_t Run(const Row &r)
    {
        testenv::Ctx owner = testenv::NewCtx();
        VexaVerifyCtx *ctx = owner.get();
        Decoded decoded;
        std::vector<Cert> certs;
        auto make = [&](const char *subject, long serial, int issuer, int key, int ca, const char *ku,
                        const Exts &ext) {
            CertSpec s;
            s.subject = subject;
            s.serial = serial;
            s.ca = ca;
            s.keyUsage = ku;
            s.key = SharedKey(2048, key);
            s.issuer = issuer < 0 ? nullptr : certs[static_cast<size_t>(issuer)].get();
            s.issuerKey = issuer < 0 ? nullptr : SharedKey(2048, issuer);
            s.extensions = ext;
            certs.push_back(MakeCert(s));
        };
        make("CN=Root", 1, -1, 0, 1, "keyCertSign,cRLSign", r.root);
        make("CN=CA", 2, 0, 1, 1, "keyCertSign,cRLSign", r.ca);
        if (r.withSub) {
            make("CN=Sub", 3, 1, 2, 1, "keyCertSign,cRLSign", r.sub);
        }
        const int leafIssuer = r.withSub ? 2 : 1;
        make("CN=Leaf", 10, leafIssuer, 3, 0, "digitalSignature", r.leaf);
        const int target = r.targetCa ? 1 : static_cast<int>(certs.size()) - 1;
        const int targetIssuer = r.targetCa ? 0 : leafIssuer;
        std::vector<VexaX509Cert *> added;
        for (const Cert &c : certs) {
            VexaX509Cert *d = decoded.Cert(c.get());
            if (d == nullptr) {
                return 0xDEC0DE;
            }
            EXPECT_EQ(VexaPkiAddCert(ctx, d), VEXA_OK);
            added.push_back(d);
        }
        for (int ca = 0; ca + 1 < static_cast<int>(certs.size()); ca++) {
            CrlSpec cs;
            cs.issuer = certs[static_cast<size_t>(ca)].get();
            cs.issuerKey = SharedKey(2048, ca);
            if (ca == targetIssuer) {
                cs.extensions = r.crl;
                if (r.entryCriticalOid != nullptr) {
                    cs.revoked.push_back({99, kT0 - kDay, -1, r.entryCriticalOid});
                }
            }
            VexaX509Crl *d = decoded.Crl(MakeCrl(cs).get());
            if (d == nullptr) {
                return 0xDEC0DE;
            }
            EXPECT_EQ(VexaPkiAddCrl(ctx, d), VEXA_OK);
        }
        ctx->verifyTime = kT0;
        uint32_t verdict = 99;
        const uint32_t code = VexaPkiVerifyCert(ctx, added[static_cast<size_t>(target)], 1, 0, &verdict);
        EXPECT_EQ(verdict, code == VEXA_OK ? 1u : 0u) << r.name;
        return code;
    }
};

TEST_F(PathRules, CriticalExtensionsAndPathLength)
{
    const Exts unknownCritical = {{kUnknownCritical, "critical,DER:05:00"}};
    const Row rows[] = {
        {"plain path", {}, {}, {}, {}, false, {}, false, VEXA_OK},
        {"unknown critical extension on the leaf", {}, {}, {}, unknownCritical, false, {}, false,
         VEXA_ERR_UNPROCESSED_CRITICAL},
        {"critical name constraints on the CA", {}, {{"nameConstraints", "critical,permitted;DNS:example.com"}}, {},
         {}, false, {}, false, VEXA_ERR_UNPROCESSED_CRITICAL},
        {"critical policy on the sub-CA", {}, {}, {{"certificatePolicies", "critical,DER:30:05:30:03:06:01:2A"}}, {}, true, {}, false,
         VEXA_ERR_UNPROCESSED_CRITICAL},
        {"the root's own critical extensions bind nothing", unknownCritical, {}, {}, {}, false, {}, false, VEXA_OK},
        {"unknown extension not critical", {}, {}, {}, {{kUnknownCritical, "DER:05:00"}}, false, {}, false, VEXA_OK},
        {"processed extensions marked critical",
         {},
         {{"subjectKeyIdentifier", "critical,hash"}, {"authorityKeyIdentifier", "critical,DER:30:03:80:01:01"}},
         {},
         {{"subjectAltName", "critical,DNS:a.example"}, {"crlDistributionPoints", "critical,URI:http://a.example/c"},
          {"extendedKeyUsage", "critical,codeSigning"}},
         false, {}, false, VEXA_OK},
        {"pathlen 0 CA issued a sub-CA", {}, {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, {}, {}, true, {},
         false, VEXA_ERR_PATH_LENGTH},
        {"pathlen 1 CA issued a sub-CA", {}, {{"basicConstraints", "critical,CA:TRUE,pathlen:1"}}, {}, {}, true, {},
         false, VEXA_OK},
        {"pathlen 0 CA issued the leaf", {}, {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, {}, {}, false, {},
         false, VEXA_OK},
        {"the root's pathlen binds nothing", {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, {}, {}, {}, true,
         {}, false, VEXA_OK},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(Run(r), r.expect) << r.name;
    }
}

TEST_F(PathRules, CrlsThatCannotSpeakForTheCertificateAreNoCandidates)
{
    using namespace dertest;
    const Exts dpA = {{"crlDistributionPoints", "URI:http://a.example/c"}};
    std::string many;
    for (int i = 0; i < 39; i++) {
        many += "URI:http://d" + std::to_string(i) + ".example/c,";
    }
    const Exts manyDps = {{"crlDistributionPoints", many + "URI:http://a.example/c"}};
    /* CN=CA,CN=dp: the CA's name with the relative RDN added */
    const Bytes resolved = Seq({Set({CommonName("CA")}), Set({CommonName("dp")})});
    const auto relativeDp = [](const std::string &rdn) {
        return Exts{{"crlDistributionPoints", DerText(Seq({Seq({Explicit(0, Tlv(0xA1, CommonName(rdn)))})}), false)}};
    };
    const Exts fullDp = {{"crlDistributionPoints", DerText(Seq({Seq({Explicit(0, Explicit(0, Explicit(4, resolved)))})}), false)}};
    const Exts withCrlIssuer = {{"crlDistributionPoints",
                                 DerText(Seq({Seq({Explicit(0, Explicit(0, Text(0x86, "http://a.example/c"))),
                                                   Explicit(2, Explicit(4, Seq({Set({CommonName("CA")})})))})}),
                                         false)}};
    const Exts fullIdp = {{"issuingDistributionPoint", DerText(Seq({Explicit(0, Explicit(0, Explicit(4, resolved)))}), true)}};
    const Exts relativeIdp = {{"issuingDistributionPoint", DerText(Seq({Explicit(0, Tlv(0xA1, CommonName("dp")))}), true)}};
    const Row rows[] = {
        {"unknown critical CRL extension", {}, {}, {}, {}, false, {{kUnknownCritical, "critical,DER:05:00"}}, false,
         VEXA_ERR_NO_CRL},
        {"unknown CRL extension not critical", {}, {}, {}, {}, false, {{kUnknownCritical, "DER:05:00"}}, false,
         VEXA_OK},
        {"processed CRL extensions marked critical", {}, {}, {}, {}, false,
         {{"crlNumber", "critical,DER:02:01:05"}, {"authorityKeyIdentifier", "critical,DER:30:03:80:01:01"}}, false, VEXA_OK},
        {"delta CRL", {}, {}, {}, {}, false, {{"deltaCRL", "critical,DER:02:01:04"}}, false, VEXA_ERR_NO_CRL},
        {"critical entry extension", {}, {}, {}, {}, false, {}, false, VEXA_ERR_NO_CRL, kUnknownCritical},
        {"critical invalidity date on an entry", {}, {}, {}, {}, false, {}, false, VEXA_OK, "2.5.29.24"},
        {"only user certificates, for the leaf", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,onlyuser:TRUE"}}, false, VEXA_OK},
        {"only user certificates, for the CA", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,onlyuser:TRUE"}}, true, VEXA_ERR_NO_CRL},
        {"only CA certificates, for the CA", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,onlyCA:TRUE"}}, true, VEXA_OK},
        {"only CA certificates, for the leaf", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,onlyCA:TRUE"}}, false, VEXA_ERR_NO_CRL},
        {"only attribute certificates", {}, {}, {}, {}, false, {{"issuingDistributionPoint", "critical,onlyAA:TRUE"}},
         false, VEXA_ERR_NO_CRL},
        {"only some reasons", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,onlysomereasons:keyCompromise"}}, false, VEXA_ERR_NO_CRL},
        {"distribution point the leaf names", {}, {}, {}, dpA, false,
         {{"issuingDistributionPoint", "critical,fullname:URI:http://a.example/c"}}, false, VEXA_OK},
        {"distribution point the leaf does not name", {}, {}, {}, dpA, false,
         {{"issuingDistributionPoint", "critical,fullname:URI:http://b.example/c"}}, false, VEXA_ERR_NO_CRL},
        {"distribution point, leaf without any", {}, {}, {}, {}, false,
         {{"issuingDistributionPoint", "critical,fullname:URI:http://a.example/c"}}, false, VEXA_ERR_NO_CRL},
        {"relative name in the leaf, its resolved full name in the IDP", {}, {}, {}, relativeDp("dp"), false,
         fullIdp, false, VEXA_OK},
        {"another relative name in the leaf", {}, {}, {}, relativeDp("dq"), false, fullIdp, false, VEXA_ERR_NO_CRL},
        {"relative names on both sides", {}, {}, {}, relativeDp("dp"), false, relativeIdp, false, VEXA_OK},
        {"relative name in the IDP, its resolved full name in the leaf", {}, {}, {}, fullDp, false, relativeIdp,
         false, VEXA_OK},
        {"the named point is the 40th of the leaf's: only 32 are compared", {}, {}, {}, manyDps, false,
         {{"issuingDistributionPoint", "critical,fullname:URI:http://a.example/c"}}, false, VEXA_ERR_NO_CRL},
        {"the leaf's point names a CRL issuer of its own", {}, {}, {}, withCrlIssuer, false,
         {{"issuingDistributionPoint", "critical,fullname:URI:http://a.example/c"}}, false, VEXA_ERR_NO_CRL},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(Run(r), r.expect) << r.name;
    }
}

} // namespace
} // namespace testpki
