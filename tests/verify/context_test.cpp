/* The verification context and its add operations: creation records, the
 * root-refusal rule of CRL input, what ends up in the store, the whole-file
 * forms and the bounded list of kept DER buffers. */
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <vector>

#include "asn1/log_capture.h"
#include "pki/pki.h"
#include "support/test_env.h"
#include "verify/verify_ctx.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;

Bytes Fixture(const std::string &rel)
{
    Bytes b = testenv::ReadBytes(std::string(TESTDATA_DIR) + "/" + rel);
    EXPECT_FALSE(b.empty()) << rel;
    return b;
}

Bytes Concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

uint32_t Len(const Bytes &b)
{
    return static_cast<uint32_t>(b.size());
}

bool Logged(const std::string &message)
{
    for (const logtest::Record &r : logtest::Records()) {
        if (r.message == message) {
            return true;
        }
    }
    return false;
}

/* A fresh context per test, the library's records captured, and a private
 * directory for the file forms. */
class ContextTest : public testenv::TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0); /* service failures are logged there */
        logtest::Records().clear();
        VexaLogSetObserver(logtest::Observe);
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        ASSERT_EQ(VexaVerifyCreateCtx(&ctx_, &params), VEXA_OK);
    }
    void TearDown() override
    {
        EXPECT_EQ(VexaVerifyDestroyCtx(ctx_), VEXA_OK);
        VexaLogSetObserver(nullptr);
        logtest::Records().clear();
        TempDirTest::TearDown();
    }
    uint32_t Certs() const { return ctx_->store->certs.count; }
    uint32_t Crls() const { return ctx_->store->crls.count; }
    uint32_t Buffers() const { return ctx_->decodedBuffers.count; }

    VexaVerifyCtx *ctx_ = nullptr;
};

TEST(ContextCreate, RefusesParameterRecordsOfTheWrongSize)
{
    static_assert(sizeof(VexaVerifyCtxParams) == 72, "the creation record is 72 bytes");
    const struct {
        uint64_t size;
        uint32_t code;
    } cases[] = {{71, VEXA_ERR_RECORD_SIZE}, {73, VEXA_ERR_RECORD_SIZE}, {0, VEXA_ERR_RECORD_SIZE},
                 {384, VEXA_ERR_RECORD_SIZE}, {72, VEXA_OK}};
    for (const auto &c : cases) {
        VexaVerifyCtxParams params = {};
        params.size = c.size;
        VexaVerifyCtx *ctx = nullptr;
        EXPECT_EQ(VexaVerifyCreateCtx(&ctx, &params), c.code) << "size " << c.size;
        EXPECT_EQ(ctx != nullptr, c.code == VEXA_OK) << "size " << c.size;
        EXPECT_EQ(VexaVerifyDestroyCtx(ctx), ctx != nullptr ? VEXA_OK : VEXA_ERR_PARAM);
    }
    VexaVerifyCtxParams params = {};
    params.size = 72;
    VexaVerifyCtx *ctx = nullptr;
    EXPECT_EQ(VexaVerifyCreateCtx(nullptr, &params), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyCreateCtx(&ctx, nullptr), VEXA_ERR_PARAM);
    EXPECT_STREQ(VexaGetVersion(), "2.0.650");
}

TEST(ContextCreate, OperationsRefuseAMissingOrForeignContext)
{
    const Bytes root = Fixture("pki/root.der");
    /* a record that was never created: its marker is not 384 */
    VexaVerifyCtx forged = {};
    forged.size = 72;
    EXPECT_EQ(VexaVerifyAddCert(nullptr, root.data(), Len(root)), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaVerifyAddCert(&forged, root.data(), Len(root)), VEXA_ERR_RECORD_SIZE);
    EXPECT_EQ(VexaVerifyAddCrl(nullptr, root.data(), Len(root)), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaVerifyAddCrl(&forged, root.data(), Len(root)), VEXA_ERR_RECORD_SIZE);
    EXPECT_EQ(VexaVerifyAddCertFile(nullptr, "x"), VEXA_ERR_NULL_CTX);
    /* the CRL file form checks its context differently */
    EXPECT_EQ(VexaVerifyAddCrlFile(nullptr, "x"), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCrlFile(&forged, "x"), VEXA_ERR_RECORD_SIZE);
    EXPECT_EQ(VexaVerifyDestroyCtx(nullptr), VEXA_ERR_PARAM);
}

TEST_F(ContextTest, NullDataAndZeroLengthAreParameterErrors)
{
    const Bytes root = Fixture("pki/root.der");
    EXPECT_EQ(VexaVerifyAddCert(ctx_, nullptr, 10), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCert(ctx_, root.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCrl(ctx_, nullptr, 10), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCrl(ctx_, root.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCertFile(ctx_, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyAddCrlFile(ctx_, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(Certs(), 0u);
    EXPECT_EQ(Buffers(), 0u);
}

/* What each add operation accepts and what lands in the store. */
TEST_F(ContextTest, AddOperationsStoreOnlyWhatTheyMayTake)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes intCert = Fixture("pki/int.der");
    const Bytes rootCrl = Fixture("crl/root.crl");
    const Bytes intCrl = Fixture("crl/int.crl");
    const struct {
        const char *name;
        bool crlOp;
        Bytes input;
        uint32_t code;
        uint32_t certs;
        uint32_t crls;
        const char *message; /* a diagnostic that must be present, or null */
    } cases[] = {
        {"a root through AddCert is trusted", false, root, VEXA_OK, 1, 0, nullptr},
        {"CRLs through AddCert are decoded and dropped", false, Concat({intCert, rootCrl}), VEXA_OK, 1, 0, nullptr},
        {"CRL-only input to AddCert holds no certificate", false, rootCrl, VEXA_ERR_GENERIC, 0, 0, nullptr},
        {"certificate-only input to AddCrl is no CRL input", true, intCert, VEXA_ERR_CRL_DECODE, 0, 0, nullptr},
        {"CRL-only input to AddCrl is accepted with a warning", true, Concat({rootCrl, intCrl}), VEXA_OK, 0, 2,
         "Failed to add certificate into store."},
        {"a root inside CRL input is refused, the CRL kept", true, Concat({root, rootCrl}), VEXA_OK, 0, 1,
         "There is a root certificate, which is not allowed when add crl or cms."},
        {"a CA certificate inside CRL input is kept", true, Concat({intCert, intCrl}), VEXA_OK, 1, 1, nullptr},
        {"37 bytes are too short for AddCert", false, Bytes(root.begin(), root.begin() + 37), VEXA_ERR_INPUT_FORMAT,
         0, 0, nullptr},
        {"37 bytes are no CRL input", true, Bytes(rootCrl.begin(), rootCrl.begin() + 37), VEXA_ERR_CRL_DECODE, 0, 0,
         nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        VexaVerifyCtx *ctx = nullptr;
        ASSERT_EQ(VexaVerifyCreateCtx(&ctx, &params), VEXA_OK);
        logtest::Records().clear();
        const uint32_t code = c.crlOp ? VexaVerifyAddCrl(ctx, c.input.data(), Len(c.input))
                                      : VexaVerifyAddCert(ctx, c.input.data(), Len(c.input));
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(ctx->store->certs.count, c.certs);
        EXPECT_EQ(ctx->store->crls.count, c.crls);
        if (c.message != nullptr) {
            EXPECT_TRUE(Logged(c.message));
        }
        EXPECT_EQ(VexaVerifyDestroyCtx(ctx), VEXA_OK);
    }
}

TEST_F(ContextTest, AddingTheSameRecordsTwiceKeepsOneCopy)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes crlFile = Fixture("crlfiles/good.der");
    ASSERT_EQ(VexaVerifyAddCert(ctx_, root.data(), Len(root)), VEXA_OK);
    ASSERT_EQ(VexaVerifyAddCert(ctx_, root.data(), Len(root)), VEXA_OK);
    EXPECT_EQ(Certs(), 1u);
    ASSERT_EQ(VexaVerifyAddCrl(ctx_, crlFile.data(), Len(crlFile)), VEXA_OK);
    const uint32_t certs = Certs();
    const uint32_t crls = Crls();
    EXPECT_GE(crls, 1u);
    ASSERT_EQ(VexaVerifyAddCrl(ctx_, crlFile.data(), Len(crlFile)), VEXA_OK);
    EXPECT_EQ(Certs(), certs);
    EXPECT_EQ(Crls(), crls);
    /* each DER input is kept, whether or not its records were new */
    EXPECT_EQ(Buffers(), 4u);
}

/* Each DER input takes one of the 16 buffer slots, kept until release; the
 * 17th input cannot be kept and fails before anything is decoded. */
TEST_F(ContextTest, SeventeenthDecodedBufferIsRefused)
{
    const Bytes root = Fixture("pki/root.der");
    for (int i = 0; i < 16; i++) {
        ASSERT_EQ(VexaVerifyAddCert(ctx_, root.data(), Len(root)), VEXA_OK) << "input " << i + 1;
    }
    EXPECT_EQ(Buffers(), 16u);
    EXPECT_EQ(VexaVerifyAddCert(ctx_, root.data(), Len(root)), VEXA_ERR_LIST_FULL);
    const Bytes crlFile = Fixture("crlfiles/good.der");
    EXPECT_EQ(VexaVerifyAddCrl(ctx_, crlFile.data(), Len(crlFile)), VEXA_ERR_CRL_DECODE);
    EXPECT_EQ(Buffers(), 16u);
    EXPECT_EQ(Certs(), 1u);
    EXPECT_EQ(Crls(), 0u);
}

/* The store takes 16 CRLs; the next one is refused with the list's code
 * and the CRLs already added stay. */
TEST_F(ContextTest, SeventeenthCrlInTheStoreIsRefused)
{
    const char *names[] = {
        "int", "int_bad_signature", "int_expired", "int_newer", "int_older", "int_revokes_signer",
        "int_revokes_signer_later", "intb", "root", "root_20_entries", "root_indirect",
        "root_int_keycompromise_later", "root_int_superseded_later", "root_newer", "root_newer_revokes_int",
        "root_revokes_int", "root_revokes_tsa_later",
    };
    Bytes sixteen;
    for (int i = 0; i < 16; i++) {
        const Bytes crl = Fixture(std::string("crl/") + names[i] + ".crl");
        sixteen.insert(sixteen.end(), crl.begin(), crl.end());
    }
    ASSERT_EQ(VexaVerifyAddCrl(ctx_, sixteen.data(), Len(sixteen)), VEXA_OK);
    EXPECT_EQ(Crls(), 16u);
    const Bytes last = Fixture(std::string("crl/") + names[16] + ".crl");
    EXPECT_EQ(VexaVerifyAddCrl(ctx_, last.data(), Len(last)), VEXA_ERR_LIST_FULL);
    EXPECT_EQ(Crls(), 16u);
    /* CRLs the store already holds are still accepted */
    const Bytes again = Fixture("crl/root.crl");
    EXPECT_EQ(VexaVerifyAddCrl(ctx_, again.data(), Len(again)), VEXA_OK);
}

TEST_F(ContextTest, FileFormsReadWholeFilesUpToTheLimit)
{
    const Bytes root = Fixture("pki/root.der");
    testenv::WriteFile("root.der", root);
    testenv::WriteFile("empty", std::string());
    testenv::WriteFile("limit", Bytes(2000000, 0));
    testenv::WriteFile("over", Bytes(2000001, 0));
    const struct {
        const char *path;
        uint32_t code;
    } cases[] = {
        {"", VEXA_ERR_PARAM},
        {"missing", VEXA_ERR_FILE_OPEN},
        {"empty", VEXA_ERR_FILE_EMPTY},
        {"over", VEXA_ERR_FILE_TOO_LARGE},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(VexaVerifyAddCertFile(ctx_, c.path), c.code) << "'" << c.path << "'";
        EXPECT_EQ(VexaVerifyAddCrlFile(ctx_, c.path), c.code) << "'" << c.path << "'";
    }
    EXPECT_EQ(Buffers(), 0u);
    /* 2,000,000 bytes are read and handed to the decoder, which refuses
     * zeros with its own code, not a file code */
    const uint32_t limit = VexaVerifyAddCertFile(ctx_, "limit");
    EXPECT_EQ(limit & 0xFFF00000u, 0x88300000u) << std::hex << limit;
    EXPECT_EQ(VexaVerifyAddCrlFile(ctx_, "limit"), VEXA_ERR_CRL_DECODE);
    EXPECT_EQ(Buffers(), 2u);
    EXPECT_EQ(VexaVerifyAddCertFile(ctx_, "root.der"), VEXA_OK);
    EXPECT_EQ(Certs(), 1u);
    testenv::WriteFile("crls.der", Fixture("crlfiles/good.der"));
    EXPECT_EQ(VexaVerifyAddCrlFile(ctx_, "crls.der"), VEXA_OK);
    EXPECT_GE(Crls(), 1u);
}

} // namespace
