// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include <openssl/evp.h>

#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;
using testenv::Lines;
using testenv::LogMessages;

/* a private directory with the log directory the services write to */
using CryptoTest = testenv::VerifyTest;

Bytes Text(const std::string &s) { return Bytes(s.begin(), s.end()); }

/* A libcrypto RSA key and its public parts as the services take them. */
struct TestKey { EVP_PKEY *pkey; VexaBigInt n{}, e{}; };

TestKey Key(int bits)
{
    TestKey key{testpki::SharedKey(bits)};
    testpki::PublicParts(key.pkey, &key.e, &key.n);
    return key;
}

/* The whole verification service, the message in 7-byte pieces so a lost
 * piece shows, after a first init with another key and digest that the
 * second must replace; the verdict, or 99 when there is none. */
uint32_t Verify(const TestKey &key, uint32_t algorithm, const Bytes &msg, const Bytes &sig)
{
    VexaBigInt junkModulus{};
    junkModulus.len = 256;
    std::fill(junkModulus.bytes, junkModulus.bytes + junkModulus.len, 0xC5);
    VexaCryptoCtx *ctx = nullptr;
    uint32_t verdict = 99;
    uint32_t code = VexaRsaVerifyCreate(&ctx);
    code = code != VEXA_OK ? code : VexaRsaVerifyInit(ctx, &key.e, &junkModulus, VEXA_CRYPTO_SHA512);
    code = code != VEXA_OK ? code : VexaRsaVerifyUpdate(ctx, msg.data(), 1);
    code = code != VEXA_OK ? code : VexaRsaVerifyInit(ctx, &key.e, &key.n, algorithm);
    for (size_t at = 0; code == VEXA_OK && at < msg.size(); at += 7) {
        code = VexaRsaVerifyUpdate(ctx, msg.data() + at, static_cast<uint32_t>(std::min<size_t>(7, msg.size() - at)));
    }
    code = code != VEXA_OK ? code : VexaRsaVerifyFinal(ctx, sig.data(), static_cast<uint32_t>(sig.size()), &verdict);
    VexaRsaVerifyFree(ctx);
    EXPECT_EQ(code, VEXA_OK);
    return verdict;
}

TEST_F(CryptoTest, RefusedCallsGiveTheirOwnCodeAndMessage)
{
    const TestKey key = Key(2048);
    VexaCryptoCtx *digest = nullptr;
    VexaCryptoCtx *verify = nullptr;
    ASSERT_EQ(VexaDigestCreate(&digest), VEXA_OK);
    ASSERT_EQ(VexaDigestInit(digest, VEXA_CRYPTO_SHA256), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyCreate(&verify), VEXA_OK);
    const uint8_t data[8] = {0};
    uint8_t out[VEXA_DIGEST_MAX_LEN];
    uint32_t len = 0;
    VexaBigInt tooLong = key.n;
    tooLong.len = VEXA_BIGINT_MAX_LEN + 1;
    uint32_t verdict = 7;
    /* the two services answer the same mistakes with different codes */
    const struct { std::function<uint32_t()> call; uint32_t code; const char *message; } rows[] = {
        {[&] { return VexaDigestUpdate(digest, data, 0); }, VEXA_ERR_GENERIC, "invalid para."},
        {[&] { return VexaDigestFinal(digest, out, &len, nullptr); }, VEXA_ERR_PARAM, "input para is null."},
        {[&] { return VexaRsaVerifyCreate(nullptr); }, VEXA_ERR_GENERIC, "input ctx is null."},
        {[&] { return VexaRsaVerifyInit(verify, &key.e, &tooLong, VEXA_CRYPTO_SHA256); }, VEXA_ERR_PARAM,
         "input para is invalid."},
        {[&] { return VexaRsaVerifyUpdate(verify, data, 0); }, VEXA_ERR_PARAM, "input para is invalid."},
        {[&] { return VexaRsaVerifyFinal(verify, data, 8, nullptr); }, VEXA_ERR_PARAM, "r_result is null."},
        {[&] { return VexaRsaVerifyFinal(verify, data, 8, &verdict); }, VEXA_ERR_PARAM, "in para is invalid."},
        {[&] { return VexaDigestFree(nullptr), 0u; }, 0, "input para is null."},
        {[&] { return VexaRsaVerifyFree(nullptr), 0u; }, 0, "in para is null."},
    };
    Lines expected;
    for (const auto &row : rows) {
        EXPECT_EQ(row.call(), row.code) << row.message;
        expected.push_back(std::string("MAJOR ") + row.message);
    }
    EXPECT_EQ(verdict, 0u) << "a check that cannot be made is never a verdict of 1";
    ASSERT_EQ(VexaDigestUpdate(digest, data, 1), VEXA_OK) << "the digest still works after refused calls";
    EXPECT_EQ(VexaDigestFinal(digest, out, &len, &len), VEXA_OK);
    EXPECT_EQ(len, 32u);
    /* 63 is sha256WithRSAEncryption: a signature algorithm id, not a digest */
    for (uint32_t algorithm : {0u, 42u, 46u, 63u}) {
        EXPECT_EQ(VexaDigestInit(digest, algorithm), VEXA_ERR_CRYPTO) << algorithm;
        EXPECT_EQ(digest->mdCtx, nullptr) << "a failed init leaves no half-made digest";
        EXPECT_EQ(VexaRsaVerifyInit(verify, &key.e, &key.n, algorithm), VEXA_ERR_MALLOC) << algorithm;
        EXPECT_EQ(verify->pkey, nullptr) << "nor a key";
        expected.insert(expected.end(), {"MAJOR invalid algorithm.", "MAJOR _krt_get_openssl_evpmd failed.",
                                         "MAJOR invalid algorithm.", "MAJOR _krt_get_openssl_evpmd failed."});
    }
    VexaDigestFree(digest);
    VexaRsaVerifyFree(verify);
    EXPECT_EQ(LogMessages(testenv::kLogPath, true), expected);
    /* every line ends in two line feeds */
    EXPECT_NE(testenv::ReadFile(testenv::kLogPath).find("CHECK_TOOL: invalid para.\n\nCRL MAJOR root "),
              std::string::npos);
}

/* Signatures that verify, and faults of the signature itself; faults of key,
 * digest and content show in the certificate and signature tests above. */
TEST_F(CryptoTest, ShortSignatureIsZeroExtendedInFrontAndOtherLengthsFail)
{
    const TestKey key = Key(2048);
    Bytes msg;
    Bytes sig;
    for (int i = 0; i < 5000 && (sig.empty() || sig[0] != 0); i++) {
        msg = Text("message " + std::to_string(i));
        sig = testpki::SignData(key.pkey, EVP_sha256(), msg);
    }
    ASSERT_EQ(sig[0], 0) << "no signature with a leading zero byte found";
    Bytes longer = sig;
    longer.push_back(0);
    Bytes block = sig;
    block.resize(sig.size() + 8);
    const struct { const char *name; Bytes msg; Bytes sig; uint32_t verdict; } rows[] = {
        {"full 256 bytes", msg, sig, 1},
        {"leading zero dropped, 255 bytes", msg, Bytes(sig.begin() + 1, sig.end()), 1},
        {"250 bytes", msg, Bytes(sig.begin() + 6, sig.end()), 0},
        {"zero byte appended, 257 bytes", msg, longer, 0},
        {"one block too long, 264 bytes", msg, block, 0},
        {"longer than any modulus, 513 bytes", msg, Bytes(513, 0x5A), 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(Verify(key, VEXA_CRYPTO_SHA256, row.msg, row.sig), row.verdict) << row.name;
    }
    EXPECT_TRUE(LogMessages().empty()) << "a wrong signature is a verdict, not a failure";
}

} // namespace
