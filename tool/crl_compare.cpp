// SPDX-License-Identifier: Apache-2.0
/* Operations 1 and 2: judge an update CRL file and a device CRL file against
 * the built-in root, and tell which one is to be trusted. */
#include <kestrel/kestrel.h>

#include "checktool.h"
#include "services/oplog.h"
#include "root_cert.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"
#include "vexa/vexa_verify.h"

namespace {

constexpr uint32_t kVerdictBothInvalid = 3;
constexpr uint32_t kVerdictDeviceOnly = 4;
constexpr uint32_t kVerdictUpdateOnly = 5;

struct CompareState {
    VexaVerifyCtx *ctxA;
    VexaVerifyCtx *ctxB;
    VexaCrlInfoList *infoA;
    VexaCrlInfoList *infoB;
};

uint32_t crl_pre_compare(const InputFileSet *files, CompareState *st)
{
    VexaVerifyCtxParams params = {};
    params.size = sizeof(params);
    uint32_t ret = VexaVerifyCreateCtx(&st->ctxA, &params);
    if (ret == VEXA_OK) {
        ret = VexaVerifyCreateCtx(&st->ctxB, &params);
    }
    if (ret != VEXA_OK) {
        LOG_MAJOR("VexaVerifyCreateCtx failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    const uint32_t rootLen = get_root_cert_len();
    void *root = nullptr;
    ret = VexaMalloc(&root, rootLen);
    if (ret != VEXA_OK || root == nullptr) {
        LOG_MAJOR("VexaMalloc failed, ret=%d.\n\n", static_cast<int>(ret));
        return VEXA_ERR_MALLOC;
    }
    int copied = memcpy_s(root, rootLen, get_root_cert_data(), rootLen);
    if (copied != 0) {
        LOG_MAJOR("memcpy_s failed, ret=%d.\n\n", copied);
        ret = VEXA_ERR_COPY;
    } else {
        ret = VexaVerifyAddCert(st->ctxA, static_cast<const uint8_t *>(root), rootLen);
        if (ret == VEXA_OK) {
            ret = VexaVerifyAddCert(st->ctxB, static_cast<const uint8_t *>(root), rootLen);
        }
        if (ret != VEXA_OK) {
            LOG_MAJOR("VexaVerifyAddCert failed, ret=%d.\n\n", static_cast<int>(ret));
        }
    }
    if (ret == VEXA_OK) {
        /* a CRL that does not decode is judged invalid next, not a failure */
        if (VexaDecodeCrl(st->ctxA, files->updateCrl, static_cast<uint32_t>(files->updateCrlSize), &st->infoA) !=
            VEXA_OK) {
            LOG_MINOR("update crl decode fail!\r\n\n");
        }
        if (VexaDecodeCrl(st->ctxB, files->deviceCrl, static_cast<uint32_t>(files->deviceCrlSize), &st->infoB) !=
            VEXA_OK) {
            LOG_MINOR("pub crl decode fail!\r\n\n");
        }
    }
    VexaFree(root);
    return ret;
}

/* A CRL file is valid when its summaries compare cleanly with themselves. */
bool crl_is_valid(VexaVerifyCtx *ctx, const VexaCrlInfoList *info, uint32_t *cmp)
{
    return VexaCrlCompare(ctx, info, info, cmp) == VEXA_OK;
}

void crl_exec_compare(CompareState *st, uint32_t *verdict)
{
    uint32_t cmp = kVerdictBothInvalid;
    if (st->ctxA == nullptr || st->ctxB == nullptr || st->infoA == nullptr || st->infoB == nullptr) {
        LOG_MINOR("crl_exec_compare input parameter not valid !\r\n\n");
    }
    const bool updateValid = crl_is_valid(st->ctxA, st->infoA, &cmp);
    const bool deviceValid = crl_is_valid(st->ctxB, st->infoB, &cmp);
    if (!updateValid && deviceValid) {
        LOG_MINOR("device crl is valid , update crl has destroyed!\r\n\n");
        *verdict = kVerdictDeviceOnly;
    } else if (!updateValid) {
        LOG_MAJOR("both crl error!\r\n\n");
        *verdict = kVerdictBothInvalid;
    } else if (!deviceValid) {
        LOG_MINOR("device crl has destroyed, update crl is valid!\r\n\n");
        *verdict = kVerdictUpdateOnly;
    } else if (VexaCrlCompare(st->ctxA, st->infoA, st->infoB, &cmp) != VEXA_OK) {
        LOG_MAJOR("compare crl file fail!\r\n\n");
        *verdict = kVerdictBothInvalid;
    } else {
        *verdict = cmp;
    }
}

uint32_t nk_crl_compare(const InputFileSet *files, uint32_t *verdict)
{
    if (files == nullptr) {
        LOG_MAJOR("input crl info is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    CompareState st = {};
    uint32_t ret = crl_pre_compare(files, &st);
    if (ret != VEXA_OK) {
        LOG_MAJOR("crl pre compare fail, 0x%x\r\n\n", ret);
    } else {
        crl_exec_compare(&st, verdict);
    }
    /* summaries own their revoked-serial arrays: release them whole */
    if (st.infoA != nullptr) {
        (void)VexaCrlInfoListFree(st.ctxA, st.infoA);
    }
    if (st.infoB != nullptr) {
        (void)VexaCrlInfoListFree(st.ctxB, st.infoB);
    }
    if (st.ctxA != nullptr) {
        (void)VexaVerifyDestroyCtx(st.ctxA);
    }
    if (st.ctxB != nullptr) {
        (void)VexaVerifyDestroyCtx(st.ctxB);
    }
    return ret;
}

} // namespace

extern "C" uint32_t compare_crl_files(const char *crlPath1, const char *crlPath2, InputFileSet *files)
{
    uint32_t verdict = kVerdictBothInvalid;
    uint32_t ret = read_input_file(crlPath1, files, FILE_TYPE_UPDATE_CRL);
    if (ret == VEXA_OK) {
        ret = read_input_file(crlPath2, files, FILE_TYPE_DEVICE_CRL);
    }
    if (ret != VEXA_OK) {
        LOG_MAJOR("read crl file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    ret = nk_crl_compare(files, &verdict);
    if (ret != VEXA_OK) {
        LOG_MINOR("nk_crl_compare failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    return verdict;
}
