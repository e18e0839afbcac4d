// SPDX-License-Identifier: Apache-2.0
/* RFC 3161 time-stamp tokens: the token proves the signer's signature value
 * existed at genTime, and genTime becomes the time at which every
 * certificate of the verification is judged. */
#include <string.h>

#include "pki/pki.h"
#include "verify/detached_verify.h"
#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

uint32_t InternalVerifyTstInfo(VexaVerifyCtx *ctx, const VexaAsnOcts *tstInfo, const VexaPkcs7SignerInfo *signer)
{
    VexaTimestampInfo *info = nullptr;
    uint32_t consumed = 0;
    uint32_t ret = VexaAsnDecodeItem(tstInfo->data, tstInfo->len, &g_itemVexaTimestampInfo, 0,
                                     reinterpret_cast<void **>(&info), &consumed);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    uint8_t digest[VEXA_HANDLE_DIGEST_MAX] = {0};
    uint32_t digestLen = 0;
    const uint32_t hashAlg = VexaGetHashAlgFromOid(&info->messageImprint.hashAlgorithm.algorithm);
    if (hashAlg == 0) {
        ret = VEXA_ERR_TS_DIGEST;
        (void)VEXA_FAIL(ret);
    } else if ((ret = InternalHashContent(signer->signature.data, signer->signature.len, hashAlg, digest,
                                          &digestLen)) != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    } else if (info->messageImprint.hashedMessage.len != digestLen ||
               memcmp(info->messageImprint.hashedMessage.data, digest, digestLen) != 0) {
        ret = VEXA_ERR_TS_IMPRINT;
        VEXA_LOG(VEXA_LOG_ERROR, ret,
                        "the timestamp not match with target cms.");
    } else {
        VexaDateTime when = {};
        ret = VexaAsnTimeToDateTime(&info->genTime, &when);
        if (ret == VEXA_OK) {
            ctx->verifyTime = static_cast<int64_t>(VexaDateTimeToEpoch(&when));
        } else {
            (void)VEXA_FAIL(ret);
        }
    }
    VexaFree(info);
    return ret;
}

uint32_t InternalVerifyAttributeSign(const VexaPkcs7SignerInfo *tsSigner, const VexaX509Cert *cert,
                                     const VexaAsnOcts *tstInfo)
{
    if (tsSigner->signedAttrsRaw.data == nullptr) {
        (void)VEXA_FAIL(VEXA_ERR_CMS_DECODE);
        return VEXA_ERR_CMS_DECODE;
    }
    uint32_t verdict = 0;
    uint32_t ret = VexaPkcs7DetachedSignatureVerify(tsSigner, cert, &verdict);
    if (ret != VEXA_OK || verdict != 1) {
        (void)VEXA_FAIL(VEXA_ERR_CMS_SIGNATURE);
        return VEXA_ERR_CMS_SIGNATURE;
    }
    VexaVerifyHandle *expected = nullptr;
    ret = InternalGetDigestFromSignerInfo(tsSigner, &expected);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    uint8_t digest[VEXA_HANDLE_DIGEST_MAX] = {0};
    uint32_t digestLen = 0;
    ret = InternalHashContent(tstInfo->data, tstInfo->len, expected->hashAlg, digest, &digestLen);
    if (ret != VEXA_OK) {
        VEXA_LOG(VEXA_LOG_ERROR, ret,
                        "verify timestamp digest failed.");
    } else if (digestLen != expected->digestLen || memcmp(digest, expected->digest, digestLen) != 0) {
        ret = VEXA_ERR_TS_SIGNATURE;
        VEXA_LOG(VEXA_LOG_ERROR, ret,
                        "verify timestamp signature failed.");
    }
    InternalFreeVerifyHandle(expected);
    return ret;
}

uint32_t InternalVerifyTsSignerInfo(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *tsSigner,
                                    const VexaAsnOcts *tstInfo)
{
    VexaX509Cert *cert = VexaPkiFindCertByIssuerSerial(ctx, &tsSigner->sid.issuer, &tsSigner->sid.serialNumber);
    if (cert == nullptr) {
        (void)VEXA_FAIL(VEXA_ERR_TSA_NOT_FOUND);
        return VEXA_ERR_TSA_NOT_FOUND;
    }
    uint32_t ret = InternalVerifyIssuerCert(ctx, cert, VEXA_USAGE_TIME_STAMPING);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    if (tsSigner->signedAttrs.messageDigest.data != nullptr) {
        ret = InternalVerifyAttributeSign(tsSigner, cert, tstInfo);
        if (ret != VEXA_OK) {
            (void)VEXA_FAIL(ret);
        }
        return ret;
    }
    /* no signed attributes: the signature is over the TSTInfo itself */
    uint32_t verdict = 0;
    ret = VexaX509PubKeyVerify(tstInfo->data, tstInfo->len, tsSigner->signature.data, tsSigner->signature.len,
                               &cert->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey,
                               &tsSigner->digestAlgorithm, &verdict);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    return verdict == 1 ? VEXA_OK : VEXA_ERR_TS_SIGNATURE;
}

} // namespace

uint32_t InternalVerifyTimeStamp(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *signer)
{
    const VexaAsnOcts *token = &signer->unsignedAttrs.timeStampToken;
    if (token->data == nullptr || token->len == 0) {
        (void)VEXA_FAIL(VEXA_ERR_PARAM);
        return VEXA_ERR_PARAM;
    }
    VexaPkcs7Content *content = nullptr;
    uint32_t consumed = 0;
    uint32_t ret = VexaPkcs7DecodeContent(token->data, token->len, &content, &consumed);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(VEXA_ERR_CMS_DECODE);
        return VEXA_ERR_CMS_DECODE;
    }
    VexaAsnOcts *tstInfo = nullptr;
    const VexaAsnOcts *eContent = &content->content.encapContentInfo.eContent;
    if (eContent->data == nullptr || eContent->len == 0) {
        ret = VEXA_ERR_PARAM;
    } else {
        ret = VexaAsnDecodeItem(eContent->data, eContent->len, &g_itemVexaAsnOcts, 0,
                                reinterpret_cast<void **>(&tstInfo), &consumed);
    }
    if (ret == VEXA_OK && (tstInfo->data == nullptr || tstInfo->len == 0)) {
        ret = VEXA_ERR_PARAM;
    }
    if (ret == VEXA_OK) {
        ret = InternalVerifyTstInfo(ctx, tstInfo, signer);
    }
    if (ret == VEXA_OK) {
        ret = InternalAddCmsCertsToStore(ctx, content);
    }
    const VexaPkcs7SignerInfoList *tsSigners = &content->content.signerInfos;
    const uint32_t n = tsSigners->count < VEXA_PKCS7_MAX_SIGNERS ? tsSigners->count : VEXA_PKCS7_MAX_SIGNERS;
    for (uint32_t i = 0; ret == VEXA_OK && i < n; i++) {
        ret = InternalVerifyTsSignerInfo(ctx, &tsSigners->signers[i], tstInfo);
    }
    if (ret == VEXA_OK && n == 0) {
        /* a token nobody signed proves nothing */
        ret = VEXA_ERR_TS_SIGNATURE;
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    }
    VexaFree(tstInfo);
    VexaPkcs7FreeContent(content);
    return ret;
}
