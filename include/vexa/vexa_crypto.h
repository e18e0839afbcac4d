/* SPDX-License-Identifier: Apache-2.0 */
/* Digest and RSA signature verification services over libcrypto.
 *
 * Both services run create / init / update... / final / free over one
 * context. Every data piece given to update must be non-empty. Free is safe
 * after a failed init and is always called by the library.
 */
#ifndef VEXA_CRYPTO_H
#define VEXA_CRYPTO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Algorithm numbers: the digest ids of the object identifier table. */
#define VEXA_CRYPTO_SHA256 43u
#define VEXA_CRYPTO_SHA384 44u
#define VEXA_CRYPTO_SHA512 45u

/* A digest out buffer must hold the longest digest, SHA-512's. */
#define VEXA_DIGEST_MAX_LEN 64u

/* Key parts travel as big-endian unsigned integers of at most 512 bytes,
 * which bounds the modulus to 4096 bits. */
#define VEXA_BIGINT_MAX_LEN 512u

typedef struct VexaBigInt {
    uint32_t len;                       /* significant bytes, at most 512 */
    uint8_t bytes[VEXA_BIGINT_MAX_LEN]; /* big-endian, in the first len bytes */
} VexaBigInt;

/* libcrypto's objects by their struct tags, so this header needs no
 * OpenSSL headers. */
struct evp_md_st;
struct evp_md_ctx_st;
struct evp_pkey_st;

typedef struct VexaCryptoCtx {
    uint32_t size;                /* sizeof(VexaCryptoCtx), set at creation */
    struct evp_md_ctx_st *mdCtx;  /* running digest; null until init */
    struct evp_pkey_st *pkey;     /* RSA public key; verification only */
} VexaCryptoCtx;

/* libcrypto digest for 43, 44 or 45; null (and a log line) otherwise. */
const struct evp_md_st *_krt_get_openssl_evpmd(uint32_t algorithm);

uint32_t VexaDigestCreate(VexaCryptoCtx **ctx);
uint32_t VexaDigestInit(VexaCryptoCtx *ctx, uint32_t algorithm);
/* A null argument or an empty piece gives 0xFFFFFFFF. */
uint32_t VexaDigestUpdate(VexaCryptoCtx *ctx, const uint8_t *data, uint32_t length);
/* digest must hold VEXA_DIGEST_MAX_LEN bytes; reserved must be non-null and
 * is otherwise unused. */
uint32_t VexaDigestFinal(VexaCryptoCtx *ctx, uint8_t *digest, uint32_t *digestLen, void *reserved);
void VexaDigestFree(VexaCryptoCtx *ctx);

uint32_t VexaRsaVerifyCreate(VexaCryptoCtx **ctx);
uint32_t VexaRsaVerifyInit(VexaCryptoCtx *ctx, const VexaBigInt *exponent, const VexaBigInt *modulus,
                           uint32_t algorithm);
uint32_t VexaRsaVerifyUpdate(VexaCryptoCtx *ctx, const uint8_t *data, uint32_t length);
/* PKCS #1 v1.5 check of the signature over the data fed so far. *result is
 * 1 when it verifies and 0 when not; the code only says whether the check
 * could be made. A signature whose length is not a multiple of 8 is taken
 * to have lost leading zero bytes and is checked zero-extended to the next
 * multiple of 8. */
uint32_t VexaRsaVerifyFinal(VexaCryptoCtx *ctx, const uint8_t *signature, uint32_t length,
                            uint32_t *result);
void VexaRsaVerifyFree(VexaCryptoCtx *ctx);

#ifdef __cplusplus
}
#endif

#endif
