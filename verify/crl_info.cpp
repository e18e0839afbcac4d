// SPDX-License-Identifier: Apache-2.0
/* CRL inputs turned into verified summaries, and two summary lists compared
 * issuer by issuer to tell which input is newer. */
#include <string.h>

#include <kestrel/kestrel.h>

#include "pki/pki.h"
#include "base/diagnostics.h"
#include "verify/input_decode.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kCompareEqual = 0;
constexpr uint32_t kCompareFirstNewer = 1;
constexpr uint32_t kCompareSecondNewer = 2;
constexpr uint32_t kCompareMixed = 3;

void FreeCertEntry(void *cert)
{
    VexaX509FreeCert(static_cast<VexaX509Cert *>(cert));
}

void FreeCrlEntry(void *crl)
{
    VexaX509FreeCrl(static_cast<VexaX509Crl *>(crl));
}

void FreeInfo(VexaCrlInfo *info)
{
    if (info != nullptr) {
        VexaFree(info->rootRevoked);
        VexaFree(info);
    }
}

uint32_t InternalCheckParamDecodeCrl(const VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length)
{
    return InternalCheckCtxAndArgs(ctx, data != nullptr && length != 0, __func__);
}

uint32_t InternalCheckParamDecodeCrlFile(const VexaVerifyCtx *ctx, const char *path)
{
    return InternalCheckCtxAndArgs(ctx, path != nullptr, __func__);
}

uint32_t InternalCheckParamCrlCompare(const VexaVerifyCtx *ctx, const VexaCrlInfoList *a, const VexaCrlInfoList *b,
                                      const uint32_t *result)
{
    uint32_t ret = InternalCheckCtxAndArgs(ctx, a != nullptr && b != nullptr && result != nullptr, __func__);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (a->count == 0 || b->count == 0) {
        (void)VEXA_FAIL(VEXA_ERR_CRL_LIST_EMPTY);
        return VEXA_ERR_CRL_LIST_EMPTY;
    }
    return VEXA_OK;
}

uint32_t Count(const VexaCrlInfoList *list)
{
    return list->count < VEXA_CRL_INFO_MAX ? list->count : VEXA_CRL_INFO_MAX;
}

void InternalGetCrlIssuerName(VexaCrlInfo *info, const VexaX509Crl *crl)
{
    char *text = nullptr;
    uint32_t len = 0;
    if (VexaX509NameToString(&crl->tbsCertList.issuer, &text, &len) != VEXA_OK) {
        return;
    }
    if (strcpy_s(info->issuerName, sizeof(info->issuerName), text) != 0) {
        VEXA_LOG(VEXA_LOG_WARNING, VEXA_ERR_COPY, nullptr);
    }
    VexaFree(text);
}

uint32_t InternalGetCrlTime(const VexaAsnOcts *time, int64_t *out)
{
    int64_t seconds = 0;
    uint32_t ret = VexaAsnTimeToEpoch(time, &seconds);
    if (ret == VEXA_OK) {
        *out = seconds;
    }
    return ret;
}

uint32_t InternalCopyRevokedSerials(VexaCrlInfo *info, const VexaX509RevokedList *revoked)
{
    const uint32_t n = revoked->count < VEXA_X509_MAX_REVOKED ? revoked->count : VEXA_X509_MAX_REVOKED;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&info->rootRevoked),
                                  static_cast<uint32_t>(n * sizeof(VexaCrlSerial)));
    if (ret != VEXA_OK) {
        return ret;
    }
    for (uint32_t i = 0; i < n; i++) {
        const VexaAsnOcts *serial = &revoked->entries[i].userCertificate;
        if (serial->len == 0 || serial->len > VEXA_CRL_SERIAL_MAX) {
            continue;
        }
        VexaCrlSerial *slot = &info->rootRevoked[info->rootRevokedCount];
        slot->len = memcpy_s(slot->bytes, sizeof(slot->bytes), serial->data, serial->len) == 0 ? serial->len : 0;
        info->rootRevokedCount++;
    }
    return VEXA_OK;
}

uint32_t InternalVerifyCrlInfo(VexaVerifyCtx *ctx, VexaCrlInfo *info, const VexaX509Crl *crl)
{
    VexaX509Cert *signer = VexaPkiFindCrlSigner(ctx, crl);
    if (signer == nullptr) {
        return VEXA_OK; /* stays unverified, without a signer serial */
    }
    /* the signer must have been trustworthy when the CRL was issued */
    ctx->verifyTime = info->thisUpdate;
    uint32_t verdict = 0;
    if (VexaPkiVerifyCert(ctx, signer, 1, 1, &verdict) == VEXA_OK && verdict == 1) {
        info->verified = 1;
    }
    uint32_t selfSigned = 0;
    uint32_t ret = InternalCheckSelfSigned(signer, &selfSigned);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (selfSigned == 1 && crl->tbsCertList.revokedCertificates.count != 0) {
        ret = InternalCopyRevokedSerials(info, &crl->tbsCertList.revokedCertificates);
        if (ret != VEXA_OK) {
            return ret;
        }
    }
    const VexaAsnOcts *serial = &signer->tbsCertificate.serialNumber;
    if (serial->len > sizeof(info->signerSerial)) {
        return VEXA_OK;
    }
    if (serial->len == 0) {
        return VEXA_OK;
    }
    ret = static_cast<uint32_t>(memcpy_s(info->signerSerial, sizeof(info->signerSerial), serial->data, serial->len));
    if (ret == VEXA_OK) {
        info->signerSerialLen = serial->len;
    }
    return ret;
}

uint32_t InternalGetCrlInfo(VexaVerifyCtx *ctx, const VexaX509Crl *crl, VexaCrlInfo **out)
{
    *out = nullptr;
    VexaCrlInfo *info = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&info), sizeof(VexaCrlInfo));
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    InternalGetCrlIssuerName(info, crl);
    ret = InternalGetCrlTime(&crl->tbsCertList.thisUpdate, &info->thisUpdate);
    if (ret == VEXA_OK) {
        ret = InternalGetCrlTime(&crl->tbsCertList.nextUpdate, &info->nextUpdate);
    }
    if (ret == VEXA_OK) {
        ret = InternalVerifyCrlInfo(ctx, info, crl);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        FreeInfo(info);
        return ret;
    }
    *out = info;
    return VEXA_OK;
}

const VexaCrlInfo *FindIssuer(const VexaCrlInfoList *list, const char *issuerName)
{
    const uint32_t n = Count(list);
    for (uint32_t i = 0; i < n; i++) {
        if (list->infos[i] != nullptr && strcmp(list->infos[i]->issuerName, issuerName) == 0) {
            return list->infos[i];
        }
    }
    return nullptr;
}

uint32_t InternalCrlCompareTimes(const VexaCrlInfoList *a, const VexaCrlInfoList *b, uint32_t *r)
{
    const VexaCrlInfoList *lists[2] = {a, b};
    for (const VexaCrlInfoList *list : lists) {
        const uint32_t n = Count(list);
        for (uint32_t i = 0; i < n; i++) {
            if (list->infos[i] == nullptr || list->infos[i]->verified != 1) {
                *r = kCompareMixed;
                return VEXA_ERR_CRL_UNVERIFIED;
            }
        }
    }
    const uint32_t n = Count(a);
    for (uint32_t i = 0; i < n && *r != kCompareMixed; i++) {
        const VexaCrlInfo *x = a->infos[i];
        const VexaCrlInfo *y = FindIssuer(b, x->issuerName);
        if (y == nullptr || x->thisUpdate == y->thisUpdate) {
            continue;
        }
        const uint32_t d = x->thisUpdate > y->thisUpdate ? kCompareFirstNewer : kCompareSecondNewer;
        if (*r == kCompareEqual) {
            *r = d;
        } else if (*r != d) {
            *r = kCompareMixed;
        }
    }
    return VEXA_OK;
}

bool InternalCrlHasDupIssuer(const VexaCrlInfoList *list)
{
    const uint32_t n = Count(list);
    for (uint32_t i = 0; i < n; i++) {
        for (uint32_t j = i + 1; j < n; j++) {
            if (strcmp(list->infos[i]->issuerName, list->infos[j]->issuerName) == 0) {
                return true;
            }
        }
    }
    return false;
}

bool RevokedByRoot(const VexaCrlInfoList *newer, const VexaCrlInfo *older)
{
    const uint32_t n = Count(newer);
    for (uint32_t i = 0; i < n; i++) {
        const VexaCrlInfo *info = newer->infos[i];
        if (info->rootRevoked == nullptr || info->rootRevokedCount == 0) {
            continue;
        }
        /* only the first root CRL of the newer list is consulted */
        for (uint32_t k = 0; k < info->rootRevokedCount; k++) {
            const VexaCrlSerial *s = &info->rootRevoked[k];
            if (older->signerSerialLen != 0 && s->len == older->signerSerialLen &&
                memcmp(s->bytes, older->signerSerial, s->len) == 0) {
                return true;
            }
        }
        return false;
    }
    return false;
}

/* Every issuer of the older list must still be in the newer one, unless the
 * root has revoked the certificate that signed its CRL. */
uint32_t InternalCrlCheckCoverage(const VexaCrlInfoList *newer, const VexaCrlInfoList *older)
{
    const uint32_t n = Count(older);
    for (uint32_t i = 0; i < n; i++) {
        const VexaCrlInfo *o = older->infos[i];
        if (FindIssuer(newer, o->issuerName) == nullptr && !RevokedByRoot(newer, o)) {
            return VEXA_ERR_CRL_NOT_COVERED;
        }
    }
    return VEXA_OK;
}

} // namespace

extern "C" uint32_t VexaDecodeCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaCrlInfoList **out)
{
    uint32_t ret = InternalCheckParamDecodeCrl(ctx, data, length);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (out == nullptr) {
        return VEXA_ERR_PARAM;
    }
    VexaList certs = {};
    VexaList crls = {};
    VexaCrlInfoList *list = nullptr;
    ret = InternalDecodeCertCrl(ctx, data, length, &certs, &crls);
    if (ret != VEXA_OK || crls.count == 0 || InternalAddCrlToStore(ctx, &crls) != VEXA_OK ||
        InternalAddCertToStore(ctx, &certs, 0) != VEXA_OK ||
        VexaMallocZero(reinterpret_cast<void **>(&list), sizeof(VexaCrlInfoList)) != VEXA_OK) {
        (void)VEXA_FAIL(VEXA_ERR_CRL_DECODE);
        *out = nullptr;
        VexaListFreeAll(&certs, FreeCertEntry);
        VexaListFreeAll(&crls, FreeCrlEntry);
        return VEXA_ERR_CRL_DECODE;
    }
    list->size = VEXA_CRL_INFO_LIST_SIZE;
    for (uint32_t i = 0; i < crls.count && list->count < VEXA_CRL_INFO_MAX; i++) {
        VexaCrlInfo *info = nullptr;
        if (InternalGetCrlInfo(ctx, static_cast<VexaX509Crl *>(crls.items[i]), &info) == VEXA_OK) {
            list->infos[list->count++] = info;
        }
    }
    *out = list;
    VexaListFreeAll(&certs, FreeCertEntry);
    VexaListFreeAll(&crls, FreeCrlEntry);
    return VEXA_OK;
}

extern "C" uint32_t VexaDecodeCrlFile(VexaVerifyCtx *ctx, const char *path, VexaCrlInfoList **out)
{
    uint32_t ret = InternalCheckParamDecodeCrlFile(ctx, path);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (out == nullptr) {
        return VEXA_ERR_PARAM;
    }
    uint8_t *data = nullptr;
    uint32_t length = 0;
    ret = InternalReadFile(path, &data, &length);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    ret = VexaDecodeCrl(ctx, data, length, out);
    VexaFree(data);
    return ret;
}

extern "C" uint32_t VexaCrlCompare(VexaVerifyCtx *ctx, const VexaCrlInfoList *a, const VexaCrlInfoList *b,
                                   uint32_t *result)
{
    uint32_t ret = InternalCheckParamCrlCompare(ctx, a, b, result);
    if (ret != VEXA_OK) {
        return ret;
    }
    uint32_t r = kCompareEqual;
    ret = InternalCrlCompareTimes(a, b, &r);
    if (ret == VEXA_OK && (InternalCrlHasDupIssuer(a) || InternalCrlHasDupIssuer(b))) {
        ret = VEXA_ERR_CRL_DUP_ISSUER;
    }
    if (ret == VEXA_OK && r == kCompareEqual && a->count != b->count) {
        r = a->count > b->count ? kCompareFirstNewer : kCompareSecondNewer;
    }
    if (ret == VEXA_OK) {
        const bool aNewer = r == kCompareFirstNewer;
        ret = InternalCrlCheckCoverage(aNewer ? a : b, aNewer ? b : a);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        *result = kCompareMixed;
        return ret;
    }
    *result = r;
    return VEXA_OK;
}

extern "C" uint32_t VexaCrlInfoListFree(VexaVerifyCtx *ctx, VexaCrlInfoList *list)
{
    if (ctx == nullptr || list == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const uint32_t n = Count(list);
    for (uint32_t i = 0; i < n; i++) {
        FreeInfo(list->infos[i]);
        list->infos[i] = nullptr;
    }
    VexaFree(list);
    return VEXA_OK;
}
