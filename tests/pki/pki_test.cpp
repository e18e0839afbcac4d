// SPDX-License-Identifier: Apache-2.0
/* The PKI of one context filled directly with certificates and CRLs made
 * by the test, so the store, path and CRL rules can be checked one at a
 * time. Whole paths with their CRLs run through operation 3 in the scenario
 * tests; here are the rules' edges. */
#include <gtest/gtest.h>

#include "pki/pki.h"
#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "vexa/vexa_result.h"

namespace testpki {
namespace {

class PkiTest : public ::testing::Test {
protected:
    /* A fresh context, set up again, for the next row of a table. */
    void Reset()
    {
        decoded_.Clear();
        owner_ = testenv::NewCtx();
        ctx_ = owner_.get();
        SetUp();
    }

    /* Decodes (the fixture keeps the bytes alive) and adds to the store. */
    VexaX509Cert *Add(X509 *cert)
    {
        VexaX509Cert *c = decoded_.Cert(cert);
        EXPECT_EQ(VexaPkiAddCert(ctx_, c), VEXA_OK);
        return c;
    }

    VexaX509Crl *Add(X509_CRL *crl)
    {
        VexaX509Crl *c = decoded_.Crl(crl);
        EXPECT_EQ(VexaPkiAddCrl(ctx_, c), VEXA_OK);
        return c;
    }

    testenv::Ctx owner_ = testenv::NewCtx();
    VexaVerifyCtx *ctx_ = owner_.get();
    Decoded decoded_; /* released before the context */
};

/* A certificate under `issuer` (self-signed when null), by default a CA with
 * keyCertSign and cRLSign; -1 and "" leave basicConstraints or keyUsage out. */
Cert Issued(const std::string &subject, long serial, X509 *issuer, EVP_PKEY *issuerKey, EVP_PKEY *key, int ca = 1,
            const char *keyUsage = "keyCertSign,cRLSign", int64_t notAfter = kT0 + 365 * kDay)
{
    CertSpec s;
    s.notAfter = notAfter;
    s.subject = subject;
    s.serial = serial;
    s.ca = ca;
    s.keyUsage = keyUsage;
    s.key = key;
    s.issuer = issuer;
    s.issuerKey = issuerKey;
    return MakeCert(s);
}

using Store = PkiTest;

TEST_F(Store, HoldsSixteenDistinctCertificatesWithOneReferenceEach)
{
    for (int i = 0; i < 17; i++) {
        Cert made = Issued("CN=C" + std::to_string(i), i + 1, nullptr, nullptr, nullptr, -1, "");
        VexaX509Cert *c = decoded_.Cert(made.get());
        EXPECT_EQ(VexaPkiAddCert(ctx_, c), i < 16 ? VEXA_OK : VEXA_ERR_LIST_FULL) << i;
        EXPECT_EQ(c->refCount, i < 16 ? 2u : 1u) << "the caller's reference and the store's, none on failure";
        if (i == 0) {
            /* the same signature value is the same certificate */
            VexaX509Cert *again = decoded_.Cert(made.get());
            EXPECT_EQ(VexaPkiAddCert(ctx_, again), VEXA_ERR_CERT_EXISTS);
            EXPECT_EQ(again->refCount, 1u);
        }
    }
    EXPECT_EQ(ctx_->store->certs.count, 16u);
}

TEST_F(Store, NamesCompareOnTheFirstAttributeOctetForOctet)
{
    const struct { const char *a; const char *b; bool equal; } cases[] = {
        {"C=XX,O=Org,CN=A", "C=XX,O=Org,CN=A", true},
        {"CN=A+OU=x", "CN=A", true},         /* only an RDN's first attribute counts (the scenarios' too) */
        {"CN=A", "CN=a", false},             /* no case folding */
        {"CN=A", "CN/P=A", false},           /* string type is part of the octets compared */
        {"O=Org,CN=A", "CN=A", false},       /* RDN count */
        {"O=Org,CN=A", "CN=A,O=Org", false}, /* order */
    };
    for (const auto &c : cases) {
        const VexaX509Cert *xa = decoded_.Cert(Issued(c.a, 1, nullptr, nullptr, nullptr, -1, "").get());
        const VexaX509Cert *xb = decoded_.Cert(Issued(c.b, 1, nullptr, nullptr, nullptr, -1, "").get());
        EXPECT_EQ(VexaX509NameCompare(&xa->tbsCertificate.subject, &xb->tbsCertificate.subject) == 0, c.equal)
            << c.a << " vs " << c.b;
    }
}

TEST_F(Store, CrlSignerNeedsCrlSignAndTheFirstAddedWins)
{
    /* a's key verifies the CRL, but without cRLSign that is not enough */
    Cert a = Issued("CN=Issuer", 1, nullptr, nullptr, nullptr, 1, "keyCertSign");
    Cert b = Issued("CN=Issuer", 2, nullptr, nullptr, nullptr);
    Cert c = Issued("CN=Issuer", 3, nullptr, nullptr, nullptr);
    Add(a.get());
    VexaX509Cert *sb = Add(b.get());
    Add(c.get());
    CrlSpec cs;
    cs.issuer = b.get();
    cs.issuerKey = SharedKey(2048);
    EXPECT_EQ(VexaPkiFindCrlSigner(ctx_, Add(MakeCrl(cs).get())), sb);
}

using PathBuild = PkiTest;

/* The bound also ends a walk through certificates that issued each other. */
TEST_F(PathBuild, RootSearchStopsAtElevenCertificates)
{
    for (int n : {11, 12}) {
        SCOPED_TRACE(n);
        Reset();
        /* root <- CA1 <- ... <- CA(n-1), keys alternating */
        Cert last = Issued("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
        VexaX509Cert *root = Add(last.get());
        VexaX509Cert *stored = root;
        for (int i = 1; i < n; i++) {
            last = Issued("CN=CA" + std::to_string(i), i + 1, last.get(), SharedKey(2048, (i - 1) % 2),
                          SharedKey(2048, i % 2));
            stored = Add(last.get());
        }
        EXPECT_EQ(InternalFindCertRoot(ctx_, stored, 0), n == 11 ? root : nullptr);
    }
}

TEST_F(PathBuild, IssuerMustBeACaWithKeyCertSign)
{
    Cert root = Issued("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
    const struct { const char *fault; int ca; const char *keyUsage; bool accepted; } cases[] = {
        {"none: CA with keyCertSign", 1, "keyCertSign", true},
        {"not marked CA", 0, "keyCertSign", false},
        {"no basicConstraints", -1, "keyCertSign", false},
        {"CA without keyCertSign", 1, "cRLSign", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fault);
        Reset();
        Cert issuer = Issued("CN=Issuer", 2, root.get(), SharedKey(2048, 0), SharedKey(2048, 1), c.ca, c.keyUsage);
        Cert leaf = Issued("CN=Leaf", 3, issuer.get(), SharedKey(2048, 1), nullptr, -1, "");
        VexaX509Cert *sIssuer = Add(issuer.get());
        EXPECT_EQ(InternalFindIssuer(ctx_, Add(leaf.get())), c.accepted ? sIssuer : nullptr);
    }
}

TEST_F(PathBuild, SelfSignedNeedsItsOwnSignatureButNoKeyUsage)
{
    Cert self = Issued("CN=Self", 1, nullptr, nullptr, nullptr, -1, "digitalSignature");
    /* same names, signed by another key: not self-signed */
    Cert forged = Issued("CN=Self", 1, nullptr, SharedKey(2048, 1), nullptr, -1, "digitalSignature");
    for (X509 *x : {self.get(), forged.get()}) {
        VexaX509Cert *c = decoded_.Cert(x);
        uint32_t flag = 99;
        EXPECT_EQ(InternalCheckSelfSigned(c, &flag), VEXA_OK);
        EXPECT_EQ(flag, x == self.get() ? 1u : 0u);
        EXPECT_EQ(c->verifiedIssuer, x == self.get() ? c : nullptr) << "a proven issuer is cached";
    }
}

TEST_F(PathBuild, AVerifiedIssuerIsNeverReplaced)
{
    Cert rootA = Issued("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
    Cert rootB = Issued("CN=Root", 2, nullptr, nullptr, SharedKey(2048, 0)); /* same key and name */
    Cert leaf = Issued("CN=Leaf", 3, rootA.get(), SharedKey(2048, 0), nullptr, -1, "");
    VexaX509Cert *a = Add(rootA.get());
    VexaX509Cert *b = Add(rootB.get());
    VexaX509Cert *l = decoded_.Cert(leaf.get());
    EXPECT_EQ(InternalCheckIssuer(l, a), 0);
    EXPECT_EQ(InternalCheckIssuer(l, b), static_cast<int32_t>(VEXA_ERR_ISSUER_SIGNATURE))
        << "B's key would verify, but A was proven first";
}

/* root (key 0) issues ca (key 1) issues leaf (key 0); CRLs by date. */
class Revocation : public PkiTest {
protected:
    void SetUp() override
    {
        root_ = Issued("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
        ca_ = Issued("CN=CA", 2, root_.get(), SharedKey(2048, 0), SharedKey(2048, 1));
        sRoot_ = Add(root_.get());
        Add(ca_.get());
        ctx_->verifyTime = kT0;
    }

    VexaX509Cert *Leaf(long serial, bool ca = false, int64_t notAfter = kT0 + 365 * kDay)
    {
        const Cert leaf = Issued("CN=Leaf" + std::to_string(serial), serial, ca_.get(), SharedKey(2048, 1), nullptr,
                                 ca ? 1 : -1, ca ? "keyCertSign,cRLSign" : "digitalSignature", notAfter);
        return Add(leaf.get());
    }

    VexaX509Crl *CrlOf(X509 *issuer, std::vector<RevokedSpec> revoked, int64_t nextUpdate, bool indirect = false)
    {
        CrlSpec cs;
        cs.issuer = issuer;
        cs.issuerKey = SharedKey(2048, issuer == ca_.get() ? 1 : 0);
        cs.revoked = std::move(revoked);
        cs.nextUpdate = nextUpdate;
        cs.indirect = indirect;
        return Add(MakeCrl(cs).get());
    }

    uint32_t Verify(VexaX509Cert *cert, uint32_t crlMode, uint32_t expectedVerdict)
    {
        uint32_t verdict = 99;
        const uint32_t code = VexaPkiVerifyCert(ctx_, cert, 1, crlMode, &verdict);
        EXPECT_EQ(verdict, expectedVerdict);
        return code;
    }

    Cert root_, ca_;
    VexaX509Cert *sRoot_ = nullptr;
};

TEST_F(Revocation, ValidityBoundsAreInclusiveAndARootNeedsNoCrl)
{
    EXPECT_EQ(Verify(sRoot_, 0, 1), VEXA_OK);
    VexaX509Cert *l = Leaf(10, false, kT0);
    CrlOf(ca_.get(), {}, kT0 + kDay);
    CrlOf(root_.get(), {}, kT0 + kDay);
    EXPECT_EQ(Verify(l, 0, 1), VEXA_OK);
    ctx_->verifyTime = kT0 + 1;
    EXPECT_EQ(Verify(l, 0, 0), VEXA_ERR_EXPIRED);
    ctx_->verifyTime = kT0 - 365 * kDay;
    EXPECT_EQ(Verify(l, 0, 1), VEXA_OK);
    ctx_->verifyTime = kT0 - 365 * kDay - 1;
    EXPECT_EQ(Verify(l, 0, 0), VEXA_ERR_NOT_YET_VALID);
}

/* A candidate scores by its relation to the issuer, its freshness and whether
 * it lists the certificate; the best one speaks. (The scenarios expired_crl
 * and no_intermediate_crl hold CRLs that are no candidates.) */
TEST_F(Revocation, ScoresRankTheCandidateCrls)
{
    VexaX509Cert *l = Leaf(10);
    const struct { const char *name; bool byCa; bool lists; int64_t nextUpdate; bool indirect; uint32_t score; }
    cases[] = {
        {"the issuer's, current", true, false, kT0 + kDay, false, 0x60},
        {"the issuer's, expired, listing: still speaks", true, true, kT0 - kDay, false, 0xA0},
        {"another issuer's, indirect, listing", false, true, kT0 + kDay, true,
         VEXA_CRL_SCORE_INDIRECT | VEXA_CRL_SCORE_CURRENT | VEXA_CRL_SCORE_LISTED},
    };
    for (const auto &c : cases) {
        std::vector<RevokedSpec> revoked;
        if (c.lists) {
            revoked.push_back({10, kT0 - 2 * kDay, -1});
        }
        VexaX509Crl *crl = CrlOf(c.byCa ? ca_.get() : root_.get(), revoked, c.nextUpdate, c.indirect);
        EXPECT_EQ(InternalCrlGetScore(ctx_, crl, l, sRoot_), c.score) << c.name;
    }
    EXPECT_EQ(Verify(l, 0, 0), VEXA_ERR_REVOKED) << "a listing CRL outranks the current one";
}

/* The scenario tests hold the other rows: revoked before, revoked later as an
 * end entity in mode 1 without a reason, and a CA revoked later as superseded
 * or for key compromise. */
TEST_F(Revocation, RevocationDateAndReasonRules)
{
    const struct { const char *name; bool ca; uint32_t crlMode; int64_t revokedAt; int reason; uint32_t expect; }
    cases[] = {
        {"end entity, revoked later, mode 0: still valid at verifyTime", false, 0, kT0 + kDay, -1, VEXA_OK},
        {"end entity, revoked exactly at verifyTime", false, 0, kT0, -1, VEXA_ERR_REVOKED},
        {"end entity, revoked later, mode 1, superseded", false, 1, kT0 + kDay, CRL_REASON_SUPERSEDED, VEXA_OK},
        {"CA, revoked later, cessation", true, 0, kT0 + kDay, CRL_REASON_CESSATION_OF_OPERATION, VEXA_OK},
        {"CA, revoked later, affiliation changed", true, 0, kT0 + kDay, CRL_REASON_AFFILIATION_CHANGED, VEXA_OK},
        {"CA, revoked later, no reason", true, 0, kT0 + kDay, -1, VEXA_ERR_REVOKED},
        {"CA, revoked before, superseded", true, 0, kT0 - kDay, CRL_REASON_SUPERSEDED, VEXA_ERR_REVOKED},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Reset();
        VexaX509Cert *l = Leaf(10, c.ca);
        CrlOf(root_.get(), {}, kT0 + kDay);
        CrlOf(ca_.get(), {{10, c.revokedAt, c.reason}}, kT0 + kDay);
        EXPECT_EQ(Verify(l, c.crlMode, c.expect == VEXA_OK ? 1 : 0), c.expect);
    }
}

/* Of equal scores the first added is tried first, and one whose signer fails
 * is skipped for the next. */
TEST_F(Revocation, CrlWhoseSignerFailsIsSkippedForTheNext)
{
    VexaX509Cert *l = Leaf(10);
    /* a second CRL signer named like the CA, with its own key, that the
     * root has revoked; its CRL is added first and ties on score */
    Cert x = Issued("CN=CA", 3, root_.get(), SharedKey(2048, 0), SharedKey(2048, 0));
    Add(x.get());
    CrlOf(root_.get(), {{3, kT0 - kDay, -1}}, kT0 + kDay);
    VexaX509Crl *byRevoked = CrlOf(x.get(), {}, kT0 + kDay);
    VexaX509Crl *byCa = CrlOf(ca_.get(), {}, kT0 + kDay);
    CrlOf(ca_.get(), {}, kT0 + 2 * kDay);
    EXPECT_EQ(InternalCrlGetScore(ctx_, byRevoked, l, sRoot_), 0x60u);
    EXPECT_EQ(InternalFindBestCrlOfCert(ctx_, l, 0), byCa);
    EXPECT_EQ(Verify(l, 0, 1), VEXA_OK);
}

TEST_F(Revocation, NestingDeeperThanElevenFails)
{
    ctx_->pathDepth = 11;
    uint32_t verdict = 1;
    EXPECT_EQ(VexaPkiVerifyCert(ctx_, sRoot_, 0, 0, &verdict), VEXA_ERR_PATH_TOO_DEEP);
    EXPECT_EQ(ctx_->pathDepth, 11) << "the depth is left as it was";
    EXPECT_EQ(verdict, 0u);
    ctx_->pathDepth = 10;
    EXPECT_EQ(VexaPkiVerifyCert(ctx_, sRoot_, 0, 0, &verdict), VEXA_OK);
    EXPECT_EQ(ctx_->pathDepth, 10);
}

} // namespace
} // namespace testpki
