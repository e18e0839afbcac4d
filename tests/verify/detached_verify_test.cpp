/* Detached signatures through the library: Begin, Update, Final and Quick,
 * the handles they leave, streaming, and what a context keeps alive. */
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "asn1/log_capture.h"
#include "pki/pki.h"
#include "support/test_env.h"
#include "verify/verify_ctx.h"
#include "verify/verify_handle.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace {

using testenv::Bytes;

/* genTime of every fixture token: 2026-03-15 12:00:00 UTC */
constexpr int64_t kGenTime = 1773576000;

std::string Data(const std::string &rel)
{
    return std::string(TESTDATA_DIR) + "/" + rel;
}

Bytes Fixture(const std::string &rel)
{
    Bytes b = testenv::ReadBytes(Data(rel));
    EXPECT_FALSE(b.empty()) << rel;
    return b;
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

/* A context trusting the root with the given CRL file, as operation 3 sets
 * it up. */
class DetachedVerifyTest : public testenv::TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0); /* service failures are logged there */
        logtest::Records().clear();
        VexaLogSetObserver(logtest::Observe);
        ctx_ = NewCtx("crlfiles/good.der");
    }
    void TearDown() override
    {
        VexaLogSetObserver(nullptr);
        logtest::Records().clear();
        VexaVerifyDestroyCtx(ctx_);
        TempDirTest::TearDown();
    }

    static VexaVerifyCtx *NewCtx(const char *crlFile)
    {
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        VexaVerifyCtx *ctx = nullptr;
        EXPECT_EQ(VexaVerifyCreateCtx(&ctx, &params), VEXA_OK);
        const Bytes root = Fixture("pki/root.der");
        const Bytes crl = Fixture(crlFile);
        EXPECT_EQ(VexaVerifyAddCert(ctx, root.data(), Len(root)), VEXA_OK);
        EXPECT_EQ(VexaVerifyAddCrl(ctx, crl.data(), Len(crl)), VEXA_OK);
        return ctx;
    }

    /* Begin, then the content in pieces of `chunk` bytes (0: whole), Final. */
    static uint32_t Verify(VexaVerifyCtx *ctx, const Bytes &sig, const Bytes &content, size_t chunk,
                           uint32_t *verdict)
    {
        *verdict = 99;
        uint32_t ret = VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig));
        if (ret != VEXA_OK) {
            return ret;
        }
        const size_t step = chunk == 0 ? content.size() : chunk;
        for (size_t at = 0; at < content.size(); at += step) {
            const size_t n = std::min(step, content.size() - at);
            ret = VexaVerifyDetachSignatureUpdate(ctx, content.data() + at, static_cast<uint32_t>(n));
            if (ret != VEXA_OK) {
                return ret;
            }
        }
        return VexaVerifyDetachSignatureFinal(ctx, verdict);
    }

    VexaVerifyCtx *ctx_ = nullptr;
};

/* The verdict must not depend on how the content is cut, for signers with
 * and without signed attributes, and one changed byte must turn it. */
TEST_F(DetachedVerifyTest, VerdictDoesNotDependOnHowContentIsFed)
{
    const Bytes content = Fixture("content/content.bin");
    ASSERT_GT(content.size(), 64u);
    Bytes flipped = content;
    flipped[flipped.size() / 2] ^= 0x01;
    const Bytes changed = Fixture("content/content_changed.bin");
    const Bytes truncated(content.begin(), content.end() - 1);
    const struct {
        const char *name;
        const char *sig;
        const Bytes *content;
        uint32_t verdict;
    } cases[] = {
        {"signed attributes", "sig/valid.der", &content, 1},
        {"no signed attributes", "sig/no_signed_attrs.der", &content, 1},
        {"SHA-384 signer", "sig/sha384.der", &content, 1},
        {"SHA-512 signer", "sig/sha512.der", &content, 1},
        {"PEM under BEGIN CMS", "sig/valid_cms.pem", &content, 1},
        {"PEM under BEGIN PKCS7", "sig/valid_pkcs7.pem", &content, 1},
        {"one bit flipped", "sig/valid.der", &flipped, 0},
        {"the forge's changed content", "sig/valid.der", &changed, 0},
        {"last byte missing", "sig/valid.der", &truncated, 0},
        {"one bit flipped, no signed attributes", "sig/no_signed_attrs.der", &flipped, 0},
    };
    for (const auto &c : cases) {
        for (size_t chunk : {size_t{1}, size_t{7}, size_t{64}, size_t{4096}, size_t{0}}) {
            SCOPED_TRACE(std::string(c.name) + ", pieces of " + std::to_string(chunk));
            VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
            uint32_t verdict = 99;
            EXPECT_EQ(Verify(ctx, Fixture(c.sig), *c.content, chunk, &verdict), VEXA_OK);
            EXPECT_EQ(verdict, c.verdict);
            EXPECT_EQ(ctx->verifyTime, kGenTime);
            EXPECT_EQ(ctx->verifyHandles.count, 0u);
            VexaVerifyDestroyCtx(ctx);
        }
    }
}

/* Every fault of a signature is found by Begin, before any content. */
TEST_F(DetachedVerifyTest, BeginRefusesFaultySignatures)
{
    const struct {
        const char *sig;
        const char *crlFile;
        uint32_t code;
        const char *message = nullptr; /* a diagnostic that names the reason */
    } cases[] = {
        {"sig/no_token.der", "crlfiles/good.der", VEXA_ERR_PARAM},
        {"sig/imprint_over_content.der", "crlfiles/good.der", VEXA_ERR_TS_IMPRINT,
         "the timestamp not match with target cms."},
        {"sig/sha1_imprint.der", "crlfiles/good.der", VEXA_ERR_TS_DIGEST},
        {"sig/ts_gen_time_tampered.der", "crlfiles/good.der", VEXA_ERR_TS_SIGNATURE,
         "verify timestamp signature failed."},
        {"sig/ts_gen_time_tampered_no_attrs.der", "crlfiles/good.der", VEXA_ERR_TS_SIGNATURE},
        {"sig/ts_no_certs.der", "crlfiles/good.der", VEXA_ERR_TSA_NOT_FOUND},
        {"sig/tsa_codesign_eku.der", "crlfiles/good.der", VEXA_ERR_KEY_USAGE},
        {"sig/signer_ts_eku.der", "crlfiles/good.der", VEXA_ERR_KEY_USAGE},
        {"sig/signer_no_digital_signature.der", "crlfiles/good.der", VEXA_ERR_KEY_USAGE},
        {"sig/signer_eku_codesign_second.der", "crlfiles/good.der", VEXA_ERR_KEY_USAGE},
        {"sig/signer_expired_before.der", "crlfiles/good.der", VEXA_ERR_EXPIRED},
        {"sig/signer_not_yet_valid.der", "crlfiles/good.der", VEXA_ERR_NOT_YET_VALID},
        {"sig/unrelated_root.der", "crlfiles/good.der", VEXA_ERR_NO_ROOT},
        {"sig/sha1_cert.der", "crlfiles/good.der", VEXA_ERR_NO_ROOT},
        {"sig/sha1_digest.der", "crlfiles/good.der", VEXA_ERR_CMS_SIGNATURE},
        {"sig/three_certs.der", "crlfiles/good.der", VEXA_ERR_CMS_FORMAT},
        {"sig/two_signers.der", "crlfiles/good.der", VEXA_ERR_CMS_FORMAT},
        {"sig/valid.der", "crlfiles/signer_revoked.der", VEXA_ERR_REVOKED},
        {"sig/valid.der", "crlfiles/no_int_crl.der", VEXA_ERR_NO_CRL},
        {"sig/signer_expired_after.der", "crlfiles/good.der", VEXA_OK},
        {"sig/ts_with_root_cert.der", "crlfiles/good.der", VEXA_OK,
         "There is a root certificate, which is not allowed when add crl or cms."},
        {"sig/signing_time.der", "crlfiles/good.der", VEXA_OK},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.sig) + " with " + c.crlFile);
        VexaVerifyCtx *ctx = NewCtx(c.crlFile);
        const Bytes sig = Fixture(c.sig);
        logtest::Records().clear();
        EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig)), c.code);
        EXPECT_EQ(ctx->verifyHandles.count, c.code == VEXA_OK ? 1u : 0u);
        if (c.message != nullptr) {
            EXPECT_TRUE(Logged(c.message));
        }
        /* a failure leaves a chain of records ending at the public entry */
        if (c.code != VEXA_OK) {
            ASSERT_FALSE(logtest::Records().empty());
            EXPECT_EQ(logtest::Records().back().function, "VexaVerifyDetachSignatureBegin");
            EXPECT_EQ(logtest::Records().back().code, c.code);
        }
        /* released with whatever the failed verification left behind */
        VexaVerifyDestroyCtx(ctx);
    }
}

TEST_F(DetachedVerifyTest, ShortAndNonCmsSignatures)
{
    const Bytes sig = Fixture("sig/valid.der");
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sig.data(), 37), VEXA_ERR_INPUT_FORMAT);
    const Bytes notCms(38, 0x30);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, notCms.data(), Len(notCms)), VEXA_ERR_CMS_FORMAT);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sig.data(), Len(sig) - 1), VEXA_ERR_CMS_FORMAT);
    const std::string pkcs7NoEnd = "-----BEGIN PKCS7-----\n" + std::string(64, 'A') + "\n";
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, reinterpret_cast<const uint8_t *>(pkcs7NoEnd.data()),
                                             static_cast<uint32_t>(pkcs7NoEnd.size())),
              VEXA_ERR_CMS_FORMAT);
    EXPECT_EQ(ctx_->verifyHandles.count, 0u);
}

/* PEM signatures written with CR LF line ends verify like LF ones. */
TEST_F(DetachedVerifyTest, PemSignatureWithCrLfLineEnds)
{
    const Bytes content = Fixture("content/content.bin");
    for (const char *name : {"sig/valid_cms.pem", "sig/valid_pkcs7.pem"}) {
        SCOPED_TRACE(name);
        Bytes crlf;
        for (uint8_t b : Fixture(name)) {
            if (b == '\n') {
                crlf.push_back('\r');
            }
            crlf.push_back(b);
        }
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        uint32_t verdict = 99;
        EXPECT_EQ(Verify(ctx, crlf, content, 0, &verdict), VEXA_OK);
        EXPECT_EQ(verdict, 1u);
        VexaVerifyDestroyCtx(ctx);
    }
}

TEST_F(DetachedVerifyTest, ParameterChecks)
{
    const Bytes sig = Fixture("sig/valid.der");
    uint32_t verdict = 0;
    VexaVerifyCtx forged = {};
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(nullptr, sig.data(), Len(sig)), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(&forged, sig.data(), Len(sig)), VEXA_ERR_RECORD_SIZE);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, nullptr, 100), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sig.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(nullptr, sig.data(), 1), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, nullptr, 1), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, sig.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(nullptr, &verdict), VEXA_ERR_NULL_CTX);
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(&forged, &verdict), VEXA_ERR_RECORD_SIZE);
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureQuick(ctx_, nullptr, "s", &verdict), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureQuick(ctx_, "c", nullptr, &verdict), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureQuick(ctx_, "c", "s", nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaVerifyDetachSignatureQuick(nullptr, "c", "s", &verdict), VEXA_ERR_NULL_CTX);
}

/* Without pending checks Update has nothing to feed, while Final has nothing
 * to refuse: a second Final finds the handles gone. */
TEST_F(DetachedVerifyTest, UpdateAndFinalWithoutPendingChecks)
{
    const Bytes content = Fixture("content/content.bin");
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, content.data(), Len(content)), VEXA_ERR_NO_PENDING);
    uint32_t verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);

    Bytes changed = content;
    changed[0] ^= 0xFF;
    ASSERT_EQ(Verify(ctx_, Fixture("sig/valid.der"), changed, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 0u);
    verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, content.data(), Len(content)), VEXA_ERR_NO_PENDING);
}

/* Signers with signed attributes share one digest per hash algorithm;
 * signers without them each verify the content with their own RSA check. */
TEST_F(DetachedVerifyTest, RepeatedBeginSharesDigestHandlesButNotRsaHandles)
{
    const Bytes content = Fixture("content/content.bin");
    const struct {
        const char *sig;
        uint32_t handles;
        bool digest;
    } cases[] = {
        {"sig/valid.der", 1, true},
        {"sig/no_signed_attrs.der", 2, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.sig);
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        const Bytes sig = Fixture(c.sig);
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig)), VEXA_OK);
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig)), VEXA_OK);
        ASSERT_EQ(ctx->verifyHandles.count, c.handles);
        for (uint32_t i = 0; i < ctx->verifyHandles.count; i++) {
            const VexaVerifyHandle *h = static_cast<const VexaVerifyHandle *>(ctx->verifyHandles.items[i]);
            EXPECT_EQ(h->digestCtx != nullptr, c.digest);
            EXPECT_EQ(h->verifyCtx != nullptr, !c.digest);
        }
        ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx, content.data(), Len(content)), VEXA_OK);
        uint32_t verdict = 99;
        EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx, &verdict), VEXA_OK);
        EXPECT_EQ(verdict, 1u);
        VexaVerifyDestroyCtx(ctx);
    }
    /* a SHA-384 signer gets a digest handle of its own */
    const Bytes sha256 = Fixture("sig/valid.der");
    const Bytes sha384 = Fixture("sig/sha384.der");
    ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sha256.data(), Len(sha256)), VEXA_OK);
    ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sha384.data(), Len(sha384)), VEXA_OK);
    EXPECT_EQ(ctx_->verifyHandles.count, 2u);
    uint32_t verdict = 99;
    ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, content.data(), Len(content)), VEXA_OK);
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

/* A failed Begin leaves the handles of an earlier Begin pending; Final still
 * judges them. */
TEST_F(DetachedVerifyTest, FailedBeginKeepsEarlierHandles)
{
    const Bytes good = Fixture("sig/valid.der");
    const Bytes bad = Fixture("sig/imprint_over_content.der");
    const Bytes content = Fixture("content/content.bin");
    ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx_, good.data(), Len(good)), VEXA_OK);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, bad.data(), Len(bad)), VEXA_ERR_TS_IMPRINT);
    EXPECT_EQ(ctx_->verifyHandles.count, 1u);
    ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, content.data(), Len(content)), VEXA_OK);
    uint32_t verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

/* The certificates Begin takes into the store must not point into the
 * caller's bytes: the caller may release them before the context. */
TEST_F(DetachedVerifyTest, StoreOutlivesTheCallersSignatureBytes)
{
    const Bytes content = Fixture("content/content.bin");
    for (const char *name : {"sig/valid.der", "sig/valid_cms.pem"}) {
        SCOPED_TRACE(name);
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        const uint32_t before = ctx->store->certs.count;
        {
            Bytes sig = Fixture(name);
            ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig)), VEXA_OK);
            std::fill(sig.begin(), sig.end(), 0xA5);
        }
        EXPECT_GT(ctx->store->certs.count, before);
        /* a second signature finds its signer among the kept certificates */
        uint32_t verdict = 99;
        EXPECT_EQ(Verify(ctx, Fixture("sig/ts_no_certs.der"), content, 0, &verdict), VEXA_OK);
        EXPECT_EQ(verdict, 1u);
        VexaVerifyDestroyCtx(ctx);
    }
}

/* Releasing a context with checks still pending releases their digest and
 * RSA contexts too (the suite runs under LeakSanitizer). */
TEST_F(DetachedVerifyTest, DestroyReleasesPendingChecks)
{
    const Bytes content = Fixture("content/content.bin");
    for (const char *name : {"sig/valid.der", "sig/no_signed_attrs.der", "sig/valid_pkcs7.pem"}) {
        SCOPED_TRACE(name);
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        const Bytes sig = Fixture(name);
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig)), VEXA_OK);
        ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx, content.data(), Len(content)), VEXA_OK);
        EXPECT_EQ(ctx->verifyHandles.count, 1u);
        EXPECT_EQ(VexaVerifyDestroyCtx(ctx), VEXA_OK);
    }
}

/* Each signature given to Begin is kept by the context, so signatures share
 * the 16 buffer slots with the trusted input: the one that finds no slot is
 * refused, and the checks already pending still verify. */
TEST_F(DetachedVerifyTest, SignaturesShareTheContextsBufferSlots)
{
    const Bytes sig = Fixture("sig/no_signed_attrs.der");
    const uint32_t free = 16 - ctx_->decodedBuffers.count;
    for (uint32_t i = 0; i < free; i++) {
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sig.data(), Len(sig)), VEXA_OK) << "signature " << i + 1;
    }
    EXPECT_EQ(ctx_->verifyHandles.count, free);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx_, sig.data(), Len(sig)), VEXA_ERR_CMS_FORMAT);
    EXPECT_EQ(ctx_->verifyHandles.count, free);
    const Bytes content = Fixture("content/content.bin");
    ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx_, content.data(), Len(content)), VEXA_OK);
    uint32_t verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx_, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

/* Header of the DER element at `at`: its header length and content length. */
bool DerHeader(const Bytes &der, size_t at, size_t *header, size_t *length)
{
    if (at + 2 > der.size()) {
        return false;
    }
    const uint8_t first = der[at + 1];
    if (first < 0x80) {
        *header = 2;
        *length = first;
        return true;
    }
    const size_t n = first & 0x7F;
    if (n == 0 || n > 3 || at + 2 + n > der.size()) {
        return false;
    }
    *length = 0;
    for (size_t i = 0; i < n; i++) {
        *length = (*length << 8) | der[at + 2 + i];
    }
    *header = 2 + n;
    return true;
}

/* Offset of the signer's time-stamp token (the ContentInfo inside the
 * attribute's SET), or 0. */
size_t TokenOffset(const Bytes &sig)
{
    static const uint8_t kOid[] = {0x06, 0x0B, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x02, 0x0E};
    auto it = std::search(sig.begin(), sig.end(), std::begin(kOid), std::end(kOid));
    if (it == sig.end()) {
        return 0;
    }
    const size_t set = static_cast<size_t>(it - sig.begin()) + sizeof(kOid);
    size_t header = 0;
    size_t length = 0;
    return sig[set] == 0x31 && DerHeader(sig, set, &header, &length) ? set + header : 0;
}

/* A token that the decoder refuses, whatever part of it is broken, fails the
 * signer without leaking what was decoded before the fault. */
TEST_F(DetachedVerifyTest, UndecodableTokenIsRefused)
{
    const Bytes sig = Fixture("sig/valid.der");
    const size_t token = TokenOffset(sig);
    ASSERT_NE(token, 0u);
    size_t h = 0;
    size_t l = 0;
    /* ContentInfo { OID, [0] { SignedData { version, digestAlgorithms,
     * encapContentInfo, [0] certificates, signerInfos } } } */
    ASSERT_TRUE(DerHeader(sig, token, &h, &l));
    const size_t oid = token + h;
    ASSERT_TRUE(DerHeader(sig, oid, &h, &l));
    const size_t explicit0 = oid + h + l;
    ASSERT_EQ(sig[explicit0], 0xA0);
    ASSERT_TRUE(DerHeader(sig, explicit0, &h, &l));
    const size_t signedData = explicit0 + h;
    ASSERT_TRUE(DerHeader(sig, signedData, &h, &l));
    std::vector<size_t> fields;
    for (size_t at = signedData + h, end = signedData + h + l; at < end;) {
        fields.push_back(at);
        size_t fh = 0;
        size_t fl = 0;
        ASSERT_TRUE(DerHeader(sig, at, &fh, &fl));
        at += fh + fl;
    }
    ASSERT_EQ(fields.size(), 5u);
    ASSERT_EQ(sig[fields[3]], 0xA0);
    ASSERT_EQ(sig[fields[4]], 0x31);
    const struct {
        const char *name;
        size_t at;
        uint8_t tag;
    } cases[] = {
        {"SignedData not a SEQUENCE", signedData, 0x31},
        {"version not an INTEGER", fields[0], 0x04},
        {"encapContentInfo not a SEQUENCE", fields[2], 0x31},
        {"certificates under another tag", fields[3], 0xA3},
        {"signerInfos not a SET", fields[4], 0x04},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Bytes broken = sig;
        broken[c.at] = c.tag;
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx, broken.data(), Len(broken)), VEXA_ERR_CMS_DECODE);
        EXPECT_EQ(ctx->verifyHandles.count, 0u);
        VexaVerifyDestroyCtx(ctx);
    }
}

/* Quick reads the signature whole and streams the content file. */
TEST_F(DetachedVerifyTest, QuickVerifiesFiles)
{
    testenv::WriteFile("content", Fixture("content/content.bin"));
    testenv::WriteFile("changed", Fixture("content/content_changed.bin"));
    testenv::WriteFile("empty", std::string());
    const struct {
        const char *name;
        std::string content;
        std::string sig;
        uint32_t code;
        uint32_t verdict;
        uint32_t pending; /* handles left after the call */
    } cases[] = {
        {"verified", "content", Data("sig/valid.der"), VEXA_OK, 1, 0},
        {"verified without signed attributes", "content", Data("sig/no_signed_attrs.der"), VEXA_OK, 1, 0},
        {"content changed", "changed", Data("sig/valid.der"), VEXA_OK, 0, 0},
        {"empty content path after Begin", "", Data("sig/valid.der"), VEXA_ERR_PARAM, 0, 1},
        {"content file missing", "missing", Data("sig/valid.der"), VEXA_ERR_FILE_OPEN, 0, 1},
        {"empty content file leaves nothing to feed", "empty", Data("sig/valid.der"), VEXA_OK, 0, 0},
        {"signature file missing", "content", "missing", VEXA_ERR_FILE_OPEN, 0, 0},
        {"empty signature path", "content", "", VEXA_ERR_PARAM, 0, 0},
        {"faulty signature", "content", Data("sig/no_token.der"), VEXA_ERR_PARAM, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VexaVerifyCtx *ctx = NewCtx("crlfiles/good.der");
        uint32_t verdict = 99;
        EXPECT_EQ(VexaVerifyDetachSignatureQuick(ctx, c.content.c_str(), c.sig.c_str(), &verdict), c.code);
        EXPECT_EQ(verdict, c.verdict);
        EXPECT_EQ(ctx->verifyHandles.count, c.pending);
        VexaVerifyDestroyCtx(ctx);
    }
}

} // namespace
