// SPDX-License-Identifier: Apache-2.0
/* Linking a certificate to its issuer, and on up to a self-signed root,
 * through the certificates of the context's store only. A verified issuer
 * is cached in the certificate so each signature is checked once. */
#include "pki/pki.h"

#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"

namespace {

constexpr int32_t kMaxRootDepth = 10; /* 11 certificates, the root included */

uint32_t VerifyWithKeyOf(const VexaX509Cert *cert, const VexaX509Cert *signer, uint32_t *verdict)
{
    *verdict = 0;
    return VexaX509PubKeyVerify(cert->tbsCertificateRaw.data, cert->tbsCertificateRaw.len, cert->signatureValue.data,
                                cert->signatureValue.len,
                                &signer->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey,
                                &cert->signatureAlgorithm, verdict);
}

/* Refusals that depend only on the two certificates; a failing service
 * (memory, libcrypto) may pass another time and is not remembered. */
bool IsFinalRefusal(int32_t ret)
{
    return ret == -1 || ret == static_cast<int32_t>(VEXA_ERR_KEY_USAGE) ||
           ret == static_cast<int32_t>(VEXA_ERR_ISSUER_SIGNATURE);
}

} // namespace

uint32_t InternalCheckSelfSignedInStore(const VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t *selfSigned)
{
    uint8_t *notSelfSigned = nullptr;
    if (ctx != nullptr && ctx->store != nullptr) {
        const int32_t index = InternalStoreIndexOf(&ctx->store->certs, cert);
        if (index >= 0) {
            notSelfSigned = &ctx->store->memo.notSelfSigned[index];
        }
    }
    if (notSelfSigned != nullptr && *notSelfSigned != 0) {
        *selfSigned = 0;
        return VEXA_OK;
    }
    const uint32_t ret = InternalCheckSelfSigned(cert, selfSigned);
    if (ret == VEXA_OK && *selfSigned == 0 && notSelfSigned != nullptr) {
        *notSelfSigned = 1;
    }
    return ret;
}

uint32_t InternalCheckSelfSigned(VexaX509Cert *cert, uint32_t *selfSigned)
{
    if (cert == nullptr || selfSigned == nullptr) {
        return VEXA_ERR_PARAM;
    }
    *selfSigned = 0;
    if (cert->verifiedIssuer == cert) {
        *selfSigned = 1;
        return VEXA_OK;
    }
    if (VexaX509NameCompare(&cert->tbsCertificate.subject, &cert->tbsCertificate.issuer) != 0) {
        return VEXA_OK;
    }
    uint32_t verdict = 0;
    uint32_t ret = VerifyWithKeyOf(cert, cert, &verdict);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (verdict == 1) {
        *selfSigned = 1;
        cert->verifiedIssuer = cert;
    }
    return VEXA_OK;
}

int32_t InternalCheckIssuer(VexaX509Cert *cert, VexaX509Cert *candidate)
{
    if (cert->verifiedIssuer != nullptr) {
        /* once an issuer is proven, no other key may claim the certificate */
        return cert->verifiedIssuer == candidate ? 0 : static_cast<int32_t>(VEXA_ERR_ISSUER_SIGNATURE);
    }
    int32_t cmp = VexaX509NameCompare(&candidate->tbsCertificate.subject, &cert->tbsCertificate.issuer);
    if (cmp != 0) {
        return cmp;
    }
    if (!InternalHasKeyUsage(candidate, VEXA_KU_BIT_KEY_CERT_SIGN)) {
        return static_cast<int32_t>(VEXA_ERR_KEY_USAGE);
    }
    uint32_t verdict = 0;
    uint32_t ret = VerifyWithKeyOf(cert, candidate, &verdict);
    if (ret != VEXA_OK) {
        return static_cast<int32_t>(ret);
    }
    if (verdict != 1) {
        return static_cast<int32_t>(VEXA_ERR_ISSUER_SIGNATURE);
    }
    cert->verifiedIssuer = candidate;
    return 0;
}

VexaX509Cert *InternalFindIssuer(const VexaVerifyCtx *ctx, VexaX509Cert *cert)
{
    if (ctx == nullptr || ctx->store == nullptr || cert == nullptr) {
        return nullptr;
    }
    uint8_t *refused = nullptr; /* candidates this certificate's signature has already ruled out */
    const int32_t index = InternalStoreIndexOf(&ctx->store->certs, cert);
    if (index >= 0) {
        refused = ctx->store->memo.issuerRefused[index];
    }
    const VexaList *certs = &ctx->store->certs;
    for (uint32_t i = 0; i < certs->count && i < VEXA_LIST_CAPACITY; i++) {
        VexaX509Cert *entry = static_cast<VexaX509Cert *>(certs->items[i]);
        if (entry == nullptr || entry->tbsCertificate.extensions.basicConstraintsCa != 1 ||
            (refused != nullptr && refused[i] != 0)) {
            continue;
        }
        const int32_t ret = InternalCheckIssuer(cert, entry);
        if (ret == 0) {
            return entry;
        }
        if (refused != nullptr && IsFinalRefusal(ret)) {
            refused[i] = 1;
        }
    }
    return nullptr;
}

/* Iterative walk: the depth bound, not the call stack, ends a loop of
 * certificates that issued each other. */
VexaX509Cert *InternalFindCertRoot(const VexaVerifyCtx *ctx, VexaX509Cert *cert, int32_t depth)
{
    while (cert != nullptr) {
        if (depth < 0 || depth > kMaxRootDepth) {
            VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_GENERIC,
                            "find path too deep.");
            return nullptr;
        }
        uint32_t selfSigned = 0;
        if (InternalCheckSelfSignedInStore(ctx, cert, &selfSigned) != VEXA_OK) {
            return nullptr;
        }
        if (selfSigned == 1) {
            return cert;
        }
        cert = InternalFindIssuer(ctx, cert);
        depth++;
    }
    return nullptr;
}
