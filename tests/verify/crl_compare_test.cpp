/* CRL summaries and their comparison: which list is newer, when a list is
 * unusable, and the rule that lets a CRL disappear once the root has revoked
 * its signer. */
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <deque>
#include <string>

#include "pki/pki.h"
#include "support/test_env.h"
#include "verify/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace {

using testenv::Bytes;

constexpr char kRootName[] = "C=XX,O=Checktool,CN=Checktool Development Root 1";
constexpr char kIntName[] = "C=XX,O=Checktool,CN=Checktool Development Code Signing CA";
constexpr int64_t kJan2026 = 1767225600;

Bytes Fixture(const std::string &rel)
{
    Bytes b = testenv::ReadBytes(std::string(TESTDATA_DIR) + "/" + rel);
    EXPECT_FALSE(b.empty()) << rel;
    return b;
}

/* One context per CRL file, holding the root, as the tool sets them up. */
struct Decoded {
    VexaVerifyCtx *ctx = nullptr;
    VexaCrlInfoList *list = nullptr;
    uint32_t code = 0;
};

class CrlCompareTest : public testenv::TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0); /* service failures are logged there */
    }
    void TearDown() override
    {
        for (Decoded &d : decoded_) {
            if (d.list != nullptr) {
                EXPECT_EQ(VexaCrlInfoListFree(d.ctx, d.list), VEXA_OK);
            }
            VexaVerifyDestroyCtx(d.ctx);
        }
        TempDirTest::TearDown();
    }

    VexaVerifyCtx *NewCtx()
    {
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        Decoded d;
        EXPECT_EQ(VexaVerifyCreateCtx(&d.ctx, &params), VEXA_OK);
        const Bytes root = Fixture("pki/root.der");
        EXPECT_EQ(VexaVerifyAddCert(d.ctx, root.data(), static_cast<uint32_t>(root.size())), VEXA_OK);
        decoded_.push_back(d);
        return d.ctx;
    }

    Decoded &DecodeFile(const std::string &rel)
    {
        VexaVerifyCtx *ctx = NewCtx();
        Decoded &d = decoded_.back();
        const Bytes data = Fixture(rel);
        d.list = reinterpret_cast<VexaCrlInfoList *>(1); /* must be cleared on failure */
        d.code = VexaDecodeCrl(ctx, data.data(), static_cast<uint32_t>(data.size()), &d.list);
        return d;
    }

    std::deque<Decoded> decoded_; /* references to entries stay valid */
};

TEST_F(CrlCompareTest, SummariesDescribeEachCrl)
{
    const Decoded &good = DecodeFile("crlfiles/good.der");
    ASSERT_EQ(good.code, VEXA_OK);
    ASSERT_NE(good.list, nullptr);
    EXPECT_EQ(good.list->size, 208u);
    ASSERT_EQ(good.list->count, 2u);
    const VexaCrlInfo *root = good.list->infos[0];
    const VexaCrlInfo *ca = good.list->infos[1];
    EXPECT_STREQ(root->issuerName, kRootName);
    EXPECT_STREQ(ca->issuerName, kIntName);
    EXPECT_EQ(root->verified, 1u);
    EXPECT_EQ(ca->verified, 1u);
    EXPECT_EQ(root->thisUpdate, kJan2026);
    EXPECT_EQ(root->nextUpdate, kJan2026 + 365 * 86400);
    /* the signer of the root CRL is the root (serial 01), of the CA's CRL the
     * CA (serial 0x1001); only the root's CRL lists its revoked serials */
    EXPECT_EQ(Bytes(root->signerSerial, root->signerSerial + root->signerSerialLen), Bytes({0x01}));
    EXPECT_EQ(Bytes(ca->signerSerial, ca->signerSerial + ca->signerSerialLen), Bytes({0x10, 0x01}));
    EXPECT_GE(root->rootRevokedCount, 1u);
    EXPECT_NE(root->rootRevoked, nullptr);
    EXPECT_EQ(ca->rootRevoked, nullptr);
    /* the context is left at the thisUpdate of the last CRL with a signer */
    EXPECT_EQ(good.ctx->verifyTime, ca->thisUpdate);

    const Decoded &revokes = DecodeFile("crlfiles/cmp_root_revokes_int.der");
    ASSERT_EQ(revokes.code, VEXA_OK);
    const VexaCrlInfo *newRoot = revokes.list->infos[0];
    bool listsCa = false;
    for (uint32_t i = 0; i < newRoot->rootRevokedCount; i++) {
        listsCa |= Bytes(newRoot->rootRevoked[i].bytes, newRoot->rootRevoked[i].bytes + newRoot->rootRevoked[i].len) ==
                   Bytes({0x10, 0x01});
    }
    EXPECT_TRUE(listsCa);
}

/* Records the store already holds are accepted again: a second decoding
 * in the same context gives the same summaries. */
TEST_F(CrlCompareTest, SameInputTwiceInOneContext)
{
    VexaVerifyCtx *ctx = NewCtx();
    const Bytes data = Fixture("crlfiles/good.der");
    VexaCrlInfoList *first = nullptr;
    VexaCrlInfoList *second = nullptr;
    ASSERT_EQ(VexaDecodeCrl(ctx, data.data(), static_cast<uint32_t>(data.size()), &first), VEXA_OK);
    ASSERT_EQ(VexaDecodeCrl(ctx, data.data(), static_cast<uint32_t>(data.size()), &second), VEXA_OK);
    ASSERT_EQ(first->count, 2u);
    ASSERT_EQ(second->count, 2u);
    for (uint32_t i = 0; i < 2; i++) {
        EXPECT_STREQ(first->infos[i]->issuerName, second->infos[i]->issuerName);
        EXPECT_EQ(second->infos[i]->verified, 1u);
    }
    uint32_t result = 99;
    EXPECT_EQ(VexaCrlCompare(ctx, first, second, &result), VEXA_OK);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(ctx->store->crls.count, 2u);
    VexaCrlInfoListFree(ctx, first);
    VexaCrlInfoListFree(ctx, second);
}

TEST_F(CrlCompareTest, CrlWithoutSignerGetsAnUnverifiedSummary)
{
    const Decoded &d = DecodeFile("crlfiles/cmp_unverified.der");
    ASSERT_EQ(d.code, VEXA_OK);
    ASSERT_EQ(d.list->count, 2u);
    const VexaCrlInfo *ca = d.list->infos[1];
    EXPECT_STREQ(ca->issuerName, kIntName);
    EXPECT_EQ(ca->verified, 0u);
    EXPECT_EQ(ca->signerSerialLen, 0u);
    EXPECT_EQ(d.list->infos[0]->verified, 1u);
}

TEST_F(CrlCompareTest, InputsThatDoNotDecode)
{
    const char *files[] = {"crlfiles/cmp_no_cert.der", "crlfiles/garbage.bin", "pki/int.der"};
    for (const char *f : files) {
        const Decoded &d = DecodeFile(f);
        EXPECT_EQ(d.code, VEXA_ERR_CRL_DECODE) << f;
        EXPECT_EQ(d.list, nullptr) << f;
    }
    VexaVerifyCtx *ctx = NewCtx();
    VexaCrlInfoList *out = nullptr;
    const Bytes crl = Fixture("crlfiles/good.der");
    EXPECT_EQ(VexaDecodeCrl(ctx, crl.data(), 0, &out), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaDecodeCrl(ctx, crl.data(), static_cast<uint32_t>(crl.size()), nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaDecodeCrl(nullptr, crl.data(), static_cast<uint32_t>(crl.size()), &out), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaCrlInfoListFree(ctx, nullptr), VEXA_ERR_PARAM);
}

TEST_F(CrlCompareTest, FileFormReadsUpToTwoMillionBytes)
{
    VexaVerifyCtx *ctx = NewCtx();
    testenv::WriteFile("empty", std::string());
    Bytes limit = Fixture("crlfiles/good.der");
    limit.resize(2000000, 0);
    testenv::WriteFile("limit", limit);
    limit.push_back(0);
    testenv::WriteFile("over", limit);
    testenv::WriteFile("good", Fixture("crlfiles/good.der"));
    const struct {
        const char *path;
        uint32_t code;
    } cases[] = {{"", VEXA_ERR_PARAM},           {"missing", VEXA_ERR_FILE_OPEN}, {"empty", VEXA_ERR_FILE_EMPTY},
                 {"over", VEXA_ERR_FILE_TOO_LARGE}, {"limit", VEXA_ERR_CRL_DECODE}, {"good", VEXA_OK}};
    for (const auto &c : cases) {
        VexaCrlInfoList *out = nullptr;
        EXPECT_EQ(VexaDecodeCrlFile(ctx, c.path, &out), c.code) << c.path;
        EXPECT_EQ(out != nullptr, c.code == VEXA_OK) << c.path;
        if (out != nullptr) {
            EXPECT_EQ(out->count, 2u);
            VexaCrlInfoListFree(ctx, out);
        }
    }
}

TEST_F(CrlCompareTest, ComparisonTellsWhichListIsNewer)
{
    const struct {
        const char *name;
        const char *a;
        const char *b;
        uint32_t code;
        uint32_t result;
    } cases[] = {
        {"a list with itself", "crlfiles/good.der", "crlfiles/good.der", VEXA_OK, 0},
        {"both CRLs newer in A", "crlfiles/cmp_newer.der", "crlfiles/good.der", VEXA_OK, 1},
        {"both CRLs newer in B", "crlfiles/good.der", "crlfiles/cmp_newer.der", VEXA_OK, 2},
        {"root CRL newer in A, CA CRL newer in B", "crlfiles/cmp_mixed.der", "crlfiles/good.der", VEXA_OK, 3},
        {"same dates, A has one more issuer", "crlfiles/cmp_more_issuers.der", "crlfiles/good.der", VEXA_OK, 1},
        {"same dates, B has one more issuer", "crlfiles/good.der", "crlfiles/cmp_more_issuers.der", VEXA_OK, 2},
        {"A drops the CA CRL, its root CRL revokes the CA", "crlfiles/cmp_root_revokes_int.der",
         "crlfiles/good.der", VEXA_OK, 1},
        {"B drops the CA CRL, its root CRL revokes the CA", "crlfiles/good.der",
         "crlfiles/cmp_root_revokes_int.der", VEXA_OK, 2},
        {"A drops the CA CRL without revoking the CA", "crlfiles/cmp_int_crl_dropped.der", "crlfiles/good.der",
         VEXA_ERR_CRL_NOT_COVERED, 3},
        {"an unverified summary", "crlfiles/cmp_unverified.der", "crlfiles/cmp_unverified.der",
         VEXA_ERR_CRL_UNVERIFIED, 3},
        {"an unverified summary only in B", "crlfiles/good.der", "crlfiles/cmp_unverified.der",
         VEXA_ERR_CRL_UNVERIFIED, 3},
        {"one issuer named twice", "crlfiles/cmp_dup_issuer.der", "crlfiles/cmp_dup_issuer.der",
         VEXA_ERR_CRL_DUP_ISSUER, 3},
        {"one issuer named twice only in B", "crlfiles/good.der", "crlfiles/cmp_dup_issuer.der",
         VEXA_ERR_CRL_DUP_ISSUER, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Decoded &a = DecodeFile(c.a);
        const Decoded &b = DecodeFile(c.b);
        ASSERT_EQ(a.code, VEXA_OK);
        ASSERT_EQ(b.code, VEXA_OK);
        uint32_t result = 99;
        EXPECT_EQ(VexaCrlCompare(a.ctx, a.list, b.list, &result), c.code);
        EXPECT_EQ(result, c.result);
    }
}

/* The coverage rule consults the newer list's root CRL for the serial of
 * the certificate that signed the missing CRL: a serial that merely looks
 * alike (another length) does not count. */
TEST_F(CrlCompareTest, CoverageNeedsTheExactSignerSerial)
{
    const Decoded &newer = DecodeFile("crlfiles/cmp_root_revokes_int.der");
    const Decoded &older = DecodeFile("crlfiles/good.der");
    ASSERT_EQ(newer.code, VEXA_OK);
    ASSERT_EQ(older.code, VEXA_OK);
    ASSERT_EQ(older.list->count, 2u);
    VexaCrlInfo *ca = older.list->infos[1];
    ASSERT_EQ(ca->signerSerialLen, 2u);
    uint32_t result = 99;
    ASSERT_EQ(VexaCrlCompare(newer.ctx, newer.list, older.list, &result), VEXA_OK);
    EXPECT_EQ(result, 1u);
    /* a leading zero octet makes it another serial */
    ca->signerSerial[2] = ca->signerSerial[1];
    ca->signerSerial[1] = ca->signerSerial[0];
    ca->signerSerial[0] = 0;
    ca->signerSerialLen = 3;
    EXPECT_EQ(VexaCrlCompare(newer.ctx, newer.list, older.list, &result), VEXA_ERR_CRL_NOT_COVERED);
    EXPECT_EQ(result, 3u);
    /* an older summary without a signer serial is never covered */
    ca->signerSerialLen = 0;
    EXPECT_EQ(VexaCrlCompare(newer.ctx, newer.list, older.list, &result), VEXA_ERR_CRL_NOT_COVERED);
}

TEST_F(CrlCompareTest, ParameterFaultsLeaveTheResultUnwritten)
{
    const Decoded &good = DecodeFile("crlfiles/good.der");
    ASSERT_EQ(good.code, VEXA_OK);
    VexaCrlInfoList empty = {};
    empty.size = 208;
    uint32_t result = 99;
    EXPECT_EQ(VexaCrlCompare(good.ctx, &empty, good.list, &result), VEXA_ERR_CRL_LIST_EMPTY);
    EXPECT_EQ(VexaCrlCompare(good.ctx, good.list, &empty, &result), VEXA_ERR_CRL_LIST_EMPTY);
    EXPECT_EQ(VexaCrlCompare(good.ctx, nullptr, good.list, &result), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaCrlCompare(good.ctx, good.list, nullptr, &result), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaCrlCompare(good.ctx, good.list, good.list, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaCrlCompare(nullptr, good.list, good.list, &result), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(result, 99u);
}

} // namespace
