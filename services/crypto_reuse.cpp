// SPDX-License-Identifier: Apache-2.0
/* Fetched digests, imported RSA keys and remembered verdicts, kept for the
 * process. Every table is small and fixed: past its capacity a key or a
 * verdict is simply not kept, and the work is done as if it never had been,
 * so a hostile input of many keys costs what it did before. */
#include "services/crypto_reuse.h"

#include <string.h>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <kestrel/kestrel.h>

#include "services/oplog.h"
#include "vexa/vexa_result.h"

namespace {

/* SHA-256, SHA-384, SHA-512. */
constexpr uint32_t kDigestRows = 3;
const EVP_MD *g_digests[kDigestRows];

/* A run meets five keys: root, CA, signer, TSA CA and TSA. */
constexpr uint32_t kKeySlots = 8;

struct KeySlot {
    EVP_PKEY *pkey; /* null: free slot */
    bool usable;
    EVP_PKEY_CTX *verifyCtx; /* set up for PKCS #1 v1.5 on first use */
    int verifyMdType;        /* the digest verifyCtx is set to; 0: none yet */
    VexaBigInt exponent;
    VexaBigInt modulus;
};
KeySlot g_keys[kKeySlots];

/* The key import context, fetched by name once. */
EVP_PKEY_CTX *g_importCtx;

/* A run makes eight checks; operations 1 and 2 repeat theirs. */
constexpr uint32_t kVerdictSlots = 16;

struct VerdictSlot {
    const EVP_PKEY *pkey; /* a kept key; null: free slot */
    int mdType;
    uint32_t digestLen;
    uint8_t digest[EVP_MAX_MD_SIZE];
    uint32_t length;
    uint8_t signature[VEXA_BIGINT_MAX_LEN];
    bool verified;
};
VerdictSlot g_verdicts[kVerdictSlots];
uint32_t g_nextVerdict; /* the oldest slot, replaced next */

bool SameBigInt(const VexaBigInt *a, const VexaBigInt *b)
{
    return a->len == b->len && memcmp(a->bytes, b->bytes, a->len) == 0;
}

/* Builds the RSA public key (n, e) as a libcrypto key object. */
uint32_t BuildRsaKey(const VexaBigInt *exponent, const VexaBigInt *modulus, EVP_PKEY **out)
{
    if (g_importCtx == nullptr) {
        EVP_PKEY_CTX *keyCtx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
        if (keyCtx == nullptr || EVP_PKEY_fromdata_init(keyCtx) != 1) {
            EVP_PKEY_CTX_free(keyCtx);
            LOG_MAJOR("EVP_PKEY_new failed.\n\n");
            return VEXA_ERR_MALLOC;
        }
        g_importCtx = keyCtx;
    }
    BIGNUM *n = BN_bin2bn(modulus->bytes, static_cast<int>(modulus->len), nullptr);
    BIGNUM *e = BN_bin2bn(exponent->bytes, static_cast<int>(exponent->len), nullptr);
    OSSL_PARAM_BLD *build = OSSL_PARAM_BLD_new();
    OSSL_PARAM *params = nullptr;
    if (n != nullptr && e != nullptr && build != nullptr &&
        OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_N, n) == 1 &&
        OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_E, e) == 1) {
        params = OSSL_PARAM_BLD_to_param(build);
    }
    OSSL_PARAM_BLD_free(build);
    BN_free(n);
    BN_free(e);
    if (params == nullptr) {
        LOG_MAJOR("RSA_new failed.\n\n");
        return VEXA_ERR_MALLOC;
    }
    EVP_PKEY *pkey = nullptr;
    int made = EVP_PKEY_fromdata(g_importCtx, &pkey, EVP_PKEY_PUBLIC_KEY, params);
    OSSL_PARAM_free(params);
    if (made != 1 || pkey == nullptr) {
        EVP_PKEY_free(pkey);
        LOG_MAJOR("EVP_PKEY_new failed.\n\n");
        return VEXA_ERR_MALLOC;
    }
    *out = pkey;
    return VEXA_OK;
}

constexpr int kMinModulusBits = 1024;

/* A key that proves nothing: with an exponent of 1 every padded message is
 * its own signature, an even exponent is no RSA key, and a short modulus
 * can be factored. Such a key verifies no signature at all. */
bool UsableKey(const EVP_PKEY *pkey)
{
    if (EVP_PKEY_get_bits(pkey) < kMinModulusBits) {
        return false;
    }
    BIGNUM *e = nullptr;
    if (EVP_PKEY_get_bn_param(pkey, OSSL_PKEY_PARAM_RSA_E, &e) != 1 || e == nullptr) {
        return false;
    }
    const bool usable = BN_is_odd(e) && !BN_is_one(e); /* odd and not 1: at least 3 */
    BN_free(e);
    return usable;
}

KeySlot *SlotOf(const EVP_PKEY *pkey)
{
    for (KeySlot &slot : g_keys) {
        if (pkey != nullptr && slot.pkey == pkey) {
            return &slot;
        }
    }
    return nullptr;
}

VerdictSlot *VerdictOf(const EVP_PKEY *pkey, int mdType, const uint8_t *digest, uint32_t digestLen,
                       const uint8_t *signature, uint32_t length)
{
    for (VerdictSlot &slot : g_verdicts) {
        if (slot.pkey != nullptr && slot.pkey == pkey && slot.mdType == mdType && slot.digestLen == digestLen &&
            slot.length == length && memcmp(slot.digest, digest, digestLen) == 0 &&
            memcmp(slot.signature, signature, length) == 0) {
            return &slot;
        }
    }
    return nullptr;
}

/* Keeps a verdict made with a kept key; the oldest gives way. */
void Remember(const EVP_PKEY *pkey, int mdType, const uint8_t *digest, uint32_t digestLen, const uint8_t *signature,
              uint32_t length, bool verified)
{
    if (digestLen > sizeof(VerdictSlot::digest) || length > sizeof(VerdictSlot::signature)) {
        return;
    }
    VerdictSlot *slot = &g_verdicts[g_nextVerdict];
    g_nextVerdict = (g_nextVerdict + 1) % kVerdictSlots;
    slot->pkey = nullptr;
    if ((digestLen != 0 && memcpy_s(slot->digest, sizeof(slot->digest), digest, digestLen) != 0) ||
        (length != 0 && memcpy_s(slot->signature, sizeof(slot->signature), signature, length) != 0)) {
        return;
    }
    slot->mdType = mdType;
    slot->digestLen = digestLen;
    slot->length = length;
    slot->verified = verified;
    slot->pkey = pkey;
}

} // namespace

const EVP_MD *InternalReusedDigest(uint32_t row, const char *name, const EVP_MD *(*legacy)(void))
{
    if (row >= kDigestRows) {
        return legacy();
    }
    if (g_digests[row] == nullptr) {
        /* An explicit fetch is bound to its provider: digest inits that use
         * it skip the lookup by name that the legacy object costs each time. */
        g_digests[row] = EVP_MD_fetch(nullptr, name, nullptr);
    }
    return g_digests[row] != nullptr ? g_digests[row] : legacy();
}

uint32_t InternalReusedRsaKey(const VexaBigInt *exponent, const VexaBigInt *modulus, EVP_PKEY **out)
{
    if (exponent->len > VEXA_BIGINT_MAX_LEN || modulus->len > VEXA_BIGINT_MAX_LEN) {
        return VEXA_ERR_PARAM;
    }
    KeySlot *free = nullptr;
    for (KeySlot &slot : g_keys) {
        if (slot.pkey == nullptr) {
            free = free != nullptr ? free : &slot;
        } else if (SameBigInt(&slot.modulus, modulus) && SameBigInt(&slot.exponent, exponent)) {
            /* The key object keeps its Montgomery set-up for the modulus
             * too, so a second check with it skips that as well. */
            if (EVP_PKEY_up_ref(slot.pkey) != 1) {
                break;
            }
            *out = slot.pkey;
            return VEXA_OK;
        }
    }
    EVP_PKEY *pkey = nullptr;
    uint32_t ret = BuildRsaKey(exponent, modulus, &pkey);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (free != nullptr && memcpy_s(&free->exponent, sizeof(free->exponent), exponent, sizeof(*exponent)) == 0 &&
        memcpy_s(&free->modulus, sizeof(free->modulus), modulus, sizeof(*modulus)) == 0 &&
        EVP_PKEY_up_ref(pkey) == 1) {
        free->usable = UsableKey(pkey);
        free->pkey = pkey;
    }
    *out = pkey;
    return VEXA_OK;
}

bool InternalCheckRsaDigest(EVP_PKEY *pkey, const EVP_MD *md, const uint8_t *digest, uint32_t digestLen,
                            const uint8_t *signature, uint32_t length)
{
    KeySlot *slot = SlotOf(pkey);
    if (slot != nullptr ? !slot->usable : !UsableKey(pkey)) {
        return false;
    }
    const int mdType = EVP_MD_get_type(md);
    const VerdictSlot *known = VerdictOf(pkey, mdType, digest, digestLen, signature, length);
    if (known != nullptr) {
        return known->verified;
    }
    /* A kept key keeps its verify context too: set up once, and given
     * another digest only when the check needs one. */
    EVP_PKEY_CTX *verifyCtx = slot != nullptr ? slot->verifyCtx : nullptr;
    bool ready = verifyCtx != nullptr;
    if (!ready) {
        verifyCtx = EVP_PKEY_CTX_new_from_pkey(nullptr, pkey, nullptr);
        ready = verifyCtx != nullptr && EVP_PKEY_verify_init(verifyCtx) == 1 &&
                EVP_PKEY_CTX_set_rsa_padding(verifyCtx, RSA_PKCS1_PADDING) > 0;
        if (slot != nullptr && ready) {
            slot->verifyCtx = verifyCtx;
            slot->verifyMdType = 0;
        }
    }
    const bool kept = slot != nullptr && slot->verifyCtx == verifyCtx;
    if (ready && (!kept || slot->verifyMdType != mdType)) {
        ready = EVP_PKEY_CTX_set_signature_md(verifyCtx, md) > 0;
        if (kept) {
            slot->verifyMdType = ready ? mdType : 0;
        }
    }
    const bool verified = ready && EVP_PKEY_verify(verifyCtx, signature, length, digest, digestLen) == 1;
    if (!kept) {
        EVP_PKEY_CTX_free(verifyCtx);
    } else if (ready) {
        Remember(pkey, mdType, digest, digestLen, signature, length, verified);
    }
    return verified;
}

void VexaCryptoReuseClear(void)
{
    for (VerdictSlot &slot : g_verdicts) {
        slot.pkey = nullptr;
    }
    g_nextVerdict = 0;
    for (KeySlot &slot : g_keys) {
        EVP_PKEY_CTX_free(slot.verifyCtx);
        slot.verifyCtx = nullptr;
        EVP_PKEY_free(slot.pkey);
        slot.pkey = nullptr;
    }
}
