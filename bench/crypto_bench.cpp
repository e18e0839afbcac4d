// SPDX-License-Identifier: Apache-2.0
/* What the crypto services cost per call, and what process-wide caching of
 * libcrypto lookups (the digest fetch, the RSA key manager) would save.
 * The services fetch nothing ahead; the *Cached rows show the alternative. */
#include <benchmark/benchmark.h>

#include <vector>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include "services/crypto_reuse.h"
#include "vexa/vexa_crypto.h"

namespace {

constexpr size_t kMessageLen = 64;
const std::vector<uint8_t> kMessage(kMessageLen, 0x5A);

struct Fixture {
    EVP_PKEY *pkey = nullptr;
    VexaBigInt n{};
    VexaBigInt e{};
    std::vector<uint8_t> sig;
};

void Export(const EVP_PKEY *pkey, const char *name, VexaBigInt *out)
{
    BIGNUM *bn = nullptr;
    EVP_PKEY_get_bn_param(pkey, name, &bn);
    out->len = static_cast<uint32_t>(BN_bn2bin(bn, out->bytes));
    BN_free(bn);
}

const Fixture &Rsa2048()
{
    static Fixture f = [] {
        Fixture made;
        made.pkey = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(2048));
        Export(made.pkey, OSSL_PKEY_PARAM_RSA_N, &made.n);
        Export(made.pkey, OSSL_PKEY_PARAM_RSA_E, &made.e);
        made.sig.resize(256);
        size_t len = made.sig.size();
        EVP_MD_CTX *ctx = EVP_MD_CTX_new();
        EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, made.pkey);
        EVP_DigestSign(ctx, made.sig.data(), &len, kMessage.data(), kMessage.size());
        EVP_MD_CTX_free(ctx);
        return made;
    }();
    return f;
}

void BM_ServiceDigest(benchmark::State &state)
{
    uint8_t digest[VEXA_DIGEST_MAX_LEN];
    uint32_t len = 0;
    for (auto _ : state) {
        VexaCryptoCtx *ctx = nullptr;
        VexaDigestCreate(&ctx);
        VexaDigestInit(ctx, VEXA_CRYPTO_SHA256);
        VexaDigestUpdate(ctx, kMessage.data(), kMessageLen);
        VexaDigestFinal(ctx, digest, &len, &len);
        VexaDigestFree(ctx);
    }
}

/* EVP_sha256() makes every init look the implementation up again. */
void BM_DigestImplicitFetch(benchmark::State &state)
{
    uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    for (auto _ : state) {
        EVP_MD_CTX *ctx = EVP_MD_CTX_new();
        EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr);
        EVP_DigestUpdate(ctx, kMessage.data(), kMessageLen);
        EVP_DigestFinal_ex(ctx, digest, &len);
        EVP_MD_CTX_free(ctx);
    }
}

void BM_DigestFetchedCached(benchmark::State &state)
{
    EVP_MD *md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    for (auto _ : state) {
        EVP_MD_CTX *ctx = EVP_MD_CTX_new();
        EVP_DigestInit_ex(ctx, md, nullptr);
        EVP_DigestUpdate(ctx, kMessage.data(), kMessageLen);
        EVP_DigestFinal_ex(ctx, digest, &len);
        EVP_MD_CTX_free(ctx);
    }
    EVP_MD_free(md);
}

void BM_ServiceRsaVerify2048(benchmark::State &state)
{
    const Fixture &f = Rsa2048();
    uint32_t verdict = 0;
    for (auto _ : state) {
        VexaCryptoReuseClear(); /* a first check, not a recalled one */
        VexaCryptoCtx *ctx = nullptr;
        VexaRsaVerifyCreate(&ctx);
        VexaRsaVerifyInit(ctx, &f.e, &f.n, VEXA_CRYPTO_SHA256);
        VexaRsaVerifyUpdate(ctx, kMessage.data(), kMessageLen);
        VexaRsaVerifyFinal(ctx, f.sig.data(), static_cast<uint32_t>(f.sig.size()), &verdict);
        VexaRsaVerifyFree(ctx);
    }
    if (verdict != 1) {
        state.SkipWithError("signature did not verify");
    }
}

/* Building the public key alone, with the key manager looked up per call
 * (as the service does) or held for the whole process. */
void BuildKeys(benchmark::State &state, bool cached)
{
    const Fixture &f = Rsa2048();
    EVP_PKEY_CTX *held = cached ? EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr) : nullptr;
    for (auto _ : state) {
        EVP_PKEY_CTX *keyCtx = cached ? held : EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
        BIGNUM *n = BN_bin2bn(f.n.bytes, static_cast<int>(f.n.len), nullptr);
        BIGNUM *e = BN_bin2bn(f.e.bytes, static_cast<int>(f.e.len), nullptr);
        OSSL_PARAM_BLD *build = OSSL_PARAM_BLD_new();
        OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_N, n);
        OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_E, e);
        OSSL_PARAM *params = OSSL_PARAM_BLD_to_param(build);
        EVP_PKEY *pkey = nullptr;
        EVP_PKEY_fromdata_init(keyCtx);
        EVP_PKEY_fromdata(keyCtx, &pkey, EVP_PKEY_PUBLIC_KEY, params);
        benchmark::DoNotOptimize(pkey);
        EVP_PKEY_free(pkey);
        OSSL_PARAM_free(params);
        OSSL_PARAM_BLD_free(build);
        BN_free(n);
        BN_free(e);
        if (!cached) {
            EVP_PKEY_CTX_free(keyCtx);
        }
    }
    EVP_PKEY_CTX_free(held);
}

void BM_RsaKeyBuildPerCall(benchmark::State &state) { BuildKeys(state, false); }
void BM_RsaKeyBuildCached(benchmark::State &state) { BuildKeys(state, true); }

BENCHMARK(BM_ServiceDigest);
BENCHMARK(BM_DigestImplicitFetch);
BENCHMARK(BM_DigestFetchedCached);
BENCHMARK(BM_ServiceRsaVerify2048);
BENCHMARK(BM_RsaKeyBuildPerCall);
BENCHMARK(BM_RsaKeyBuildCached);

} // namespace

BENCHMARK_MAIN();
