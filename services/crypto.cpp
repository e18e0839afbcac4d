// SPDX-License-Identifier: Apache-2.0
#include <stdint.h>

#include <type_traits>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <kestrel/kestrel.h>

#include "services/crypto_reuse.h"
#include "services/oplog.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

/* The public header names libcrypto's objects by struct tag only. */
static_assert(std::is_same<struct evp_md_ctx_st, EVP_MD_CTX>::value, "EVP_MD_CTX tag");
static_assert(std::is_same<struct evp_pkey_st, EVP_PKEY>::value, "EVP_PKEY tag");
static_assert(std::is_same<struct evp_md_st, EVP_MD>::value, "EVP_MD tag");
static_assert(VEXA_DIGEST_MAX_LEN == EVP_MAX_MD_SIZE, "digest buffers hold the longest digest");
static_assert(sizeof(VexaCryptoCtx) <= UINT32_MAX, "size field holds the record size");

namespace {

struct DigestRow {
    uint32_t algorithm;
    const char *name;
    const EVP_MD *(*legacy)(void);
};

/* The library's digest ids to libcrypto's digests. */
constexpr DigestRow kDigests[] = {
    {VEXA_CRYPTO_SHA256, "SHA256", EVP_sha256},
    {VEXA_CRYPTO_SHA384, "SHA384", EVP_sha384},
    {VEXA_CRYPTO_SHA512, "SHA512", EVP_sha512},
};

/* Signature producers that drop leading zero bytes leave lengths that are
 * not a multiple of this; all the moduli we check are. */
constexpr uint32_t kSignatureAlign = 8;

enum class AllocStep { kNone, kMalloc, kMemset };

uint32_t InternalNewCtx(VexaCryptoCtx **out, AllocStep *failed)
{
    void *block = nullptr;
    uint32_t ret = VexaMalloc(&block, sizeof(VexaCryptoCtx));
    if (ret != VEXA_OK || block == nullptr) {
        *failed = AllocStep::kMalloc;
        return ret != VEXA_OK ? ret : VEXA_ERR_MALLOC;
    }
    int set = memset_s(block, sizeof(VexaCryptoCtx), 0, sizeof(VexaCryptoCtx));
    if (set != 0) {
        VexaFree(block);
        *failed = AllocStep::kMemset;
        return static_cast<uint32_t>(set);
    }
    VexaCryptoCtx *ctx = static_cast<VexaCryptoCtx *>(block);
    ctx->size = static_cast<uint32_t>(sizeof(VexaCryptoCtx));
    *out = ctx;
    *failed = AllocStep::kNone;
    return VEXA_OK;
}

void InternalDropDigest(VexaCryptoCtx *ctx)
{
    EVP_MD_CTX_free(ctx->mdCtx);
    ctx->mdCtx = nullptr;
}

void InternalDropKey(VexaCryptoCtx *ctx)
{
    EVP_PKEY_free(ctx->pkey);
    ctx->pkey = nullptr;
}

void InternalReleaseCtx(VexaCryptoCtx *ctx)
{
    InternalDropDigest(ctx);
    InternalDropKey(ctx);
    VexaFree(ctx);
    /* Failed checks leave libcrypto errors queued; none of them may be
     * mistaken for a later call's failure. */
    ERR_clear_error();
}

/* Finishes the digest and checks the PKCS #1 v1.5 signature over it, the
 * way the one-shot EVP verify does. Any failure is simply "not verified". */
bool InternalVerifyDigest(VexaCryptoCtx *ctx, const uint8_t *signature, uint32_t length)
{
    const EVP_MD *md = EVP_MD_CTX_get0_md(ctx->mdCtx);
    uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    if (md == nullptr || EVP_DigestFinal_ex(ctx->mdCtx, digest, &digestLen) != 1) {
        return false;
    }
    return InternalCheckRsaDigest(ctx->pkey, md, digest, digestLen, signature, length);
}

} // namespace

extern "C" const EVP_MD *_krt_get_openssl_evpmd(uint32_t algorithm)
{
    for (uint32_t i = 0; i < sizeof(kDigests) / sizeof(kDigests[0]); i++) {
        if (kDigests[i].algorithm == algorithm) {
            return InternalReusedDigest(i, kDigests[i].name, kDigests[i].legacy);
        }
    }
    LOG_MAJOR("invalid algorithm.\n\n");
    return nullptr;
}

/* ------------------------------------------------------------------------
 * Digest service
 * ------------------------------------------------------------------------ */

extern "C" uint32_t VexaDigestCreate(VexaCryptoCtx **ctx)
{
    if (ctx == nullptr) {
        LOG_MAJOR("para is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    AllocStep failed = AllocStep::kNone;
    uint32_t ret = InternalNewCtx(ctx, &failed);
    if (failed == AllocStep::kMalloc) {
        LOG_MAJOR("VexaMalloc failed,ret=%d.\n\n", static_cast<int>(ret));
    } else if (failed == AllocStep::kMemset) {
        LOG_MAJOR("memset_s failed, ret=%d.\n\n", static_cast<int>(ret));
    }
    return ret;
}

extern "C" uint32_t VexaDigestInit(VexaCryptoCtx *ctx, uint32_t algorithm)
{
    if (ctx == nullptr) {
        LOG_MAJOR("pMd is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    /* A second init starts over instead of leaking the running digest. */
    InternalDropDigest(ctx);
    ctx->mdCtx = EVP_MD_CTX_new();
    if (ctx->mdCtx == nullptr) {
        LOG_MAJOR("EVP_MD_CTX_new failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    (void)EVP_MD_CTX_reset(ctx->mdCtx);
    const EVP_MD *md = _krt_get_openssl_evpmd(algorithm);
    if (md == nullptr) {
        InternalDropDigest(ctx);
        LOG_MAJOR("_krt_get_openssl_evpmd failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    if (EVP_DigestInit_ex(ctx->mdCtx, md, nullptr) != 1) {
        InternalDropDigest(ctx);
        LOG_MAJOR("EVP_DigestInit_ex failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaDigestUpdate(VexaCryptoCtx *ctx, const uint8_t *data, uint32_t length)
{
    if (ctx == nullptr || data == nullptr || length == 0) {
        LOG_MAJOR("invalid para.\n\n");
        return VEXA_ERR_GENERIC;
    }
    if (ctx->mdCtx == nullptr || EVP_DigestUpdate(ctx->mdCtx, data, length) != 1) {
        LOG_MAJOR("EVP_DigestUpdate failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaDigestFinal(VexaCryptoCtx *ctx, uint8_t *digest, uint32_t *digestLen, void *reserved)
{
    if (ctx == nullptr || digest == nullptr || digestLen == nullptr || reserved == nullptr) {
        LOG_MAJOR("input para is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    unsigned int written = 0;
    if (ctx->mdCtx == nullptr || EVP_DigestFinal_ex(ctx->mdCtx, digest, &written) != 1) {
        LOG_MAJOR("EVP_DigestFinal failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    *digestLen = written;
    return VEXA_OK;
}

extern "C" void VexaDigestFree(VexaCryptoCtx *ctx)
{
    if (ctx == nullptr) {
        LOG_MAJOR("input para is null.\n\n");
        return;
    }
    InternalReleaseCtx(ctx);
}

/* ------------------------------------------------------------------------
 * RSA verification service
 * ------------------------------------------------------------------------ */

extern "C" uint32_t VexaRsaVerifyCreate(VexaCryptoCtx **ctx)
{
    if (ctx == nullptr) {
        LOG_MAJOR("input ctx is null.\n\n");
        return VEXA_ERR_GENERIC;
    }
    AllocStep failed = AllocStep::kNone;
    uint32_t ret = InternalNewCtx(ctx, &failed);
    if (failed == AllocStep::kMalloc) {
        LOG_MAJOR("VexaMalloc failed, ret=%d.\n\n", static_cast<int>(ret));
    } else if (failed == AllocStep::kMemset) {
        LOG_MAJOR("memset_s failed, ret=%d.\n\n", static_cast<int>(ret));
    }
    return ret;
}

extern "C" uint32_t VexaRsaVerifyInit(VexaCryptoCtx *ctx, const VexaBigInt *exponent, const VexaBigInt *modulus,
                                      uint32_t algorithm)
{
    if (ctx == nullptr || exponent == nullptr || modulus == nullptr) {
        LOG_MAJOR("input para is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    /* A length past the 512 bytes would read beyond the key part. */
    if (exponent->len > VEXA_BIGINT_MAX_LEN || modulus->len > VEXA_BIGINT_MAX_LEN) {
        LOG_MAJOR("input para is invalid.\n\n");
        return VEXA_ERR_PARAM;
    }
    /* A second init starts over instead of leaking the first key. */
    InternalDropKey(ctx);
    InternalDropDigest(ctx);
    uint32_t ret = InternalReusedRsaKey(exponent, modulus, &ctx->pkey);
    if (ret != VEXA_OK) {
        return ret;
    }
    const EVP_MD *md = _krt_get_openssl_evpmd(algorithm);
    if (md == nullptr) {
        LOG_MAJOR("_krt_get_openssl_evpmd failed.\n\n");
        InternalDropKey(ctx);
        return VEXA_ERR_MALLOC;
    }
    ctx->mdCtx = EVP_MD_CTX_new();
    if (ctx->mdCtx == nullptr) {
        LOG_MAJOR("EVP_MD_CTX_new failed.\n\n");
        return VEXA_ERR_MALLOC;
    }
    (void)EVP_MD_CTX_reset(ctx->mdCtx);
    if (EVP_DigestInit_ex(ctx->mdCtx, md, nullptr) != 1) {
        LOG_MAJOR("EVP_VerifyInit_ex failed.\n\n");
        InternalDropKey(ctx);
        return VEXA_ERR_CRYPTO;
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaRsaVerifyUpdate(VexaCryptoCtx *ctx, const uint8_t *data, uint32_t length)
{
    if (ctx == nullptr || data == nullptr || length == 0) {
        LOG_MAJOR("input para is invalid.\n\n");
        return VEXA_ERR_PARAM;
    }
    if (ctx->mdCtx == nullptr || EVP_DigestUpdate(ctx->mdCtx, data, length) != 1) {
        LOG_MAJOR("EVP_VerifyUpdate failed.\n\n");
        return VEXA_ERR_CRYPTO;
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaRsaVerifyFinal(VexaCryptoCtx *ctx, const uint8_t *signature, uint32_t length,
                                       uint32_t *result)
{
    if (result == nullptr) {
        LOG_MAJOR("r_result is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    *result = 0;
    if (ctx == nullptr || signature == nullptr || ctx->pkey == nullptr || ctx->mdCtx == nullptr) {
        LOG_MAJOR("in para is invalid.\n\n");
        return VEXA_ERR_PARAM;
    }
    if (length % kSignatureAlign == 0) {
        *result = InternalVerifyDigest(ctx, signature, length) ? 1u : 0u;
        return VEXA_OK;
    }
    /* Longer than any modulus a key part can hold: it cannot verify, and
     * its length must not size an allocation. */
    if (length > VEXA_BIGINT_MAX_LEN) {
        return VEXA_OK;
    }
    /* Put the zero bytes the producer dropped back in front. */
    uint32_t padded = (length + kSignatureAlign - 1) / kSignatureAlign * kSignatureAlign;
    void *block = nullptr;
    uint32_t ret = VexaMalloc(&block, padded);
    if (ret != VEXA_OK || block == nullptr) {
        LOG_MAJOR("VexaMalloc failed.\n\n");
        return ret != VEXA_OK ? ret : VEXA_ERR_MALLOC;
    }
    uint8_t *buffer = static_cast<uint8_t *>(block);
    int copy = memset_s(buffer, padded, 0, padded);
    if (copy != 0) {
        VexaFree(buffer);
        LOG_MAJOR("memset_s failed, ret=%d.\n\n", copy);
        return static_cast<uint32_t>(copy);
    }
    copy = memcpy_s(buffer + (padded - length), length, signature, length);
    if (copy != 0) {
        VexaFree(buffer);
        LOG_MAJOR("memcpy_s failed, ret=%d.\n\n", copy);
        return static_cast<uint32_t>(copy);
    }
    *result = InternalVerifyDigest(ctx, buffer, padded) ? 1u : 0u;
    VexaFree(buffer);
    return VEXA_OK;
}

extern "C" void VexaRsaVerifyFree(VexaCryptoCtx *ctx)
{
    if (ctx == nullptr) {
        LOG_MAJOR("in para is null.\n\n");
        return;
    }
    InternalReleaseCtx(ctx);
}
