// SPDX-License-Identifier: Apache-2.0
/* Is a certificate trustworthy at the context's verification time: every
 * certificate up its path within its validity, not revoked, ending in a
 * self-signed certificate of the store. Re-entered for CRL signers, so the
 * nesting is counted in the context. */
#include "pki/pki.h"

#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"

namespace {

/* Both keys as decoded: the modulus without its sign octet and the
 * exponent. Another encoding of the same key compares different, which
 * only makes the walk go on. */
bool SameKey(const VexaX509Cert *a, const VexaX509Cert *b)
{
    const VexaRsaPubKey *ka = &a->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    const VexaRsaPubKey *kb = &b->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    return VexaAsnOctsCompare(&ka->modulus, &kb->modulus) == 0 &&
           VexaAsnOctsCompare(&ka->publicExponent, &kb->publicExponent) == 0;
}

} // namespace

uint32_t InternalCheckCertDate(const VexaX509Cert *cert, int64_t time)
{
    int64_t notBefore = 0;
    int64_t notAfter = 0;
    uint32_t ret = VexaAsnTimeToEpoch(&cert->tbsCertificate.validity.notBefore, &notBefore);
    if (ret != VEXA_OK) {
        return ret;
    }
    ret = VexaAsnTimeToEpoch(&cert->tbsCertificate.validity.notAfter, &notAfter);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (time < notBefore) {
        return VEXA_ERR_NOT_YET_VALID;
    }
    if (time > notAfter) {
        return VEXA_ERR_EXPIRED;
    }
    return VEXA_OK;
}

uint32_t InternalVerifyCertificate(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t crlMode, VexaX509Cert **next,
                                   uint32_t *done)
{
    uint32_t ret = InternalCheckCertDate(cert, ctx->verifyTime);
    if (ret != VEXA_OK) {
        VEXA_LOG(VEXA_LOG_WARNING, ret,
                        "Check date for certificate failed, verify may fail.");
        return ret;
    }
    uint32_t selfSigned = 0;
    ret = InternalCheckSelfSignedInStore(ctx, cert, &selfSigned);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (selfSigned == 1) {
        *done = 1;
        return VEXA_OK;
    }
    VexaX509Crl *crl = nullptr;
    ret = InternalCheckCrlOfCert(ctx, cert, crlMode, &crl);
    if (ret != VEXA_OK) {
        return ret;
    }
    VexaX509Cert *issuer = InternalFindIssuer(ctx, cert);
    if (crl->tbsCertList.crlExtensions.issuingDistributionPoint.indirectCRL != 1) {
        /* The CRL signer's path has just been verified. It vouches for the
         * issuer only when it holds the key that signed the certificate: a
         * same-name certificate with another key (a rolled-over CA, or a
         * name equal only in each RDN's first attribute) leaves the issuer's
         * own validity and revocation to be judged, as after an indirect CRL. */
        const VexaX509Cert *signer = VexaPkiFindCrlSigner(ctx, crl);
        if (issuer != nullptr && signer != nullptr && SameKey(signer, issuer)) {
            *done = 1;
            return VEXA_OK;
        }
    }
    if (issuer == nullptr) {
        return VEXA_ERR_NO_ROOT;
    }
    *next = issuer;
    return VEXA_OK;
}

uint32_t VexaPkiVerifyCert(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t resetDepth, uint32_t crlMode,
                           uint32_t *verdict)
{
    if (ctx == nullptr || cert == nullptr || verdict == nullptr) {
        return VEXA_ERR_PARAM;
    }
    *verdict = 0;
    if (resetDepth != 0) {
        ctx->pathDepth = 0;
        InternalPkiMemoForget(ctx);
    }
    if (ctx->pathDepth > VEXA_PKI_MAX_NESTING) {
        VEXA_LOG(VEXA_LOG_ERROR, 0,
                        "The path of certificate is too deep.");
        return VEXA_ERR_PATH_TOO_DEEP;
    }
    /* CRL signers nest: without this, candidates that lead to each other
     * are verified once per path through them, exponentially often. */
    const VexaPkiVerifyOutcome *known = InternalPkiMemoVerified(ctx, cert, crlMode);
    if (known != nullptr) {
        *verdict = known->verdict;
        return known->code;
    }
    VexaX509Cert *const first = cert;
    ctx->pathDepth++;
    uint32_t ret = VEXA_OK;
    uint32_t done = 0;
    while (ret == VEXA_OK && done == 0 && cert != nullptr) {
        VexaX509Cert *next = nullptr;
        ret = InternalVerifyCertificate(ctx, cert, crlMode, &next, &done);
        cert = next;
    }
    if (ret == VEXA_OK && done == 1) {
        ret = InternalCheckPathConstraints(first);
        *verdict = ret == VEXA_OK ? 1 : 0;
    }
    ctx->pathDepth--;
    InternalPkiMemoSetVerified(ctx, first, crlMode, ret, *verdict);
    return ret;
}
