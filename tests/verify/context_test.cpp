// SPDX-License-Identifier: Apache-2.0
/* The verification context and its add operations: parameter checks, the
 * root-refusal rule of CRL input, what ends up in the store, the whole-file
 * forms, and the bounded lists of kept buffers and stored CRLs. */
#include <gtest/gtest.h>

#include "asn1/der_builder.h"
#include "asn1/log_capture.h"
#include "pki/pki.h"
#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "verify/input_decode.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;
using dertest::Cat;

static_assert(sizeof(VexaVerifyCtxParams) == 72, "the creation record is 72 bytes");

uint32_t Create(uint64_t size)
{
    VexaVerifyCtxParams params = {};
    params.size = size;
    VexaVerifyCtx *ctx = nullptr;
    const uint32_t ret = VexaVerifyCreateCtx(&ctx, &params);
    const bool consistent = (ret == VEXA_OK) == (ctx != nullptr);
    (void)VexaVerifyDestroyCtx(ctx);
    return consistent ? ret : VEXA_ERR_GENERIC;
}

class ContextTest : public VerifyTest {};

#define ROW(call, code) {#call, call, code}
constexpr uint32_t kNull = VEXA_ERR_NULL_CTX;
constexpr uint32_t kSize = VEXA_ERR_RECORD_SIZE;
constexpr uint32_t kParam = VEXA_ERR_PARAM;

/* Every public operation checks its context first (null, or a record that
 * was never created) and then refuses null arguments and zero lengths; no
 * failed call writes its verdict or result. */
TEST_F(ContextTest, EveryOperationChecksItsParameters)
{
    Ctx owned = NewCtx("crlfiles/good.der");
    VexaVerifyCtx *ctx = owned.get();
    VexaVerifyCtx forged = {};
    forged.size = 72;
    const Bytes good = Fixture("crlfiles/good.der");
    VexaCrlInfoList *list = nullptr;
    VexaCrlInfoList *scratch = nullptr;
    ASSERT_EQ(VexaDecodeCrl(ctx, good.data(), Len(good), &list), VEXA_OK);
    VexaCrlInfoList empty = {};
    empty.size = 208;
    const uint8_t *d = good.data();
    uint32_t v = 99;
    VexaVerifyCtxParams params = {};
    params.size = 72;
    VexaVerifyCtx *made = nullptr;
    const struct { const char *call; uint32_t got; uint32_t want; } cases[] = {
        ROW(Create(71), kSize), ROW(Create(73), kSize), ROW(Create(384), kSize), ROW(Create(72), VEXA_OK),
        ROW(VexaVerifyCreateCtx(nullptr, &params), kParam), ROW(VexaVerifyCreateCtx(&made, nullptr), kParam),
        ROW(VexaVerifyDestroyCtx(nullptr), kParam),
        /* one guard checks a context that was never created; each entry must call it */
        ROW(VexaVerifyAddCert(&forged, d, 9), kSize), ROW(VexaVerifyAddCert(nullptr, d, 9), kNull),
        ROW(VexaVerifyAddCrl(nullptr, d, 9), kNull), ROW(VexaVerifyAddCertFile(nullptr, "x"), kNull),
        ROW(VexaVerifyDetachSignatureBegin(nullptr, d, 9), kNull),
        ROW(VexaVerifyDetachSignatureUpdate(nullptr, d, 1), kNull),
        ROW(VexaVerifyDetachSignatureFinal(nullptr, &v), kNull),
        ROW(VexaVerifyDetachSignatureQuick(nullptr, "c", "s", &v), kNull),
        ROW(VexaDecodeCrl(nullptr, d, 9, &scratch), kNull), ROW(VexaCrlCompare(nullptr, list, list, &v), kNull),
        ROW(VexaVerifyAddCert(ctx, nullptr, 9), kParam), ROW(VexaVerifyAddCert(ctx, d, 0), kParam),
        ROW(VexaVerifyAddCrl(ctx, nullptr, 9), kParam), ROW(VexaVerifyAddCrl(ctx, d, 0), kParam),
        ROW(VexaVerifyAddCertFile(ctx, nullptr), kParam),
        /* the CRL file form checks its context its own way */
        ROW(VexaVerifyAddCrlFile(nullptr, "x"), kParam), ROW(VexaVerifyAddCrlFile(&forged, "x"), kSize),
        ROW(VexaVerifyAddCrlFile(ctx, nullptr), kParam),
        ROW(VexaVerifyDetachSignatureBegin(ctx, nullptr, 9), kParam),
        ROW(VexaVerifyDetachSignatureBegin(ctx, d, 0), kParam),
        ROW(VexaVerifyDetachSignatureUpdate(ctx, nullptr, 1), kParam),
        ROW(VexaVerifyDetachSignatureUpdate(ctx, d, 0), kParam),
        ROW(VexaVerifyDetachSignatureFinal(ctx, nullptr), kParam),
        ROW(VexaVerifyDetachSignatureQuick(ctx, nullptr, "s", &v), kParam),
        ROW(VexaVerifyDetachSignatureQuick(ctx, "c", nullptr, &v), kParam),
        ROW(VexaVerifyDetachSignatureQuick(ctx, "c", "s", nullptr), kParam),
        ROW(VexaDecodeCrl(ctx, d, 0, &scratch), kParam), ROW(VexaDecodeCrl(ctx, d, 9, nullptr), kParam),
        ROW(VexaCrlInfoListFree(ctx, nullptr), kParam), ROW(VexaCrlCompare(ctx, nullptr, list, &v), kParam),
        ROW(VexaCrlCompare(ctx, list, nullptr, &v), kParam), ROW(VexaCrlCompare(ctx, list, list, nullptr), kParam),
        ROW(VexaCrlCompare(ctx, &empty, list, &v), VEXA_ERR_CRL_LIST_EMPTY),
        ROW(VexaCrlCompare(ctx, list, &empty, &v), VEXA_ERR_CRL_LIST_EMPTY),
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.got, c.want) << c.call;
    }
    EXPECT_EQ(v, 99u);
    EXPECT_EQ(ctx->verifyHandles.count, 0u);
    EXPECT_EQ(VexaCrlInfoListFree(ctx, list), VEXA_OK);
}

/* What each add operation accepts and what lands in the store. (A CRL file
 * brings its certificates: the scenario sig_ts_no_certs_tsa_in_crlfile.) */
TEST_F(ContextTest, AddOperationsStoreOnlyWhatTheyMayTake)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes intCert = Fixture("pki/int.der");
    const Bytes rootCrl = Fixture("crl/root.crl");
    const Bytes intCrl = Fixture("crl/int.crl");
    /* message: a diagnostic that must be present, or null */
    const struct { const char *name; bool crlOp; Bytes input; uint32_t code, certs, crls; const char *message; }
    cases[] = {
        {"a root through AddCert is trusted", false, root, VEXA_OK, 1, 0, nullptr},
        {"CRLs through AddCert are decoded and dropped", false, Cat({intCert, rootCrl}), VEXA_OK, 1, 0, nullptr},
        {"CRL-only input to AddCert holds no certificate", false, rootCrl, VEXA_ERR_GENERIC, 0, 0, nullptr},
        {"certificate-only input to AddCrl is no CRL input", true, intCert, VEXA_ERR_CRL_DECODE, 0, 0, nullptr},
        {"CRL-only input to AddCrl is accepted with a warning", true, Cat({rootCrl, intCrl}), VEXA_OK, 0, 2,
         "Failed to add certificate into store."},
        {"a root inside CRL input is refused, the CRL kept", true, Cat({root, rootCrl}), VEXA_OK, 0, 1,
         "There is a root certificate, which is not allowed when add crl or cms."},
        {"37 bytes are too short", false, Bytes(root.begin(), root.begin() + 37), VEXA_ERR_INPUT_FORMAT, 0, 0, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Ctx ctx = NewCtx();
        logtest::Records().clear();
        const uint32_t code = c.crlOp ? VexaVerifyAddCrl(ctx.get(), c.input.data(), Len(c.input))
                                      : VexaVerifyAddCert(ctx.get(), c.input.data(), Len(c.input));
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(ctx->store->certs.count, c.certs);
        EXPECT_EQ(ctx->store->crls.count, c.crls);
        EXPECT_TRUE(c.message == nullptr || Logged(c.message));
        if (c.input.size() == 37) {
            EXPECT_EQ(ctx->decodedBuffers.count, 0u) << "nothing is kept of an input that is too short";
        }
    }
}

/* CRL summaries of CRLs the store already holds still find their signers.
 * Trusted input, PEM blocks and signatures share the context's 16 buffer
 * slots: a PEM block that finds no slot is dropped silently, DER input and
 * signatures fail, and the checks already pending still verify. */
TEST_F(ContextTest, HeldCrlsFindTheirSignersAndSixteenBufferSlotsAreShared)
{
    Ctx ctx = NewCtx("crlfiles/good.der");
    const uint32_t crls = ctx->store->crls.count;
    const Bytes root = Fixture("pki/root.der");
    const Bytes crlFile = Fixture("crlfiles/good.der");
    VexaCrlInfoList *list = nullptr;
    ASSERT_EQ(VexaDecodeCrl(ctx.get(), crlFile.data(), Len(crlFile), &list), VEXA_OK);
    ASSERT_EQ(list->count, 2u);
    EXPECT_EQ(list->infos[0]->verified + list->infos[1]->verified, 2u);
    EXPECT_EQ(ctx->store->crls.count, crls);
    EXPECT_EQ(VexaCrlInfoListFree(ctx.get(), list), VEXA_OK);

    const Bytes sig = Fixture("sig/no_signed_attrs.der");
    while (ctx->decodedBuffers.count < 15) {
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), sig.data(), Len(sig)), VEXA_OK);
    }
    const uint32_t pending = ctx->verifyHandles.count;
    const uint32_t held = ctx->store->certs.count;
    const std::string pem = ReadFile(Data("crlfiles/good.pem")); /* two CRLs, then a certificate */
    VexaList certList = {};
    VexaList crlList = {};
    EXPECT_EQ(InternalDecodeCertCrl(ctx.get(), reinterpret_cast<const uint8_t *>(pem.data()),
                                    static_cast<uint32_t>(pem.size()), &certList, &crlList),
              VEXA_OK);
    EXPECT_EQ(crlList.count, 1u);
    EXPECT_EQ(certList.count, 0u);
    VexaListFreeAll(&crlList, [](void *c) { VexaX509FreeCrl(static_cast<VexaX509Crl *>(c)); });
    EXPECT_EQ(ctx->decodedBuffers.count, 16u);
    EXPECT_EQ(VexaVerifyAddCert(ctx.get(), root.data(), Len(root)), VEXA_ERR_LIST_FULL);
    EXPECT_EQ(VexaVerifyAddCrl(ctx.get(), crlFile.data(), Len(crlFile)), VEXA_ERR_CRL_DECODE);
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), sig.data(), Len(sig)), VEXA_ERR_CMS_FORMAT);
    EXPECT_EQ(ctx->decodedBuffers.count, 16u);
    EXPECT_EQ(ctx->store->certs.count, held);
    EXPECT_EQ(ctx->verifyHandles.count, pending);
    const Bytes content = Fixture("content/content.bin");
    ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx.get(), content.data(), Len(content)), VEXA_OK);
    uint32_t verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx.get(), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

/* The store takes 16 CRLs; the next one is refused with the list's code,
 * the CRLs already added stay, and ones it holds are still accepted. The
 * first 16 come in one input: each input takes a buffer slot. */
TEST_F(ContextTest, SeventeenthCrlInTheStoreIsRefused)
{
    Ctx ctx = NewCtx();
    const testpki::Cert root = testpki::MakeCert({});
    Bytes crls[2];
    for (int i = 0; i < 17; i++) {
        testpki::CrlSpec def;
        def.issuer = root.get();
        def.issuerKey = testpki::SharedKey(2048);
        def.thisUpdate -= i;
        const Bytes der = testpki::Der(testpki::MakeCrl(def).get());
        crls[i / 16].insert(crls[i / 16].end(), der.begin(), der.end());
    }
    ASSERT_EQ(VexaVerifyAddCrl(ctx.get(), crls[0].data(), Len(crls[0])), VEXA_OK);
    EXPECT_EQ(ctx->store->crls.count, 16u);
    EXPECT_EQ(VexaVerifyAddCrl(ctx.get(), crls[1].data(), Len(crls[1])), VEXA_ERR_LIST_FULL);
    EXPECT_EQ(ctx->store->crls.count, 16u);
    EXPECT_EQ(VexaVerifyAddCrl(ctx.get(), crls[0].data(), Len(crls[0])), VEXA_OK);
}

/* The file forms read whole files of at most 2,000,000 bytes and hand them
 * to the memory forms, whose own codes then count. */
TEST_F(ContextTest, FileFormsReadWholeFilesUpToTheLimit)
{
    Ctx ctx = NewCtx();
    WriteFile("crls.der", Fixture("crlfiles/good.der"));
    WriteFile("empty", std::string());
    Bytes big = Fixture("crlfiles/good.der");
    big.resize(2000000, 0);
    WriteFile("limit", big);
    big.push_back(0);
    WriteFile("over", big);
    auto decodeFile = [&](const char *path) {
        VexaCrlInfoList *out = nullptr;
        const uint32_t ret = VexaDecodeCrlFile(ctx.get(), path, &out);
        EXPECT_EQ(out != nullptr, ret == VEXA_OK) << path;
        (void)VexaCrlInfoListFree(ctx.get(), out);
        return ret;
    };
    /* cert: AddCertFile (0x88300000: any code of the DER decoder); crl: AddCrlFile and DecodeCrlFile */
    const struct { const char *path; uint32_t cert, crl; } cases[] = {
        {"", VEXA_ERR_PARAM, VEXA_ERR_PARAM},
        {"missing", VEXA_ERR_FILE_OPEN, VEXA_ERR_FILE_OPEN},
        {"empty", VEXA_ERR_FILE_EMPTY, VEXA_ERR_FILE_EMPTY},
        {"over", VEXA_ERR_FILE_TOO_LARGE, VEXA_ERR_FILE_TOO_LARGE},
        {"limit", 0x88300000u, VEXA_ERR_CRL_DECODE},
        {"crls.der", VEXA_OK, VEXA_OK},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        const uint32_t cert = VexaVerifyAddCertFile(ctx.get(), c.path);
        EXPECT_EQ((cert & 0xFFF00000u) == 0x88300000u ? 0x88300000u : cert, c.cert) << std::hex << cert;
        EXPECT_EQ(VexaVerifyAddCrlFile(ctx.get(), c.path), c.crl);
        EXPECT_EQ(decodeFile(c.path), c.crl);
    }
}

} // namespace
