/* CRL selection, revocation and certificate verification at a given time. */
#include "tests/pki/pki_fixture.h"

namespace testpki {
namespace {

/* root (key 0) issues ca (key 1) issues leaf (key 0); CRLs by date. */
class Revocation : public PkiTest {
protected:
    void SetUp() override
    {
        PkiTest::SetUp();
        root_ = CaCert("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
        ca_ = CaCert("CN=CA", 2, root_.get(), SharedKey(2048, 0), SharedKey(2048, 1));
        sRoot_ = Add(root_.get());
        sCa_ = Add(ca_.get());
        ctx_->verifyTime = kT0;
    }

    Cert Leaf(long serial, bool ca = false, int64_t notAfter = kT0 + 365 * kDay)
    {
        CertSpec s;
        s.subject = "CN=Leaf" + std::to_string(serial);
        s.serial = serial;
        s.ca = ca ? 1 : -1;
        s.keyUsage = ca ? KU_KEY_CERT_SIGN | KU_CRL_SIGN : KU_DIGITAL_SIGNATURE;
        s.notAfter = notAfter;
        s.issuer = ca_.get();
        s.issuerKey = SharedKey(2048, 1);
        return MakeCert(s);
    }

    VexaX509Crl *CrlOf(X509 *issuer, EVP_PKEY *key, std::vector<RevokedSpec> revoked, int64_t nextUpdate,
                       bool indirect = false)
    {
        CrlSpec cs;
        cs.issuer = issuer;
        cs.issuerKey = key;
        cs.revoked = std::move(revoked);
        cs.nextUpdate = nextUpdate;
        cs.indirect = indirect;
        crlsMade_.push_back(MakeCrl(cs));
        return Add(crlsMade_.back().get());
    }

    uint32_t Verify(VexaX509Cert *cert, uint32_t crlMode, uint32_t *verdict)
    {
        return VexaPkiVerifyCert(ctx_, cert, 1, crlMode, verdict);
    }

    Cert root_, ca_;
    VexaX509Cert *sRoot_ = nullptr;
    VexaX509Cert *sCa_ = nullptr;
    std::vector<Crl> crlsMade_;
};

TEST_F(Revocation, RootVerifiesWithoutAnyCrl)
{
    uint32_t verdict = 0;
    EXPECT_EQ(Verify(sRoot_, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

TEST_F(Revocation, NoCrlNoPath)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    uint32_t verdict = 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_NO_CRL);
    EXPECT_EQ(verdict, 0u);
}

TEST_F(Revocation, ValidityBoundsAreInclusive)
{
    Cert leaf = Leaf(10, false, kT0);
    VexaX509Cert *l = Add(leaf.get());
    CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + kDay);
    CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay);
    uint32_t verdict = 0;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    ctx_->verifyTime = kT0 + 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_EXPIRED);
    EXPECT_EQ(verdict, 0u);
    ctx_->verifyTime = kT0 - 365 * kDay - 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_NOT_YET_VALID);
}

TEST_F(Revocation, ScoreOrderDecidesWhichCrlSpeaks)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay);
    /* current CRL not listing the leaf: 0x60; expired CRL listing it: 0xA0 */
    VexaX509Crl *current = CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + kDay);
    VexaX509Crl *expiredListing = CrlOf(ca_.get(), SharedKey(2048, 1), {{10, kT0 - 2 * kDay, -1}}, kT0 - kDay);
    EXPECT_EQ(InternalCrlGetScore(ctx_, current, l, sRoot_), 0x60u);
    EXPECT_EQ(InternalCrlGetScore(ctx_, expiredListing, l, sRoot_), 0xA0u);
    uint32_t verdict = 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_REVOKED) << "the expired CRL that lists it outranks";
    EXPECT_EQ(verdict, 0u);
}

TEST_F(Revocation, ExpiredCrlThatDoesNotListIsNoCandidate)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    VexaX509Crl *expired = CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 - kDay);
    EXPECT_EQ(InternalCrlGetScore(ctx_, expired, l, sRoot_), 0u);
    uint32_t verdict = 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_NO_CRL);
}

TEST_F(Revocation, EqualScoresTryTheFirstAdded)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay);
    /* both current and not listing: the first added is used and its
     * revocation-free verdict stands even though the second lists the leaf
     * with a later date (which would not revoke anyway in mode 0) */
    VexaX509Crl *first = CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + kDay);
    CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + 2 * kDay);
    VexaX509Crl *chosen = InternalFindBestCrlOfCert(ctx_, l, 0);
    EXPECT_EQ(chosen, first);
}

TEST_F(Revocation, RevocationDateAndReasonRules)
{
    const struct {
        const char *name;
        bool ca;
        uint32_t crlMode;
        int64_t revokedAt;
        int reason;
        uint32_t expect;
    } cases[] = {
        {"end entity, revoked later, mode 0: still valid at verifyTime", false, 0, kT0 + kDay, -1, VEXA_OK},
        {"end entity, revoked before, mode 0", false, 0, kT0 - kDay, -1, VEXA_ERR_REVOKED},
        {"end entity, revoked exactly at verifyTime", false, 0, kT0, -1, VEXA_ERR_REVOKED},
        {"end entity, revoked later, mode 1, no reason: at once", false, 1, kT0 + kDay, -1, VEXA_ERR_REVOKED},
        {"end entity, revoked later, mode 1, superseded", false, 1, kT0 + kDay, CRL_REASON_SUPERSEDED, VEXA_OK},
        {"CA, revoked later, superseded", true, 0, kT0 + kDay, CRL_REASON_SUPERSEDED, VEXA_OK},
        {"CA, revoked later, cessation", true, 0, kT0 + kDay, CRL_REASON_CESSATION_OF_OPERATION, VEXA_OK},
        {"CA, revoked later, affiliation changed", true, 0, kT0 + kDay, CRL_REASON_AFFILIATION_CHANGED, VEXA_OK},
        {"CA, revoked later, key compromise", true, 0, kT0 + kDay, CRL_REASON_KEY_COMPROMISE, VEXA_ERR_REVOKED},
        {"CA, revoked later, no reason", true, 0, kT0 + kDay, -1, VEXA_ERR_REVOKED},
        {"CA, revoked before, superseded", true, 0, kT0 - kDay, CRL_REASON_SUPERSEDED, VEXA_ERR_REVOKED},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        TearDown();
        SetUp();
        Cert leaf = Leaf(10, c.ca);
        VexaX509Cert *l = Add(leaf.get());
        CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay);
        CrlOf(ca_.get(), SharedKey(2048, 1), {{10, c.revokedAt, c.reason}}, kT0 + kDay);
        uint32_t verdict = 0;
        EXPECT_EQ(Verify(l, c.crlMode, &verdict), c.expect);
        EXPECT_EQ(verdict, c.expect == VEXA_OK ? 1u : 0u);
    }
}

TEST_F(Revocation, CrlWhoseSignerFailsIsSkippedForTheNext)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    /* a second CRL signer named like the CA, with its own key, that the
     * root has revoked; its CRL is added first and ties on score */
    CertSpec xs;
    xs.subject = "CN=CA";
    xs.serial = 3;
    xs.ca = 1;
    xs.keyUsage = KU_CRL_SIGN;
    xs.key = SharedKey(2048, 0);
    xs.issuer = root_.get();
    xs.issuerKey = SharedKey(2048, 0);
    Cert x = MakeCert(xs);
    Add(x.get());
    CrlOf(root_.get(), SharedKey(2048, 0), {{3, kT0 - kDay, -1}}, kT0 + kDay);
    VexaX509Crl *byRevoked = CrlOf(x.get(), SharedKey(2048, 0), {}, kT0 + kDay);
    VexaX509Crl *byCa = CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + kDay);
    EXPECT_EQ(InternalCrlGetScore(ctx_, byRevoked, l, sRoot_), 0x60u);
    EXPECT_EQ(InternalFindBestCrlOfCert(ctx_, l, 0), byCa);
    uint32_t verdict = 0;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

TEST_F(Revocation, AllCandidatesFailingGivesTheLastCode)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    /* the root revokes the CA: the CA's CRL has no verifiable signer */
    CrlOf(root_.get(), SharedKey(2048, 0), {{2, kT0 - kDay, -1}}, kT0 + kDay);
    CrlOf(ca_.get(), SharedKey(2048, 1), {}, kT0 + kDay);
    uint32_t verdict = 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_REVOKED);
    EXPECT_EQ(verdict, 0u);
    EXPECT_EQ(ctx_->crlError, VEXA_ERR_REVOKED);
}

TEST_F(Revocation, IndirectCrlFromAnotherIssuerCounts)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    /* the root's indirect CRL lists the leaf; no CRL of the CA at all */
    VexaX509Crl *indirect = CrlOf(root_.get(), SharedKey(2048, 0), {{10, kT0 - kDay, -1}}, kT0 + kDay, true);
    EXPECT_EQ(InternalCrlGetScore(ctx_, indirect, l, sRoot_), 0x10u | 0x40u | 0x80u);
    uint32_t verdict = 1;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_ERR_REVOKED);

    /* a non-indirect CRL of another issuer is no candidate */
    TearDown();
    SetUp();
    Cert leaf2 = Leaf(11);
    VexaX509Cert *l2 = Add(leaf2.get());
    VexaX509Crl *direct = CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay, false);
    EXPECT_EQ(InternalCrlGetScore(ctx_, direct, l2, sRoot_), 0u);
}

TEST_F(Revocation, IndirectCrlMakesTheWalkContinueToTheIssuer)
{
    Cert leaf = Leaf(10);
    VexaX509Cert *l = Add(leaf.get());
    CrlOf(root_.get(), SharedKey(2048, 0), {}, kT0 + kDay, true);
    /* the leaf is covered by the root's indirect CRL; the walk then reaches
     * the CA, which the same CRL covers too (it names the root as issuer) */
    uint32_t verdict = 0;
    EXPECT_EQ(Verify(l, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
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
