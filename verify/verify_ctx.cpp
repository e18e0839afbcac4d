// SPDX-License-Identifier: Apache-2.0
/* Verification contexts and the operations that feed trusted certificates
 * and CRLs into them. */
#include "base/verify_ctx.h"

#include "base/diagnostics.h"
#include "pki/pki.h"
#include "verify/input_decode.h"
#include "verify/verify_handle.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

void FreeCertEntry(void *cert)
{
    VexaX509FreeCert(static_cast<VexaX509Cert *>(cert));
}

void FreeCrlEntry(void *crl)
{
    VexaX509FreeCrl(static_cast<VexaX509Crl *>(crl));
}

void FreeHandleEntry(void *handle)
{
    InternalFreeVerifyHandle(static_cast<VexaVerifyHandle *>(handle));
}

uint32_t InternalCheckParamVerifyAddCert(const VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length)
{
    return InternalCheckCtxAndArgs(ctx, data != nullptr && length != 0, __func__);
}

uint32_t InternalCheckParamVerifyAddCrl(const VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length)
{
    return InternalCheckCtxAndArgs(ctx, data != nullptr && length != 0, __func__);
}

uint32_t InternalCheckParamVerifyAddCertFile(const VexaVerifyCtx *ctx, const char *path)
{
    return InternalCheckCtxAndArgs(ctx, path != nullptr, __func__);
}

uint32_t InternalCheckParamVerifyAddCrlFile(const VexaVerifyCtx *ctx, const char *path)
{
    if (ctx == nullptr || path == nullptr) {
        return VEXA_ERR_PARAM;
    }
    return ctx->size == VEXA_CTX_MARKER ? VEXA_OK : VEXA_ERR_RECORD_SIZE;
}

} // namespace

extern "C" uint32_t VexaVerifyCreateCtx(VexaVerifyCtx **out, const VexaVerifyCtxParams *params)
{
    if (out == nullptr || params == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (params->size != VEXA_CTX_PARAMS_SIZE) {
        return VEXA_ERR_RECORD_SIZE;
    }
    VexaVerifyCtx *ctx = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&ctx), sizeof(VexaVerifyCtx));
    if (ret != VEXA_OK) {
        return ret;
    }
    ret = VexaPkiCreateStore(ctx);
    if (ret != VEXA_OK) {
        VexaFree(ctx);
        return ret;
    }
    ctx->size = VEXA_CTX_MARKER;
    *out = ctx;
    return VEXA_OK;
}

extern "C" uint32_t VexaVerifyDestroyCtx(VexaVerifyCtx *ctx)
{
    if (ctx == nullptr) {
        return VEXA_ERR_PARAM;
    }
    VexaPkiFreeStore(ctx);
    VexaListFreeAll(&ctx->verifyHandles, FreeHandleEntry);
    VexaListFreeAll(&ctx->decodedBuffers, VexaFree);
    VexaFree(ctx);
    return VEXA_OK;
}

extern "C" const char *VexaGetVersion(void)
{
    return "2.0.650";
}

uint32_t InternalAddCertToStore(VexaVerifyCtx *ctx, VexaList *certs, uint32_t allowRoot)
{
    if (certs->count == 0) {
        return VEXA_ERR_GENERIC;
    }
    uint32_t ret = VEXA_OK;
    for (uint32_t i = 0; i < certs->count; i++) {
        VexaX509Cert *cert = static_cast<VexaX509Cert *>(certs->items[i]);
        if (cert == nullptr) {
            continue;
        }
        if (allowRoot == 0) {
            /* roots come only from the trusted-certificate operation, never
             * from CRL or signature input */
            uint32_t selfSigned = 0;
            ret = InternalCheckSelfSigned(cert, &selfSigned);
            if (ret != VEXA_OK) {
                VEXA_LOG(VEXA_LOG_ERROR, ret,
                                "Failed to check self sign for certificate.");
                return ret;
            }
            if (selfSigned == 1) {
                VEXA_LOG(VEXA_LOG_WARNING, 0,
                                "There is a root certificate, which is not allowed when add crl or cms.");
                ret = VEXA_OK;
                continue;
            }
        }
        ret = VexaPkiAddCert(ctx, cert);
        if (ret == VEXA_ERR_CERT_EXISTS) {
            ret = VEXA_OK;
        } else if (ret != VEXA_OK) {
            VEXA_LOG(VEXA_LOG_ERROR, ret,
                            "Failed to add certificate into PKI context.");
            return ret;
        }
    }
    return ret;
}

uint32_t InternalAddCrlToStore(VexaVerifyCtx *ctx, VexaList *crls)
{
    for (uint32_t i = 0; i < crls->count; i++) {
        VexaX509Crl *crl = static_cast<VexaX509Crl *>(crls->items[i]);
        if (crl == nullptr) {
            continue;
        }
        uint32_t ret = VexaPkiAddCrl(ctx, crl);
        if (ret != VEXA_OK && ret != VEXA_ERR_CRL_EXISTS) {
            return ret;
        }
    }
    return VEXA_OK;
}

extern "C" uint32_t VexaVerifyAddCert(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length)
{
    uint32_t ret = InternalCheckParamVerifyAddCert(ctx, data, length);
    if (ret != VEXA_OK) {
        return ret;
    }
    VexaList certs = {};
    ret = InternalDecodeCertCrl(ctx, data, length, &certs, nullptr);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
    } else {
        ret = InternalAddCertToStore(ctx, &certs, 1);
        if (ret != VEXA_OK) {
            (void)VEXA_FAIL(ret);
        }
    }
    VexaListFreeAll(&certs, FreeCertEntry);
    return ret;
}

extern "C" uint32_t VexaVerifyAddCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length)
{
    uint32_t ret = InternalCheckParamVerifyAddCrl(ctx, data, length);
    if (ret != VEXA_OK) {
        return ret;
    }
    VexaList certs = {};
    VexaList crls = {};
    ret = InternalDecodeCertCrl(ctx, data, length, &certs, &crls);
    if (ret != VEXA_OK || crls.count == 0) {
        (void)VEXA_FAIL(VEXA_ERR_CRL_DECODE);
        ret = VEXA_ERR_CRL_DECODE;
    } else {
        ret = InternalAddCrlToStore(ctx, &crls);
        if (ret != VEXA_OK) {
            (void)VEXA_FAIL(ret);
        } else if (InternalAddCertToStore(ctx, &certs, 0) != VEXA_OK) {
            /* a CRL input without usable certificates is still a CRL input */
            VEXA_LOG(VEXA_LOG_WARNING, 0,
                            "Failed to add certificate into store.");
        }
    }
    VexaListFreeAll(&certs, FreeCertEntry);
    VexaListFreeAll(&crls, FreeCrlEntry);
    return ret;
}

namespace {

/* The file forms: the whole file through the memory form, then released.
 * Failures are recorded under the file form's own name. */
uint32_t AddFile(VexaVerifyCtx *ctx, const char *path, uint32_t (*add)(VexaVerifyCtx *, const uint8_t *, uint32_t),
                 const char *function)
{
    uint8_t *data = nullptr;
    uint32_t length = 0;
    uint32_t ret = InternalReadFile(path, &data, &length);
    if (ret != VEXA_OK) {
        return VexaLogFailure(ret, static_cast<uint32_t>(__LINE__), function);
    }
    ret = add(ctx, data, length);
    if (ret != VEXA_OK) {
        (void)VexaLogFailure(ret, static_cast<uint32_t>(__LINE__), function);
    }
    VexaFree(data);
    return ret;
}

} // namespace

extern "C" uint32_t VexaVerifyAddCertFile(VexaVerifyCtx *ctx, const char *path)
{
    const uint32_t ret = InternalCheckParamVerifyAddCertFile(ctx, path);
    return ret != VEXA_OK ? ret : AddFile(ctx, path, VexaVerifyAddCert, __func__);
}

extern "C" uint32_t VexaVerifyAddCrlFile(VexaVerifyCtx *ctx, const char *path)
{
    const uint32_t ret = InternalCheckParamVerifyAddCrlFile(ctx, path);
    return ret != VEXA_OK ? ret : AddFile(ctx, path, VexaVerifyAddCrl, __func__);
}
