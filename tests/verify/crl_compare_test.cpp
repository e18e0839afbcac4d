// SPDX-License-Identifier: Apache-2.0
/* CRL summaries and their comparison: what a summary holds, when a list is
 * unusable, and the rule that lets a CRL disappear once the root has revoked
 * its signer. The verdicts that operations 1 and 2 pass on (unverified and
 * revoking summaries among them) are run through the tool by the scenarios. */
#include <gtest/gtest.h>

#include "pki/pki.h"
#include "support/verify_env.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;

/* A CRL file decoded in a context of its own that trusts the root, as the
 * tool sets them up. */
struct Decoded {
    explicit Decoded(const std::string &rel) : ctx(NewCtx())
    {
        const Bytes root = Fixture("pki/root.der");
        EXPECT_EQ(VexaVerifyAddCert(ctx.get(), root.data(), Len(root)), VEXA_OK);
        const Bytes data = Fixture(rel);
        code = VexaDecodeCrl(ctx.get(), data.data(), Len(data), &list);
    }
    ~Decoded()
    {
        if (code == VEXA_OK) {
            EXPECT_EQ(VexaCrlInfoListFree(ctx.get(), list), VEXA_OK);
        }
    }
    Ctx ctx;
    VexaCrlInfoList *list = reinterpret_cast<VexaCrlInfoList *>(1); /* cleared on failure */
    uint32_t code = 0;
};

class CrlCompareTest : public VerifyTest {};

TEST_F(CrlCompareTest, SummariesDescribeEachCrl)
{
    const Decoded good("crlfiles/good.der");
    ASSERT_EQ(good.code, VEXA_OK);
    EXPECT_EQ(good.list->size, 208u);
    ASSERT_EQ(good.list->count, 2u);
    const VexaCrlInfo *root = good.list->infos[0];
    const VexaCrlInfo *ca = good.list->infos[1];
    EXPECT_STREQ(root->issuerName, "C=XX,O=Checktool,CN=Checktool Development Root 1");
    EXPECT_STREQ(ca->issuerName, "C=XX,O=Checktool,CN=Checktool Development Code Signing CA");
    EXPECT_EQ(root->verified, 1u);
    EXPECT_EQ(ca->verified, 1u);
    EXPECT_EQ(root->thisUpdate, 1767225600);
    EXPECT_EQ(root->nextUpdate, 1767225600 + 365 * 86400);
    /* the root (serial 01) signs the root CRL, the CA (serial 0x1001) its
     * own; only the root's CRL lists its revoked serials */
    EXPECT_EQ(Bytes(root->signerSerial, root->signerSerial + root->signerSerialLen), Bytes({0x01}));
    EXPECT_EQ(Bytes(ca->signerSerial, ca->signerSerial + ca->signerSerialLen), Bytes({0x10, 0x01}));
    EXPECT_GE(root->rootRevokedCount, 1u);
    EXPECT_EQ(ca->rootRevoked, nullptr);
    /* the context is left at the thisUpdate of the last CRL with a signer */
    EXPECT_EQ(good.ctx->verifyTime, ca->thisUpdate);
}

TEST_F(CrlCompareTest, InputsThatDoNotDecode)
{
    for (const char *f : {"crlfiles/cmp_no_cert.der", "crlfiles/garbage.bin", "pki/int.der"}) {
        const Decoded d(f);
        EXPECT_EQ(d.code, VEXA_ERR_CRL_DECODE) << f;
        EXPECT_EQ(d.list, nullptr) << f;
    }
}

/* Faults that only the library reports: the tool checks each file against
 * itself first (the scenarios check_unverified and check_dup_issuer), so it
 * never compares these. */
TEST_F(CrlCompareTest, ComparisonFaults)
{
    const char *good = "crlfiles/good.der";
    const struct { const char *name; const char *a; const char *b; uint32_t code; uint32_t result; } cases[] = {
        {"same dates, B has one more issuer", good, "crlfiles/cmp_more_issuers.der", VEXA_OK, 2},
        {"an unverified summary only in B", good, "crlfiles/cmp_unverified.der", VEXA_ERR_CRL_UNVERIFIED, 3},
        {"an unverified summary only in A", "crlfiles/cmp_unverified.der", good, VEXA_ERR_CRL_UNVERIFIED, 3},
        {"one issuer named twice only in B", good, "crlfiles/cmp_dup_issuer.der", VEXA_ERR_CRL_DUP_ISSUER, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Decoded a(c.a);
        const Decoded b(c.b);
        ASSERT_EQ(a.code | b.code, VEXA_OK);
        uint32_t result = 99;
        EXPECT_EQ(VexaCrlCompare(a.ctx.get(), a.list, b.list, &result), c.code);
        EXPECT_EQ(result, c.result);
    }
}

/* The coverage rule looks up the serial of the certificate that signed the
 * missing CRL in the newer root CRL: a serial that merely looks alike
 * (another length) does not count, and no serial is never covered. */
TEST_F(CrlCompareTest, CoverageNeedsTheExactSignerSerial)
{
    const Decoded newer("crlfiles/cmp_root_revokes_int.der");
    const Decoded older("crlfiles/good.der");
    ASSERT_EQ(older.list->count, 2u);
    VexaCrlInfo *ca = older.list->infos[1];
    ASSERT_EQ(ca->signerSerialLen, 2u);
    uint32_t result = 99;
    ASSERT_EQ(VexaCrlCompare(newer.ctx.get(), newer.list, older.list, &result), VEXA_OK);
    EXPECT_EQ(result, 1u);
    ca->signerSerial[2] = ca->signerSerial[1];
    ca->signerSerial[1] = ca->signerSerial[0];
    ca->signerSerial[0] = 0;
    ca->signerSerialLen = 3;
    EXPECT_EQ(VexaCrlCompare(newer.ctx.get(), newer.list, older.list, &result), VEXA_ERR_CRL_NOT_COVERED);
    EXPECT_EQ(result, 3u);
    ca->signerSerialLen = 0;
    EXPECT_EQ(VexaCrlCompare(newer.ctx.get(), newer.list, older.list, &result), VEXA_ERR_CRL_NOT_COVERED);
}

} // namespace
