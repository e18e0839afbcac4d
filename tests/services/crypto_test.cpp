#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>

#include "support/test_env.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;
using testenv::LogMessages;
using Messages = std::vector<std::string>;

class CryptoTest : public testenv::TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0);
    }
};

Bytes FromHex(const std::string &hex)
{
    Bytes out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

Bytes Text(const std::string &s) { return Bytes(s.begin(), s.end()); }

/* An RSA key made by libcrypto, with its public parts as the services take
 * them. Keys are made once per binary: 4096-bit generation is slow. */
struct TestKey {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> pkey{nullptr, EVP_PKEY_free};
    VexaBigInt n{};
    VexaBigInt e{};
};

void ExportPart(const EVP_PKEY *pkey, const char *name, VexaBigInt *out)
{
    BIGNUM *bn = nullptr;
    ASSERT_EQ(EVP_PKEY_get_bn_param(pkey, name, &bn), 1);
    ASSERT_LE(BN_num_bytes(bn), static_cast<int>(VEXA_BIGINT_MAX_LEN));
    out->len = static_cast<uint32_t>(BN_bn2bin(bn, out->bytes));
    BN_free(bn);
}

const TestKey &Key(int bits)
{
    static TestKey keys[3];
    TestKey &key = keys[bits == 2048 ? 0 : bits == 3072 ? 1 : 2];
    if (key.pkey == nullptr) {
        key.pkey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(bits)));
        EXPECT_NE(key.pkey, nullptr);
        ExportPart(key.pkey.get(), OSSL_PKEY_PARAM_RSA_N, &key.n);
        ExportPart(key.pkey.get(), OSSL_PKEY_PARAM_RSA_E, &key.e);
    }
    return key;
}

const EVP_MD *Md(uint32_t algorithm) { return _krt_get_openssl_evpmd(algorithm); }

Bytes Sign(const TestKey &key, uint32_t algorithm, const Bytes &msg)
{
    Bytes sig(VEXA_BIGINT_MAX_LEN);
    size_t len = sig.size();
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    EXPECT_EQ(EVP_DigestSignInit(ctx, nullptr, Md(algorithm), nullptr, key.pkey.get()), 1);
    EXPECT_EQ(EVP_DigestSign(ctx, sig.data(), &len, msg.data(), msg.size()), 1);
    EVP_MD_CTX_free(ctx);
    sig.resize(len);
    return sig;
}

struct Outcome {
    uint32_t code;
    uint32_t verdict;
};

/* Runs the whole verification service; the message goes in 7-byte pieces
 * so a lost piece shows. */
Outcome Verify(const TestKey &key, uint32_t algorithm, const Bytes &msg, const Bytes &sig)
{
    VexaCryptoCtx *ctx = nullptr;
    Outcome out{VexaRsaVerifyCreate(&ctx), 99};
    if (out.code == VEXA_OK) {
        out.code = VexaRsaVerifyInit(ctx, &key.e, &key.n, algorithm);
    }
    for (size_t at = 0; out.code == VEXA_OK && at < msg.size(); at += 7) {
        uint32_t piece = static_cast<uint32_t>(std::min<size_t>(7, msg.size() - at));
        out.code = VexaRsaVerifyUpdate(ctx, msg.data() + at, piece);
    }
    if (out.code == VEXA_OK) {
        out.code = VexaRsaVerifyFinal(ctx, sig.data(), static_cast<uint32_t>(sig.size()), &out.verdict);
    }
    VexaRsaVerifyFree(ctx);
    return out;
}

TEST_F(CryptoTest, DigestMatchesStandardVectorsWhenFedInPieces)
{
    struct Row {
        uint32_t algorithm;
        std::vector<std::string> pieces;
        const char *hex;
    } rows[] = {
        {VEXA_CRYPTO_SHA256, {"abc"}, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {VEXA_CRYPTO_SHA256, {"abcdbcdecdefdefg", "efghfghighijhijkijkljklmklmnlmno", "mnopnopq"},
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {VEXA_CRYPTO_SHA384, {"a", "b", "c"},
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded163"
         "1a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
        {VEXA_CRYPTO_SHA512, {"ab", "c"},
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
         "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.hex);
        VexaCryptoCtx *ctx = nullptr;
        ASSERT_EQ(VexaDigestCreate(&ctx), VEXA_OK);
        EXPECT_EQ(ctx->size, sizeof(VexaCryptoCtx));
        ASSERT_EQ(VexaDigestInit(ctx, row.algorithm), VEXA_OK);
        for (const std::string &piece : row.pieces) {
            ASSERT_EQ(VexaDigestUpdate(ctx, reinterpret_cast<const uint8_t *>(piece.data()),
                                       static_cast<uint32_t>(piece.size())),
                      VEXA_OK);
        }
        uint8_t digest[VEXA_DIGEST_MAX_LEN];
        uint32_t len = 0;
        ASSERT_EQ(VexaDigestFinal(ctx, digest, &len, &len), VEXA_OK);
        EXPECT_EQ(Bytes(digest, digest + len), FromHex(row.hex));
        VexaDigestFree(ctx);
    }
    EXPECT_TRUE(LogMessages().empty());
}

TEST_F(CryptoTest, UnknownAlgorithmFailsBothInits)
{
    const TestKey &key = Key(2048);
    /* 63 is sha256WithRSAEncryption: a signature algorithm id, not a digest. */
    for (uint32_t algorithm : {0u, 42u, 46u, 63u}) {
        SCOPED_TRACE(algorithm);
        VexaCryptoCtx *ctx = nullptr;
        ASSERT_EQ(VexaDigestCreate(&ctx), VEXA_OK);
        EXPECT_EQ(VexaDigestInit(ctx, algorithm), VEXA_ERR_CRYPTO);
        EXPECT_EQ(ctx->mdCtx, nullptr);
        VexaDigestFree(ctx);
        ASSERT_EQ(VexaRsaVerifyCreate(&ctx), VEXA_OK);
        EXPECT_EQ(VexaRsaVerifyInit(ctx, &key.e, &key.n, algorithm), VEXA_ERR_MALLOC);
        EXPECT_EQ(ctx->pkey, nullptr);
        VexaRsaVerifyFree(ctx);
    }
    const Messages once = {"invalid algorithm.", "_krt_get_openssl_evpmd failed."};
    Messages expected;
    for (int i = 0; i < 8; i++) {
        expected.insert(expected.end(), once.begin(), once.end());
    }
    EXPECT_EQ(LogMessages(), expected);
}

TEST_F(CryptoTest, RefusedCallsGiveTheirOwnCodeAndMessage)
{
    const TestKey &key = Key(2048);
    VexaCryptoCtx *digest = nullptr;
    VexaCryptoCtx *verify = nullptr;
    ASSERT_EQ(VexaDigestCreate(&digest), VEXA_OK);
    ASSERT_EQ(VexaDigestInit(digest, VEXA_CRYPTO_SHA256), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyCreate(&verify), VEXA_OK);
    const uint8_t data[1] = {0};
    uint8_t out[VEXA_DIGEST_MAX_LEN];
    uint32_t len = 0;
    VexaBigInt tooLong = key.n;
    tooLong.len = VEXA_BIGINT_MAX_LEN + 1;
    uint32_t verdict = 7;
    const uint8_t sig[8] = {0};
    struct Row {
        const char *name;
        std::function<uint32_t()> call;
        uint32_t code;
        const char *message;
    };
    /* The two services answer the same mistakes with different codes. */
    const Row rows[] = {
        {"digest update of an empty piece", [&] { return VexaDigestUpdate(digest, data, 0); }, VEXA_ERR_GENERIC,
         "invalid para."},
        {"digest final without the fourth argument", [&] { return VexaDigestFinal(digest, out, &len, nullptr); },
         VEXA_ERR_PARAM, "input para is null."},
        {"verify create without out", [&] { return VexaRsaVerifyCreate(nullptr); }, VEXA_ERR_GENERIC,
         "input ctx is null."},
        {"verify init with a key part past 512 bytes",
         [&] { return VexaRsaVerifyInit(verify, &key.e, &tooLong, VEXA_CRYPTO_SHA256); }, VEXA_ERR_PARAM,
         "input para is invalid."},
        {"verify update of an empty piece", [&] { return VexaRsaVerifyUpdate(verify, data, 0); }, VEXA_ERR_PARAM,
         "input para is invalid."},
        {"verify final without result out", [&] { return VexaRsaVerifyFinal(verify, sig, sizeof sig, nullptr); },
         VEXA_ERR_PARAM, "r_result is null."},
        {"verify final before init", [&] { return VexaRsaVerifyFinal(verify, sig, sizeof sig, &verdict); },
         VEXA_ERR_PARAM, "in para is invalid."},
    };
    Messages expected;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.call(), row.code);
        expected.push_back(row.message);
    }
    EXPECT_EQ(verdict, 0u) << "a check that cannot be made is never a verdict of 1";

    /* The digest context still works after the refused calls. */
    ASSERT_EQ(VexaDigestUpdate(digest, data, 1), VEXA_OK);
    EXPECT_EQ(VexaDigestFinal(digest, out, &len, &len), VEXA_OK);
    EXPECT_EQ(len, 32u);
    VexaDigestFree(digest);
    VexaRsaVerifyFree(verify);
    VexaDigestFree(nullptr);
    VexaRsaVerifyFree(nullptr);
    expected.push_back("input para is null.");
    expected.push_back("in para is null.");
    EXPECT_EQ(LogMessages(), expected);

    /* Lines are MAJOR and end in two line feeds. */
    const std::string log = testenv::ReadFile(testenv::kLogPath);
    EXPECT_NE(log.find(" MAJOR root "), std::string::npos);
    EXPECT_NE(log.find("CHECK_TOOL: invalid para.\n\nCRL MAJOR root "), std::string::npos);
}

TEST_F(CryptoTest, SignaturesMadeByLibcryptoVerifyAndFaultsDoNot)
{
    const Bytes msg = Text("signed attributes of an image, long enough to need several pieces");
    struct KeyRow {
        int bits;
        uint32_t algorithm;
    } keys[] = {{2048, VEXA_CRYPTO_SHA256}, {3072, VEXA_CRYPTO_SHA384}, {4096, VEXA_CRYPTO_SHA512}};
    for (const KeyRow &k : keys) {
        const TestKey &key = Key(k.bits);
        const Bytes sig = Sign(key, k.algorithm, msg);
        ASSERT_EQ(sig.size(), static_cast<size_t>(k.bits / 8));
        Bytes flipped = sig;
        flipped[sig.size() / 2] ^= 0x01;
        Bytes tooLong = sig;
        tooLong.resize(sig.size() + 8);
        Bytes otherMsg = msg;
        otherMsg.back() ^= 0x20;
        const uint32_t otherAlgorithm = k.algorithm == VEXA_CRYPTO_SHA256 ? VEXA_CRYPTO_SHA512 : VEXA_CRYPTO_SHA256;
        const TestKey &otherKey = Key(k.bits == 2048 ? 3072 : 2048);
        struct Row {
            const char *fault;
            const TestKey &key;
            uint32_t algorithm;
            const Bytes &msg;
            Bytes sig;
            uint32_t verdict;
        } rows[] = {
            {"none", key, k.algorithm, msg, sig, 1},
            {"one bit of the signature flipped", key, k.algorithm, msg, flipped, 0},
            {"message changed", key, k.algorithm, otherMsg, sig, 0},
            {"signed with another digest", key, otherAlgorithm, msg, sig, 0},
            {"another key", otherKey, k.algorithm, msg, sig, 0},
            {"signature one block too long", key, k.algorithm, msg, tooLong, 0},
        };
        for (const Row &row : rows) {
            SCOPED_TRACE(std::to_string(k.bits) + " bits, fault: " + row.fault);
            Outcome got = Verify(row.key, row.algorithm, row.msg, row.sig);
            EXPECT_EQ(got.code, VEXA_OK);
            EXPECT_EQ(got.verdict, row.verdict);
        }
    }
    EXPECT_TRUE(LogMessages().empty()) << "a wrong signature is a verdict, not a failure";
}

TEST_F(CryptoTest, ShortSignatureIsZeroExtendedInFront)
{
    const TestKey &key = Key(2048);
    Bytes msg;
    Bytes sig;
    for (int i = 0; i < 5000 && (sig.empty() || sig[0] != 0); i++) {
        msg = Text("message " + std::to_string(i));
        sig = Sign(key, VEXA_CRYPTO_SHA256, msg);
    }
    ASSERT_EQ(sig.size(), 256u);
    ASSERT_EQ(sig[0], 0) << "no signature with a leading zero byte found";
    const Bytes normal = Sign(key, VEXA_CRYPTO_SHA256, Text("another message"));
    ASSERT_NE(normal[0], 0);

    struct Row {
        const char *name;
        Bytes sig;
        uint32_t verdict;
    } rows[] = {
        {"full 256 bytes", sig, 1},
        {"leading zero dropped, 255 bytes", Bytes(sig.begin() + 1, sig.end()), 1},
        {"250 bytes", Bytes(sig.begin() + 6, sig.end()), 0},
        {"non-zero first byte dropped", Bytes(normal.begin() + 1, normal.end()), 0},
        {"zero byte appended, 257 bytes", [&] { Bytes s = sig; s.push_back(0); return s; }(), 0},
        {"longer than any modulus, 513 bytes", Bytes(513, 0x5A), 0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Outcome got = Verify(key, VEXA_CRYPTO_SHA256, msg, row.sig);
        EXPECT_EQ(got.code, VEXA_OK);
        EXPECT_EQ(got.verdict, row.verdict);
    }
}

TEST_F(CryptoTest, SecondInitStartsOver)
{
    const TestKey &key = Key(2048);
    const Bytes msg = Text("payload");
    const Bytes sig = Sign(key, VEXA_CRYPTO_SHA256, msg);
    VexaBigInt junkModulus{};
    junkModulus.len = 256;
    std::fill(junkModulus.bytes, junkModulus.bytes + junkModulus.len, 0xC5);
    VexaCryptoCtx *ctx = nullptr;
    ASSERT_EQ(VexaRsaVerifyCreate(&ctx), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyInit(ctx, &key.e, &junkModulus, VEXA_CRYPTO_SHA512), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyUpdate(ctx, Text("junk").data(), 4), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyInit(ctx, &key.e, &key.n, VEXA_CRYPTO_SHA256), VEXA_OK);
    ASSERT_EQ(VexaRsaVerifyUpdate(ctx, msg.data(), static_cast<uint32_t>(msg.size())), VEXA_OK);
    uint32_t verdict = 0;
    EXPECT_EQ(VexaRsaVerifyFinal(ctx, sig.data(), static_cast<uint32_t>(sig.size()), &verdict), VEXA_OK);
    EXPECT_EQ(verdict, 1u);
    VexaRsaVerifyFree(ctx);
}

} // namespace
