// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include <openssl/evp.h>

#include "services/crypto_reuse.h"
#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "support/work_count.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;

using CryptoReuseTest = testenv::VerifyTest;

Bytes Text(const std::string &s) { return Bytes(s.begin(), s.end()); }

struct Parts { VexaBigInt e{}, n{}; };

/* The whole verification service once; the verdict, or 99 when there is
 * none. */
uint32_t Check(const Parts &key, uint32_t algorithm, const Bytes &msg, const Bytes &sig)
{
    VexaCryptoCtx *ctx = nullptr;
    uint32_t verdict = 99;
    uint32_t code = VexaRsaVerifyCreate(&ctx);
    code = code != VEXA_OK ? code : VexaRsaVerifyInit(ctx, &key.e, &key.n, algorithm);
    code = code != VEXA_OK ? code : VexaRsaVerifyUpdate(ctx, msg.data(), static_cast<uint32_t>(msg.size()));
    code = code != VEXA_OK ? code : VexaRsaVerifyFinal(ctx, sig.data(), static_cast<uint32_t>(sig.size()), &verdict);
    VexaRsaVerifyFree(ctx);
    EXPECT_EQ(code, VEXA_OK);
    return verdict;
}

/* The same exponent stepped by two: another key to the services, odd, so
 * usable, and not the one that made the signatures. */
Parts OtherExponent(const Parts &key, uint8_t e)
{
    Parts other = key;
    other.e.len = 1;
    other.e.bytes[0] = e;
    return other;
}

/* Each row runs after the rows above it, in one process: what it should
 * answer, and the keys built and RSA operations made for it. */
TEST_F(CryptoReuseTest, RepeatedKeysAndChecksAreMadeOnce)
{
    VexaCryptoReuseClear();
    EVP_PKEY *pkeyA = testpki::SharedKey(2048);
    EVP_PKEY *pkeyB = testpki::SharedKey(2048, 1);
    Parts a;
    Parts b;
    testpki::PublicParts(pkeyA, &a.e, &a.n);
    testpki::PublicParts(pkeyB, &b.e, &b.n);
    const Bytes one = Text("one");
    const Bytes two = Text("two");
    const Bytes a1 = testpki::SignData(pkeyA, EVP_sha256(), one);
    const Bytes a2 = testpki::SignData(pkeyA, EVP_sha256(), two);
    const Bytes three = Text("three");
    const Bytes a3 = testpki::SignData(pkeyA, EVP_sha256(), three);
    const Bytes b1 = testpki::SignData(pkeyB, EVP_sha256(), one);
    Bytes a1Flipped = a1;
    a1Flipped.back() ^= 1;
    const struct {
        const char *name;
        const Parts *key;
        uint32_t algorithm;
        const Bytes *msg;
        const Bytes *sig;
        uint32_t verdict, imports, checks;
    } rows[] = {
        {"first check with A: A built, one operation", &a, VEXA_CRYPTO_SHA256, &one, &a1, 1, 1, 1},
        {"the same check again: recalled", &a, VEXA_CRYPTO_SHA256, &one, &a1, 1, 0, 0},
        {"another message with A: key kept", &a, VEXA_CRYPTO_SHA256, &two, &a2, 1, 0, 1},
        {"a wrong signature: made once", &a, VEXA_CRYPTO_SHA256, &two, &a1, 0, 0, 1},
        {"and recalled as wrong", &a, VEXA_CRYPTO_SHA256, &two, &a1, 0, 0, 0},
        {"one bit of the signature changed", &a, VEXA_CRYPTO_SHA256, &one, &a1Flipped, 0, 0, 1},
        {"the same signature, another digest", &a, VEXA_CRYPTO_SHA384, &one, &a1, 0, 0, 1},
        {"the first check still recalled as good", &a, VEXA_CRYPTO_SHA256, &one, &a1, 1, 0, 0},
        {"a new check with A back under SHA-256", &a, VEXA_CRYPTO_SHA256, &three, &a3, 1, 0, 1},
        {"another key: built", &b, VEXA_CRYPTO_SHA256, &one, &b1, 1, 1, 1},
        {"A's signature under B's key", &b, VEXA_CRYPTO_SHA256, &one, &a1, 0, 0, 1},
        {"B's signature under A's key", &a, VEXA_CRYPTO_SHA256, &one, &b1, 0, 0, 1},
    };
    for (const auto &row : rows) {
        workcount::Start();
        EXPECT_EQ(Check(*row.key, row.algorithm, *row.msg, *row.sig), row.verdict) << row.name;
        const workcount::Counts done = workcount::Stop();
        EXPECT_EQ(done.keyImports, row.imports) << row.name;
        EXPECT_EQ(done.rsaChecks, row.checks) << row.name;
    }

    /* Past the kept keys' capacity every check is made, and still right. */
    for (uint8_t e = 3; e < 3 + 2 * 8; e += 2) {
        (void)Check(OtherExponent(b, e), VEXA_CRYPTO_SHA256, one, b1);
    }
    for (int round = 0; round < 2; round++) {
        workcount::Start();
        EXPECT_EQ(Check(OtherExponent(a, 3), VEXA_CRYPTO_SHA256, one, a1), 0u) << round;
        const workcount::Counts done = workcount::Stop();
        EXPECT_EQ(done.keyImports, 1u) << "not kept, built again " << round;
        EXPECT_EQ(done.rsaChecks, 1u) << "nor its verdict " << round;
    }

    /* After a clear a check costs what it does in a fresh process. */
    VexaCryptoReuseClear();
    workcount::Start();
    EXPECT_EQ(Check(a, VEXA_CRYPTO_SHA256, one, a1), 1u);
    const workcount::Counts cold = workcount::Stop();
    EXPECT_EQ(cold.keyImports, 1u);
    EXPECT_EQ(cold.rsaChecks, 1u);
}

} // namespace
