// SPDX-License-Identifier: Apache-2.0
/* In-process cost of the two verifications the tool runs on a device: one
 * image (what operation 3 does once the image is parsed: context, root, CRL
 * file, Begin, Update, Final) and one CRL comparison (operation 1: two
 * contexts, two CRL summaries, the validity checks and the comparison).
 *
 * Each row also reports, from one untimed run, the RSA verifications made,
 * how many distinct signatures they checked, and the allocations made by the
 * library and by libcrypto. BM_UnavoidableRsa replays only the distinct
 * verifications of one image, on keys imported ahead: the floor that no
 * implementation can go below. Counting works by link-time wrapping
 * (-Wl,--wrap=EVP_PKEY_verify,--wrap=malloc) and libcrypto's allocator hooks. */
#include <benchmark/benchmark.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "root_cert.h"
#include "services/crypto_reuse.h"
#include "testdata.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace {

/* One RSA verification as the library asked libcrypto for it. */
struct Verification {
    EVP_PKEY_CTX *ctx; /* initialised for the key, padding and digest */
    std::vector<uint8_t> sig;
    std::vector<uint8_t> tbs;
};

struct Counts {
    uint64_t rsaVerifies = 0;
    uint64_t vexaAllocs = 0;
    uint64_t cryptoAllocs = 0;
};

Counts g_counts;
bool g_capture = false;
std::vector<Verification> g_distinct;

void Capture(EVP_PKEY_CTX *ctx, const unsigned char *sig, size_t sigLen, const unsigned char *tbs, size_t tbsLen)
{
    for (const Verification &v : g_distinct) {
        if (v.sig.size() == sigLen && memcmp(v.sig.data(), sig, sigLen) == 0) {
            return;
        }
    }
    const EVP_MD *md = nullptr;
    EVP_PKEY *pkey = EVP_PKEY_CTX_get0_pkey(ctx);
    EVP_PKEY_CTX *copy = pkey == nullptr ? nullptr : EVP_PKEY_CTX_new_from_pkey(nullptr, pkey, nullptr);
    if (copy == nullptr || EVP_PKEY_CTX_get_signature_md(ctx, &md) <= 0 || EVP_PKEY_verify_init(copy) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(copy, RSA_PKCS1_PADDING) <= 0 || EVP_PKEY_CTX_set_signature_md(copy, md) <= 0) {
        EVP_PKEY_CTX_free(copy);
        return;
    }
    g_distinct.push_back({copy, std::vector<uint8_t>(sig, sig + sigLen), std::vector<uint8_t>(tbs, tbs + tbsLen)});
}

} // namespace

extern "C" {
int __real_EVP_PKEY_verify(EVP_PKEY_CTX *, const unsigned char *, size_t, const unsigned char *, size_t);
void *__real_malloc(size_t);

int __wrap_EVP_PKEY_verify(EVP_PKEY_CTX *ctx, const unsigned char *sig, size_t sigLen, const unsigned char *tbs,
                           size_t tbsLen)
{
    g_counts.rsaVerifies++;
    if (g_capture) {
        Capture(ctx, sig, sigLen, tbs, tbsLen);
    }
    return __real_EVP_PKEY_verify(ctx, sig, sigLen, tbs, tbsLen);
}

/* Only references from statically linked objects reach here: the library's
 * VexaMalloc, not libcrypto or the C++ runtime. */
void *__wrap_malloc(size_t size)
{
    g_counts.vexaAllocs++;
    return __real_malloc(size);
}
}

namespace {

void *CountingCryptoMalloc(size_t size, const char *, int)
{
    g_counts.cryptoAllocs++;
    return __real_malloc(size);
}

void *CountingCryptoRealloc(void *ptr, size_t size, const char *, int)
{
    g_counts.cryptoAllocs += ptr == nullptr ? 1 : 0;
    return realloc(ptr, size);
}

void CryptoFree(void *ptr, const char *, int)
{
    free(ptr);
}

struct Inputs {
    bench::Bytes signature;
    bench::Bytes content;
    bench::Bytes crlFile;
    bench::Bytes updateCrlFile;
};

const Inputs &Fixture()
{
    static const Inputs in = {bench::Load("sig/valid.der"), bench::Load("content/content.bin"),
                              bench::Load("crlfiles/good.der"), bench::Load("crlfiles/cmp_newer.der")};
    return in;
}

VexaVerifyCtx *CtxWithRoot()
{
    VexaVerifyCtxParams params = {};
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = nullptr;
    if (VexaVerifyCreateCtx(&ctx, &params) != VEXA_OK) {
        return nullptr;
    }
    if (VexaVerifyAddCert(ctx, get_root_cert_data(), get_root_cert_len()) != VEXA_OK) {
        (void)VexaVerifyDestroyCtx(ctx);
        return nullptr;
    }
    return ctx;
}

/* Operation 3 on the valid image; returns the verdict (1 = verified). */
/* Each run starts as a process does, with no key or verdict kept from the
 * run before. */
uint32_t VerifyImage(const Inputs &in)
{
    VexaCryptoReuseClear();
    VexaVerifyCtx *ctx = CtxWithRoot();
    uint32_t verdict = 0;
    if (ctx != nullptr && VexaVerifyAddCrl(ctx, in.crlFile.data(), static_cast<uint32_t>(in.crlFile.size())) == 0 &&
        VexaVerifyDetachSignatureBegin(ctx, in.signature.data(), static_cast<uint32_t>(in.signature.size())) == 0 &&
        VexaVerifyDetachSignatureUpdate(ctx, in.content.data(), static_cast<uint32_t>(in.content.size())) == 0 &&
        VexaVerifyDetachSignatureFinal(ctx, &verdict) != VEXA_OK) {
        verdict = 0;
    }
    (void)VexaVerifyDestroyCtx(ctx);
    return verdict;
}

/* Operation 1 on an update CRL file that is newer than the device's;
 * returns the comparison (1 = the update is newer). */
uint32_t CompareCrls(const Inputs &in)
{
    VexaCryptoReuseClear();
    VexaVerifyCtx *ctxA = CtxWithRoot();
    VexaVerifyCtx *ctxB = CtxWithRoot();
    VexaCrlInfoList *infoA = nullptr;
    VexaCrlInfoList *infoB = nullptr;
    uint32_t cmp = 3;
    if (ctxA != nullptr && ctxB != nullptr &&
        VexaDecodeCrl(ctxA, in.updateCrlFile.data(), static_cast<uint32_t>(in.updateCrlFile.size()), &infoA) == 0 &&
        VexaDecodeCrl(ctxB, in.crlFile.data(), static_cast<uint32_t>(in.crlFile.size()), &infoB) == 0 &&
        (VexaCrlCompare(ctxA, infoA, infoA, &cmp) != VEXA_OK || VexaCrlCompare(ctxB, infoB, infoB, &cmp) != VEXA_OK ||
         VexaCrlCompare(ctxA, infoA, infoB, &cmp) != VEXA_OK)) {
        cmp = 3;
    }
    if (infoA != nullptr) {
        (void)VexaCrlInfoListFree(ctxA, infoA);
    }
    if (infoB != nullptr) {
        (void)VexaCrlInfoListFree(ctxB, infoB);
    }
    (void)VexaVerifyDestroyCtx(ctxA);
    (void)VexaVerifyDestroyCtx(ctxB);
    return cmp;
}

/* Counts one untimed run and publishes the figures beside the timing. */
template <typename Run>
void ReportCounts(benchmark::State &state, Run run)
{
    g_counts = Counts{};
    g_distinct.clear();
    g_capture = true;
    (void)run();
    g_capture = false;
    state.counters["rsa_verifies"] = static_cast<double>(g_counts.rsaVerifies);
    state.counters["distinct_sigs"] = static_cast<double>(g_distinct.size());
    state.counters["vexa_allocs"] = static_cast<double>(g_counts.vexaAllocs);
    state.counters["crypto_allocs"] = static_cast<double>(g_counts.cryptoAllocs);
    for (Verification &v : g_distinct) {
        EVP_PKEY_CTX_free(v.ctx);
    }
    g_distinct.clear();
}

void BM_VerifyImage(benchmark::State &state)
{
    const Inputs &in = Fixture();
    if (VerifyImage(in) != 1) {
        state.SkipWithError("the valid image did not verify");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(VerifyImage(in));
    }
    ReportCounts(state, [&in] { return VerifyImage(in); });
}

void BM_CompareCrls(benchmark::State &state)
{
    const Inputs &in = Fixture();
    if (CompareCrls(in) != 1) {
        state.SkipWithError("the newer update CRL file did not compare as newer");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(CompareCrls(in));
    }
    ReportCounts(state, [&in] { return CompareCrls(in); });
}

/* The distinct RSA verifications of one image, keys already imported. */
void BM_UnavoidableRsa(benchmark::State &state)
{
    g_distinct.clear();
    g_capture = true;
    const uint32_t verdict = VerifyImage(Fixture());
    g_capture = false;
    if (verdict != 1 || g_distinct.empty()) {
        state.SkipWithError("nothing captured");
        return;
    }
    for (auto _ : state) {
        for (const Verification &v : g_distinct) {
            benchmark::DoNotOptimize(
                __real_EVP_PKEY_verify(v.ctx, v.sig.data(), v.sig.size(), v.tbs.data(), v.tbs.size()));
        }
    }
    state.counters["distinct_sigs"] = static_cast<double>(g_distinct.size());
    for (Verification &v : g_distinct) {
        EVP_PKEY_CTX_free(v.ctx);
    }
    g_distinct.clear();
}

BENCHMARK(BM_VerifyImage)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CompareCrls)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UnavoidableRsa)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    /* before libcrypto allocates anything, or the hooks are refused */
    if (CRYPTO_set_mem_functions(CountingCryptoMalloc, CountingCryptoRealloc, CryptoFree) != 1) {
        fputs("libcrypto allocator hooks refused: allocation counts will be incomplete\n", stderr);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
