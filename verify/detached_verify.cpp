// SPDX-License-Identifier: Apache-2.0
/* Detached CMS signatures: Begin checks everything that does not need the
 * content and leaves one pending check per signer; Update streams the
 * content into them; Final gives the verdict. */
#include "verify/detached_verify.h"

#include <string.h>

#include <kestrel/kestrel.h>

#include "pki/pki.h"
#include "base/diagnostics.h"
#include "verify/input_decode.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kFileChunk = 4096;
constexpr char kPemBegin[] = "-----BEGIN";

void FreeHandleEntry(void *handle)
{
    InternalFreeVerifyHandle(static_cast<VexaVerifyHandle *>(handle));
}

uint32_t HashAlgOf(const VexaPkcs7SignerInfo *signer)
{
    return VexaGetHashAlgFromOid(&signer->digestAlgorithm.algorithm);
}

/* Creates an RSA verification context holding the certificate's key. */
uint32_t StartRsaVerify(const VexaX509Cert *cert, uint32_t hashAlg, VexaCryptoCtx **out)
{
    VexaBigInt exponent = {};
    VexaBigInt modulus = {};
    uint32_t ret = VexaX509ExtractPublicKey(cert, &exponent, &modulus);
    if (ret != VEXA_OK) {
        return ret;
    }
    VexaCryptoCtx *rsa = nullptr;
    ret = VexaRsaVerifyCreate(&rsa);
    if (ret != VEXA_OK) {
        return ret;
    }
    ret = VexaRsaVerifyInit(rsa, &exponent, &modulus, hashAlg);
    if (ret != VEXA_OK) {
        VexaRsaVerifyFree(rsa);
        return ret;
    }
    *out = rsa;
    return VEXA_OK;
}

uint32_t InternalCreateVerifyHandle(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *signer, const VexaX509Cert *cert)
{
    VexaVerifyHandle *handle = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&handle), sizeof(VexaVerifyHandle));
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    VexaCryptoCtx *rsa = nullptr;
    const uint32_t hashAlg = HashAlgOf(signer);
    if (hashAlg == 0) {
        ret = VEXA_ERR_UNSUPPORTED_DIGEST;
    } else {
        ret = StartRsaVerify(cert, hashAlg, &rsa);
    }
    if (ret == VEXA_OK && signer->signature.len > VEXA_HANDLE_SIGNATURE_MAX) {
        ret = VEXA_ERR_SIGNATURE_TOO_LONG;
    }
    if (ret == VEXA_OK && signer->signature.len != 0) {
        ret = static_cast<uint32_t>(
            memcpy_s(handle->signature, sizeof(handle->signature), signer->signature.data, signer->signature.len));
    }
    if (ret == VEXA_OK) {
        handle->signatureLen = signer->signature.len;
        ret = VexaListAppend(&ctx->verifyHandles, handle);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        VexaRsaVerifyFree(rsa);
        VexaFree(handle);
        return ret;
    }
    handle->verifyCtx = rsa;
    return VEXA_OK;
}

uint32_t InternalAddSignerInfoToVerifyProcess(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *signer)
{
    VexaVerifyHandle *handle = nullptr;
    uint32_t ret = InternalGetDigestFromSignerInfo(signer, &handle);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    /* signers that share a hash algorithm share one digest of the content,
     * so they must expect the same digest */
    for (uint32_t i = 0; i < ctx->verifyHandles.count; i++) {
        const VexaVerifyHandle *other = static_cast<const VexaVerifyHandle *>(ctx->verifyHandles.items[i]);
        if (other->digestCtx == nullptr || other->hashAlg != handle->hashAlg) {
            continue;
        }
        const bool same = other->digestLen == handle->digestLen &&
                          memcmp(other->digest, handle->digest, handle->digestLen) == 0;
        InternalFreeVerifyHandle(handle);
        if (!same) {
            (void)VEXA_FAIL(VEXA_ERR_DIGEST_CONFLICT);
            return VEXA_ERR_DIGEST_CONFLICT;
        }
        return VEXA_OK;
    }
    ret = VexaDigestCreate(&handle->digestCtx);
    if (ret == VEXA_OK) {
        ret = VexaDigestInit(handle->digestCtx, handle->hashAlg);
    }
    if (ret == VEXA_OK) {
        ret = VexaListAppend(&ctx->verifyHandles, handle);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        InternalFreeVerifyHandle(handle);
    }
    return ret;
}

uint32_t InternalVerifySigner(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *signer)
{
    /* the token comes first: its time is when the signer's path is judged */
    uint32_t ret = InternalVerifyTimeStamp(ctx, signer);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    VexaX509Cert *cert = VexaPkiFindCertByIssuerSerial(ctx, &signer->sid.issuer, &signer->sid.serialNumber);
    if (cert == nullptr) {
        (void)VEXA_FAIL(VEXA_ERR_SIGNER_NOT_FOUND);
        return VEXA_ERR_SIGNER_NOT_FOUND;
    }
    ret = InternalVerifyIssuerCert(ctx, cert, VEXA_USAGE_CODE_SIGNING);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    if (signer->signedAttrs.messageDigest.data == nullptr) {
        ret = InternalCreateVerifyHandle(ctx, signer, cert);
        if (ret != VEXA_OK) {
            (void)VEXA_FAIL(ret);
        }
        return ret;
    }
    if (signer->signedAttrsRaw.data == nullptr) {
        (void)VEXA_FAIL(VEXA_ERR_CMS_DECODE);
        return VEXA_ERR_CMS_DECODE;
    }
    uint32_t verdict = 0;
    ret = VexaPkcs7DetachedSignatureVerify(signer, cert, &verdict);
    if (ret != VEXA_OK || verdict != 1) {
        (void)VEXA_FAIL(VEXA_ERR_CMS_SIGNATURE);
        return VEXA_ERR_CMS_SIGNATURE;
    }
    ret = InternalAddSignerInfoToVerifyProcess(ctx, signer);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    }
    return ret;
}

uint32_t InternalVerifyCms(VexaVerifyCtx *ctx, VexaPkcs7Content *content)
{
    uint32_t ret = InternalAddCmsCertsToStore(ctx, content);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    const VexaPkcs7SignerInfoList *signers = &content->content.signerInfos;
    const uint32_t n = signers->count < VEXA_PKCS7_MAX_SIGNERS ? signers->count : VEXA_PKCS7_MAX_SIGNERS;
    for (uint32_t i = 0; i < n; i++) {
        ret = InternalVerifySigner(ctx, &signers->signers[i]);
        if (ret != VEXA_OK) {
            return ret;
        }
    }
    return VEXA_OK;
}

/* The context keeps its own copy of the signature: certificates taken into
 * the store point into it and must never outlive the bytes. */
uint32_t DecodeSignature(VexaVerifyCtx *ctx, const uint8_t *signature, uint32_t length, VexaPkcs7Content **content)
{
    const bool pem = memcmp(signature, kPemBegin, sizeof(kPemBegin) - 1) == 0;
    uint8_t *copy = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&copy), pem ? length + 1 : length);
    if (ret != VEXA_OK) {
        VEXA_LOG(VEXA_LOG_WARNING, ret, nullptr);
        return ret;
    }
    int copied = memcpy_s(copy, pem ? length + 1 : length, signature, length);
    if (copied != 0) {
        VexaFree(copy);
        return static_cast<uint32_t>(copied);
    }
    if (pem) {
        ret = InternalPemDecodeCms(ctx, reinterpret_cast<const char *>(copy), length, content);
        VexaFree(copy);
        return ret;
    }
    ret = VexaListAppend(&ctx->decodedBuffers, copy);
    if (ret != VEXA_OK) {
        VexaFree(copy);
        return ret;
    }
    uint32_t consumed = 0;
    return VexaPkcs7DecodeContent(copy, length, content, &consumed);
}

} // namespace

uint32_t InternalAddCmsCertsToStore(VexaVerifyCtx *ctx, VexaPkcs7Content *content)
{
    if (content->content.decodedCerts.count == 0) {
        return VEXA_OK;
    }
    return InternalAddCertToStore(ctx, &content->content.decodedCerts, 0);
}

uint32_t InternalVerifyIssuerCert(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t usage)
{
    const VexaX509Extensions *ext = &cert->tbsCertificate.extensions;
    if (!InternalHasKeyUsage(cert, VEXA_KU_BIT_DIGITAL_SIGNATURE) || (ext->extKeyUsage & usage) == 0) {
        (void)VEXA_FAIL(VEXA_ERR_KEY_USAGE);
        return VEXA_ERR_KEY_USAGE;
    }
    uint32_t verdict = 0;
    uint32_t ret = VexaPkiVerifyCert(ctx, cert, 1, usage == VEXA_USAGE_TIME_STAMPING ? 1 : 0, &verdict);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    if (verdict != 1) {
        (void)VEXA_FAIL(VEXA_ERR_PATH_UNVERIFIED);
        return VEXA_ERR_PATH_UNVERIFIED;
    }
    return VEXA_OK;
}

uint32_t VexaPkcs7DetachedSignatureVerify(const VexaPkcs7SignerInfo *signer, const VexaX509Cert *cert,
                                          uint32_t *verdict)
{
    if (signer == nullptr || cert == nullptr || verdict == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const uint32_t hashAlg = HashAlgOf(signer);
    if (hashAlg == 0) {
        return VEXA_ERR_UNSUPPORTED_DIGEST;
    }
    *verdict = 0;
    const VexaAsnOcts *attrs = &signer->signedAttrsRaw;
    if (attrs->data == nullptr || attrs->len < 2) {
        return VEXA_ERR_CMS_DECODE;
    }
    VexaCryptoCtx *rsa = nullptr;
    uint32_t ret = StartRsaVerify(cert, hashAlg, &rsa);
    if (ret != VEXA_OK) {
        return ret;
    }
    /* the signed attributes are hashed with a SET tag, not the [0] they are
     * stored under */
    const uint8_t setTag = static_cast<uint8_t>((attrs->tagClass << 6) | (attrs->constructed << 5) | attrs->tagNumber);
    ret = VexaRsaVerifyUpdate(rsa, &setTag, 1);
    if (ret == VEXA_OK) {
        ret = VexaRsaVerifyUpdate(rsa, attrs->data + 1, attrs->len - 1);
    }
    if (ret == VEXA_OK) {
        ret = VexaRsaVerifyFinal(rsa, signer->signature.data, signer->signature.len, verdict);
    }
    VexaRsaVerifyFree(rsa);
    if (ret != VEXA_OK) {
        VEXA_LOG(VEXA_LOG_ERROR, ret,
                        "Failed to init verify context.");
    }
    return ret;
}

uint32_t InternalGetDigestFromSignerInfo(const VexaPkcs7SignerInfo *signer, VexaVerifyHandle **out)
{
    *out = nullptr;
    VexaVerifyHandle *handle = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&handle), sizeof(VexaVerifyHandle));
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    const VexaAsnOcts *md = &signer->signedAttrs.messageDigest;
    handle->hashAlg = HashAlgOf(signer);
    if (handle->hashAlg == 0) {
        ret = VEXA_ERR_UNSUPPORTED_MD;
    } else if (md->len > VEXA_HANDLE_DIGEST_MAX) {
        ret = VEXA_ERR_COPY;
    } else if (md->len != 0) {
        ret = static_cast<uint32_t>(memcpy_s(handle->digest, sizeof(handle->digest), md->data, md->len));
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        VexaFree(handle);
        return ret;
    }
    handle->digestLen = md->len;
    *out = handle;
    return VEXA_OK;
}

uint32_t InternalHashContent(const uint8_t *data, uint32_t length, uint32_t hashAlg, uint8_t *out, uint32_t *outLen)
{
    VexaCryptoCtx *md = nullptr;
    uint32_t ret = VexaDigestCreate(&md);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    uint32_t unused = 0;
    ret = VexaDigestInit(md, hashAlg);
    if (ret == VEXA_OK) {
        ret = VexaDigestUpdate(md, data, length);
    }
    if (ret == VEXA_OK) {
        ret = VexaDigestFinal(md, out, outLen, &unused);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    }
    VexaDigestFree(md);
    return ret;
}

extern "C" uint32_t VexaVerifyDetachSignatureBegin(VexaVerifyCtx *ctx, const uint8_t *signature, uint32_t length)
{
    uint32_t ret = InternalCheckCtxAndArgs(ctx, signature != nullptr && length != 0,
                                           "InternalCheckParamVerifyDetachSignatureBegin");
    if (ret != VEXA_OK) {
        return ret;
    }
    if (length < VEXA_MIN_INPUT_LEN) {
        return VEXA_ERR_INPUT_FORMAT;
    }
    VexaPkcs7Content *content = nullptr;
    ret = DecodeSignature(ctx, signature, length, &content);
    /* A SignedData without a signer proves nothing; Final would otherwise
     * find no pending check and report a verdict about nothing. */
    if (content == nullptr || ret != VEXA_OK || content->content.signerInfos.count == 0) {
        VexaPkcs7FreeContent(content);
        (void)VEXA_FAIL(VEXA_ERR_CMS_FORMAT);
        return VEXA_ERR_CMS_FORMAT;
    }
    ret = InternalVerifyCms(ctx, content);
    VexaPkcs7FreeContent(content);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    }
    return ret;
}

extern "C" uint32_t VexaVerifyDetachSignatureUpdate(VexaVerifyCtx *ctx, const uint8_t *content, uint32_t length)
{
    uint32_t ret = InternalCheckCtxAndArgs(ctx, content != nullptr && length != 0,
                                           "InternalCheckParmVerifyDetachSignatureUpdate");
    if (ret != VEXA_OK) {
        return ret;
    }
    if (ctx->verifyHandles.count == 0) {
        (void)VEXA_FAIL(VEXA_ERR_NO_PENDING);
        return VEXA_ERR_NO_PENDING;
    }
    for (uint32_t i = 0; i < ctx->verifyHandles.count; i++) {
        VexaVerifyHandle *handle = static_cast<VexaVerifyHandle *>(ctx->verifyHandles.items[i]);
        if (handle->digestCtx != nullptr) {
            ret = VexaDigestUpdate(handle->digestCtx, content, length);
        } else if (handle->verifyCtx != nullptr) {
            ret = VexaRsaVerifyUpdate(handle->verifyCtx, content, length);
        } else {
            return VEXA_ERR_NO_PENDING;
        }
        if (ret != VEXA_OK) {
            (void)VEXA_FAIL(ret);
            return ret;
        }
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaVerifyDetachSignatureFinal(VexaVerifyCtx *ctx, uint32_t *verdict)
{
    uint32_t ret = InternalCheckCtxAndArgs(ctx, verdict != nullptr, "InternalCheckParamVerifyDetachSignatureFinal");
    if (ret != VEXA_OK) {
        return ret;
    }
    *verdict = 1;
    for (uint32_t i = 0; i < ctx->verifyHandles.count && ret == VEXA_OK; i++) {
        VexaVerifyHandle *handle = static_cast<VexaVerifyHandle *>(ctx->verifyHandles.items[i]);
        if (handle->digestCtx != nullptr) {
            uint8_t digest[VEXA_HANDLE_DIGEST_MAX] = {0};
            uint32_t digestLen = 0;
            uint32_t unused = 0;
            ret = VexaDigestFinal(handle->digestCtx, digest, &digestLen, &unused);
            if (ret == VEXA_OK &&
                (digestLen != handle->digestLen || memcmp(digest, handle->digest, handle->digestLen) != 0)) {
                *verdict = 0;
                break;
            }
        } else if (handle->verifyCtx == nullptr) {
            ret = VEXA_ERR_CMS_SIGNATURE;
        } else {
            uint32_t rsaVerdict = 0;
            ret = VexaRsaVerifyFinal(handle->verifyCtx, handle->signature, handle->signatureLen, &rsaVerdict);
            if (ret == VEXA_OK) {
                *verdict = rsaVerdict;
                if (rsaVerdict != 1) {
                    break;
                }
            }
        }
    }
    VexaListFreeAll(&ctx->verifyHandles, FreeHandleEntry);
    if (ret != VEXA_OK) {
        *verdict = 0;
        VEXA_LOG(VEXA_LOG_ERROR, ret,
                        "Verify Signature Content failed.");
    }
    return ret;
}

namespace {

uint32_t InternalUpdateContent(VexaVerifyCtx *ctx, const char *path)
{
    if (path == nullptr || path[0] == '\0') {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_FILE_OPEN,
                        "Empty file path.");
        return VEXA_ERR_PARAM;
    }
    FILE *file = VexaFileOpen(path, "rb");
    if (file == nullptr) {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_FILE_OPEN,
                        "Can't open file '%s'.", path);
        return VEXA_ERR_FILE_OPEN;
    }
    uint8_t *buffer = nullptr;
    uint32_t ret = VexaMalloc(reinterpret_cast<void **>(&buffer), kFileChunk);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    } else {
        size_t got;
        while (ret == VEXA_OK && (got = VexaFileRead(buffer, kFileChunk, file)) != 0) {
            ret = VexaVerifyDetachSignatureUpdate(ctx, buffer, static_cast<uint32_t>(got));
            if (ret != VEXA_OK) {
                (void)VEXA_FAIL(ret);
            }
        }
    }
    InternalCloseFile(file);
    VexaFree(buffer);
    return ret;
}

} // namespace

extern "C" uint32_t VexaVerifyDetachSignatureQuick(VexaVerifyCtx *ctx, const char *contentPath,
                                                   const char *signaturePath, uint32_t *verdict)
{
    uint32_t ret = InternalCheckCtxAndArgs(ctx, contentPath != nullptr && signaturePath != nullptr && verdict != nullptr,
                                           "InternalCheckParamVerifyDetachSignatureQuick");
    if (ret != VEXA_OK) {
        return ret;
    }
    *verdict = 0;
    uint8_t *signature = nullptr;
    uint32_t length = 0;
    ret = InternalReadFile(signaturePath, &signature, &length);
    if (ret == VEXA_OK) {
        ret = VexaVerifyDetachSignatureBegin(ctx, signature, length);
    }
    if (ret == VEXA_OK) {
        ret = InternalUpdateContent(ctx, contentPath);
    }
    if (ret == VEXA_OK) {
        ret = VexaVerifyDetachSignatureFinal(ctx, verdict);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    }
    VexaFree(signature);
    return ret;
}
