// SPDX-License-Identifier: Apache-2.0
/* Detached signatures through the library: Begin, Update, Final and Quick,
 * the pending checks they leave, streaming, and what a context keeps alive.
 * Which signature fails with which code is run through the tool by the
 * scenarios. */
#include <gtest/gtest.h>

#include <algorithm>

#include "asn1/log_capture.h"
#include "pki/pki.h"
#include "support/verify_env.h"
#include "verify/verify_handle.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;

class DetachedVerifyTest : public VerifyTest {};

/* The verdict must not depend on how the content is cut, for signers with
 * and without signed attributes. (Every changed bit of a signer with signed
 * attributes is the tamper test's, PEM signatures are the scenarios'.) */
TEST_F(DetachedVerifyTest, VerdictDoesNotDependOnHowContentIsFed)
{
    const Bytes content = Fixture("content/content.bin");
    ASSERT_GT(content.size(), 64u);
    const Bytes truncated(content.begin(), content.end() - 1);
    const struct { const char *name; Bytes sig; const Bytes *content; uint32_t verdict; } cases[] = {
        {"signed attributes", Fixture("sig/valid.der"), &content, 1},
        {"no signed attributes", Fixture("sig/no_signed_attrs.der"), &content, 1},
        {"no signed attributes, last byte missing", Fixture("sig/no_signed_attrs.der"), &truncated, 0},
    };
    for (const auto &c : cases) {
        for (size_t chunk : {size_t{1}, size_t{7}, size_t{64}, size_t{4096}, size_t{0}}) {
            SCOPED_TRACE(std::string(c.name) + ", pieces of " + std::to_string(chunk));
            Ctx ctx = NewCtx("crlfiles/good.der");
            uint32_t verdict = 99;
            EXPECT_EQ(VerifyDetached(ctx.get(), c.sig, *c.content, chunk, &verdict), VEXA_OK);
            EXPECT_EQ(verdict, c.verdict);
            EXPECT_EQ(ctx->verifyTime, 1773576000) << "genTime of the token";
            EXPECT_EQ(ctx->verifyHandles.count, 0u);
        }
    }
}

/* Begin finds every fault before any content, leaves no pending check for
 * it, and its diagnostics end at the public entry with the code. */
TEST_F(DetachedVerifyTest, BeginRefusesFaultySignatures)
{
    const Bytes valid = Fixture("sig/valid.der");
    const std::string pkcs7NoEnd = "-----BEGIN PKCS7-----\n" + std::string(64, 'A') + "\n";
    const std::string pastEnd = "-----BEGIN CMS-----END CMS-----\n" + std::string(16, 'A');
    const std::string badBase64 = "-----BEGIN CMS-----\n Q" + std::string(16, 'A') + "\n-----END CMS-----";
    /* message: a diagnostic that names the reason, or null */
    const struct { const char *name; Bytes sig; uint32_t code; const char *message; } cases[] = {
        {"37 bytes, refused before anything is logged", Bytes(valid.begin(), valid.begin() + 37),
         VEXA_ERR_INPUT_FORMAT, nullptr},
        {"38 bytes that are no CMS", Bytes(38, 0x30), VEXA_ERR_CMS_FORMAT, nullptr},
        {"last byte missing", Bytes(valid.begin(), valid.end() - 1), VEXA_ERR_CMS_FORMAT, nullptr},
        {"PEM without its closing marker", Bytes(pkcs7NoEnd.begin(), pkcs7NoEnd.end()), VEXA_ERR_CMS_FORMAT, nullptr},
        {"PEM body that would start past its closing marker", Bytes(pastEnd.begin(), pastEnd.end()),
         VEXA_ERR_CMS_FORMAT, nullptr},
        {"PEM with malformed Base64", Bytes(badBase64.begin(), badBase64.end()), VEXA_ERR_CMS_FORMAT, nullptr},
        {"a root carried in the token is refused, not needed", Fixture("sig/ts_with_root_cert.der"), VEXA_OK,
         "There is a root certificate, which is not allowed when add crl or cms."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Ctx ctx = NewCtx("crlfiles/good.der");
        logtest::Records().clear();
        EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), c.sig.data(), Len(c.sig)), c.code);
        EXPECT_EQ(ctx->verifyHandles.count, c.code == VEXA_OK ? 1u : 0u);
        EXPECT_TRUE(c.message == nullptr || Logged(c.message));
        if (c.code == VEXA_ERR_INPUT_FORMAT) {
            EXPECT_TRUE(logtest::Records().empty());
        } else if (c.code != VEXA_OK) {
            ASSERT_FALSE(logtest::Records().empty());
            EXPECT_EQ(logtest::Records().back().function, "VexaVerifyDetachSignatureBegin");
            EXPECT_EQ(logtest::Records().back().code, c.code);
        }
    }
}

/* Without pending checks Update has nothing to feed, while Final has nothing
 * to refuse: a second Final finds the checks gone. */
TEST_F(DetachedVerifyTest, UpdateAndFinalWithoutPendingChecks)
{
    Ctx ctx = NewCtx("crlfiles/good.der");
    const Bytes content = Fixture("content/content.bin");
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx.get(), content.data(), Len(content)), VEXA_ERR_NO_PENDING);
    uint32_t verdict = 99;
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx.get(), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);

    Bytes changed = content;
    changed[0] ^= 0xFF;
    ASSERT_EQ(VerifyDetached(ctx.get(), Fixture("sig/valid.der"), changed, 0, &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 0u);
    EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx.get(), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    EXPECT_EQ(VexaVerifyDetachSignatureUpdate(ctx.get(), content.data(), Len(content)), VEXA_ERR_NO_PENDING);
}

/* Signers with signed attributes share one digest per hash algorithm;
 * signers without them each check the content with an RSA check of their
 * own. A failed Begin leaves the checks of earlier ones pending. Checks
 * still pending when the context is released go with it (the sanitizer
 * build runs LeakSanitizer). */
TEST_F(DetachedVerifyTest, PendingChecksOfRepeatedBegins)
{
    const struct { const char *name, *first, *second; uint32_t secondCode, pending; bool digest; } cases[] = {
        {"the same signer twice", "sig/valid.der", "sig/valid.der", VEXA_OK, 1, true},
        {"a SHA-384 signer gets a digest of its own", "sig/valid.der", "sig/sha384.der", VEXA_OK, 2, true},
        {"no signed attributes", "sig/no_signed_attrs.der", "sig/no_signed_attrs.der", VEXA_OK, 2, false},
        {"a failed Begin after a good one", "sig/valid.der", "sig/imprint_over_content.der", VEXA_ERR_TS_IMPRINT, 1,
         true},
    };
    const Bytes content = Fixture("content/content.bin");
    for (const auto &c : cases) {
        for (bool final : {true, false}) {
            SCOPED_TRACE(std::string(c.name) + (final ? "" : ", released while pending"));
            Ctx ctx = NewCtx("crlfiles/good.der");
            const Bytes first = Fixture(c.first);
            const Bytes second = Fixture(c.second);
            ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), first.data(), Len(first)), VEXA_OK);
            ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), second.data(), Len(second)), c.secondCode);
            ASSERT_EQ(ctx->verifyHandles.count, c.pending);
            for (uint32_t i = 0; i < ctx->verifyHandles.count; i++) {
                const VexaVerifyHandle *h = static_cast<const VexaVerifyHandle *>(ctx->verifyHandles.items[i]);
                EXPECT_EQ(h->digestCtx != nullptr, c.digest);
                EXPECT_EQ(h->verifyCtx != nullptr, !c.digest);
            }
            ASSERT_EQ(VexaVerifyDetachSignatureUpdate(ctx.get(), content.data(), Len(content)), VEXA_OK);
            if (final) {
                uint32_t verdict = 99;
                EXPECT_EQ(VexaVerifyDetachSignatureFinal(ctx.get(), &verdict), VEXA_OK);
                EXPECT_EQ(verdict, 1u);
            }
        }
    }
}

/* The certificates Begin takes into the store must not point into the
 * caller's bytes: the caller may release them before the context. */
TEST_F(DetachedVerifyTest, StoreOutlivesTheCallersSignatureBytes)
{
    Ctx ctx = NewCtx("crlfiles/good.der");
    const uint32_t before = ctx->store->certs.count;
    {
        Bytes sig = Fixture("sig/valid.der"); /* PEM is decoded into bytes of its own anyway */
        ASSERT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), sig.data(), Len(sig)), VEXA_OK);
        std::fill(sig.begin(), sig.end(), 0xA5);
    }
    EXPECT_GT(ctx->store->certs.count, before);
    /* a signature without certificates finds its signer among the kept ones */
    uint32_t verdict = 99;
    EXPECT_EQ(VerifyDetached(ctx.get(), Fixture("sig/ts_no_certs.der"), Fixture("content/content.bin"), 0, &verdict),
              VEXA_OK);
    EXPECT_EQ(verdict, 1u);
}

/* A token that the decoder refuses, whatever part of it is broken, fails the
 * signer without leaking what was decoded before the fault. The offsets are
 * those of the token in sig/valid.der, which the forge writes the same every
 * time (as the tamper test relies on). */
TEST_F(DetachedVerifyTest, UndecodableTokenIsRefused)
{
    const Bytes sig = Fixture("sig/valid.der");
    const struct { const char *name; size_t at; uint8_t was; uint8_t tag; } cases[] = {
        {"SignedData not a SEQUENCE", 2884, 0x30, 0x31},
        {"version not an INTEGER", 2888, 0x02, 0x04},
        {"encapContentInfo not a SEQUENCE", 2906, 0x30, 0x31},
        {"certificates under another tag", 3005, 0xA0, 0xA3},
        {"signerInfos not a SET", 4183, 0x31, 0x04},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Bytes broken = sig;
        ASSERT_EQ(broken.at(c.at), c.was);
        broken[c.at] = c.tag;
        Ctx ctx = NewCtx("crlfiles/good.der");
        EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), broken.data(), Len(broken)), VEXA_ERR_CMS_DECODE);
        EXPECT_EQ(ctx->verifyHandles.count, 0u);
    }
}

/* Quick reads the signature whole (as the file forms read their input) and
 * streams the content file. */
TEST_F(DetachedVerifyTest, QuickVerifiesFiles)
{
    WriteFile("content", Fixture("content/content.bin"));
    WriteFile("changed", Fixture("content/content_changed.bin"));
    WriteFile("empty", std::string());
    /* pending: checks left after the call */
    const struct { const char *name; std::string content, sig; uint32_t code, verdict, pending; } cases[] = {
        {"verified", "content", Data("sig/valid.der"), VEXA_OK, 1, 0},
        {"content changed", "changed", Data("sig/valid.der"), VEXA_OK, 0, 0},
        {"empty content path after Begin", "", Data("sig/valid.der"), VEXA_ERR_PARAM, 0, 1},
        {"content file missing", "missing", Data("sig/valid.der"), VEXA_ERR_FILE_OPEN, 0, 1},
        {"empty content file leaves nothing to feed", "empty", Data("sig/valid.der"), VEXA_OK, 0, 0},
        {"faulty signature", "content", Data("sig/no_token.der"), VEXA_ERR_PARAM, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Ctx ctx = NewCtx("crlfiles/good.der");
        uint32_t verdict = 99;
        EXPECT_EQ(VexaVerifyDetachSignatureQuick(ctx.get(), c.content.c_str(), c.sig.c_str(), &verdict), c.code);
        EXPECT_EQ(verdict, c.verdict);
        EXPECT_EQ(ctx->verifyHandles.count, c.pending);
    }
}

} // namespace
