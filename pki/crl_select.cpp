// SPDX-License-Identifier: Apache-2.0
/* Choosing the CRL that speaks for a certificate, and judging the
 * certificate against it. Candidates are scored by their relation to the
 * certificate's issuer, their freshness and whether they list it; the best
 * one whose signer's own path verifies is used. */
#include "pki/pki.h"

#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kReasonAffiliationChanged = 3;
constexpr uint32_t kReasonSuperseded = 4;
constexpr uint32_t kReasonCessationOfOperation = 5;

struct VexaCrlCandidate {
    uint32_t score;
    VexaX509Crl *crl;
};

uint32_t RevokedCount(const VexaX509Crl *crl)
{
    const uint32_t n = crl->tbsCertList.revokedCertificates.count;
    return n < VEXA_X509_MAX_REVOKED ? n : VEXA_X509_MAX_REVOKED;
}

void FreeCandidate(void *candidate)
{
    VexaFree(candidate);
}

} // namespace

int32_t InternalCrlGetIssuerScore(const VexaVerifyCtx *ctx, const VexaX509Crl *crl, const VexaX509Cert *cert,
                                  const VexaX509Cert *root, uint32_t *score)
{
    if (cert->tbsCertificate.issuer.count == 0) {
        return -1;
    }
    const bool sameIssuer = VexaX509NameCompare(&crl->tbsCertList.issuer, &cert->tbsCertificate.issuer) == 0;
    const bool indirect = crl->tbsCertList.crlExtensions.issuingDistributionPoint.indirectCRL == 1;
    if (!sameIssuer && !indirect) {
        return -1;
    }
    VexaX509Cert *signer = VexaPkiFindCrlSigner(ctx, crl);
    if (signer == nullptr) {
        return -1;
    }
    /* a CRL counts only when its signer leads to the certificate's own root */
    if (InternalFindCertRoot(ctx, signer, 0) != root) {
        return -1;
    }
    if (sameIssuer) {
        *score += VEXA_CRL_SCORE_ISSUER;
    }
    if (indirect) {
        *score += VEXA_CRL_SCORE_INDIRECT;
    }
    return 0;
}

uint32_t InternalCrlGetScore(const VexaVerifyCtx *ctx, const VexaX509Crl *crl, const VexaX509Cert *cert,
                             const VexaX509Cert *root)
{
    uint32_t score = 0;
    if (!InternalCrlCovers(crl, cert) || InternalCrlGetIssuerScore(ctx, crl, cert, root, &score) != 0) {
        return 0;
    }
    const uint32_t n = RevokedCount(crl);
    for (uint32_t i = 0; i < n; i++) {
        if (VexaAsnOctsCompare(&crl->tbsCertList.revokedCertificates.entries[i].userCertificate,
                               &cert->tbsCertificate.serialNumber) == 0) {
            score += VEXA_CRL_SCORE_LISTED;
            break;
        }
    }
    int64_t nextUpdate = 0;
    if (VexaAsnTimeToEpoch(&crl->tbsCertList.nextUpdate, &nextUpdate) != VEXA_OK) {
        return 0;
    }
    if (ctx->verifyTime > nextUpdate) {
        VEXA_LOG(VEXA_LOG_WARNING, VEXA_ERR_CRL_EXPIRED,
                        "Found an expired CRL, it most likely cause NO CRL error.");
        /* an expired CRL that lists the certificate still speaks against it */
        return (score & VEXA_CRL_SCORE_LISTED) != 0 ? score : 0;
    }
    return score + VEXA_CRL_SCORE_CURRENT;
}

uint32_t InternalCollectCrls(const VexaVerifyCtx *ctx, const VexaX509Cert *cert, VexaList *candidates)
{
    VexaX509Cert *root = InternalFindCertRoot(ctx, const_cast<VexaX509Cert *>(cert), 0);
    if (root == nullptr) {
        return VEXA_ERR_NO_ROOT;
    }
    const VexaList *crls = &ctx->store->crls;
    for (uint32_t i = 0; i < crls->count; i++) {
        VexaX509Crl *crl = static_cast<VexaX509Crl *>(crls->items[i]);
        if (crl == nullptr) {
            continue;
        }
        const uint32_t score = InternalCrlGetScore(ctx, crl, cert, root);
        if (score == 0) {
            continue;
        }
        VexaCrlCandidate *candidate = nullptr;
        uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&candidate), sizeof(VexaCrlCandidate));
        if (ret != VEXA_OK) {
            return ret;
        }
        candidate->score = score;
        candidate->crl = crl;
        ret = VexaListAppend(candidates, candidate);
        if (ret != VEXA_OK) {
            VexaFree(candidate);
            return ret;
        }
    }
    return VEXA_OK;
}

int32_t InternalCompareCrlScore(const void *a, const void *b)
{
    const uint32_t sa = static_cast<const VexaCrlCandidate *>(a)->score;
    const uint32_t sb = static_cast<const VexaCrlCandidate *>(b)->score;
    return sa > sb ? -1 : (sa < sb ? 1 : 0);
}

VexaX509Crl *InternalFindBestCrlOfCert(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode)
{
    VexaList candidates = {};
    VexaX509Crl *chosen = nullptr;
    uint32_t ret = InternalCollectCrls(ctx, cert, &candidates);
    if (ret == VEXA_OK) {
        ret = VexaListSort(&candidates, InternalCompareCrlScore);
    }
    if (ret != VEXA_OK) {
        ctx->crlError = ret;
    } else {
        uint32_t last = VEXA_OK;
        for (uint32_t i = 0; i < candidates.count && chosen == nullptr; i++) {
            VexaCrlCandidate *candidate = static_cast<VexaCrlCandidate *>(candidates.items[i]);
            VexaX509Cert *signer = VexaPkiFindCrlSigner(ctx, candidate->crl);
            if (signer == nullptr) {
                continue;
            }
            uint32_t verdict = 0;
            last = VexaPkiVerifyCert(ctx, signer, 0, crlMode, &verdict);
            if (last == VEXA_OK && verdict == 1) {
                chosen = candidate->crl;
            }
        }
        if (candidates.count == 0) {
            VEXA_LOG(VEXA_LOG_ERROR, 0,
                            "Can't find CRL for certificate.");
            ctx->crlError = VEXA_ERR_NO_CRL;
        } else if (chosen == nullptr) {
            VEXA_LOG(VEXA_LOG_ERROR, last,
                            "Verify CRL failed.");
            ctx->crlError = last != VEXA_OK ? last : VEXA_ERR_CRL_SIGNATURE;
        }
    }
    VexaListFreeAll(&candidates, FreeCandidate);
    return chosen;
}

uint32_t InternalCheckRevokedEntry(const VexaX509Cert *cert, int64_t time, uint32_t crlMode,
                                   const VexaX509RevokedEntry *entry)
{
    if (VexaAsnOctsCompare(&entry->userCertificate, &cert->tbsCertificate.serialNumber) != 0) {
        return VEXA_OK;
    }
    /* For CA certificates (and every certificate in strict mode) only the
     * benign reasons keep signatures made before the revocation date valid. */
    if (crlMode == 1 || cert->tbsCertificate.extensions.basicConstraintsCa != 0) {
        if (entry->reasonCode != kReasonAffiliationChanged && entry->reasonCode != kReasonSuperseded &&
            entry->reasonCode != kReasonCessationOfOperation) {
            return VEXA_ERR_REVOKED;
        }
    }
    int64_t revoked = 0;
    uint32_t ret = VexaAsnTimeToEpoch(&entry->revocationDate, &revoked);
    if (ret != VEXA_OK) {
        return ret;
    }
    return time < revoked ? VEXA_OK : VEXA_ERR_REVOKED;
}

uint32_t InternalCheckCrlOfCert(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode, VexaX509Crl **used)
{
    VexaX509Crl *crl = InternalFindBestCrlOfCert(ctx, cert, crlMode);
    if (crl == nullptr) {
        return ctx->crlError;
    }
    uint32_t ret = VEXA_OK;
    const uint32_t n = RevokedCount(crl);
    for (uint32_t i = 0; i < n; i++) {
        ret = InternalCheckRevokedEntry(cert, ctx->verifyTime, crlMode, &crl->tbsCertList.revokedCertificates.entries[i]);
        if (ret == VEXA_ERR_REVOKED) {
            VEXA_LOG(VEXA_LOG_ERROR, ret,
                            "The certificate was revoked.\r\n");
            break;
        }
        if (ret != VEXA_OK) {
            return ret;
        }
    }
    *used = crl;
    return ret;
}
