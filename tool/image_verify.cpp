// SPDX-License-Identifier: Apache-2.0
/* Operation 3: an image's detached signature must verify over its signed
 * content, with a path to the built-in root judged against the given CRL
 * file. The image's own CRL block plays no part. */
#include "checktool.h"
#include "services/oplog.h"
#include "root_cert.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace {

uint32_t verify_image_cms_data(const CmsFileInfo *info)
{
    if (info == nullptr) {
        LOG_MAJOR("input file info is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    VexaVerifyCtxParams params = {};
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = nullptr;
    uint32_t ret = VexaVerifyCreateCtx(&ctx, &params);
    if (ret != VEXA_OK) {
        LOG_MAJOR("create ctx fail ret = 0x%x\n\n", ret);
        return ret;
    }
    ret = VexaVerifyAddCert(ctx, get_root_cert_data(), get_root_cert_len());
    if (ret != VEXA_OK) {
        LOG_MAJOR("add cert fail ret = 0x%x\n\n", ret);
    }
    if (ret == VEXA_OK && (ret = VexaVerifyAddCrl(ctx, info->crl, info->crlLen)) != VEXA_OK) {
        LOG_MAJOR("add crl fail ret = 0x%x\n\n", ret);
    }
    if (ret == VEXA_OK &&
        (ret = VexaVerifyDetachSignatureBegin(ctx, info->signature, info->signatureLen)) != VEXA_OK) {
        LOG_MAJOR("verify fail ret = 0x%x\n\n", ret);
    }
    if (ret == VEXA_OK && (ret = VexaVerifyDetachSignatureUpdate(ctx, info->content, info->contentLen)) != VEXA_OK) {
        LOG_MAJOR("cms update failed \n\n");
    }
    if (ret == VEXA_OK) {
        uint32_t verdict = 0;
        /* only a clean finish with verdict 1 verifies; the library's own
         * code is not passed on */
        if (VexaVerifyDetachSignatureFinal(ctx, &verdict) != VEXA_OK || verdict != 1) {
            LOG_MAJOR("cms final failed \n\n");
            ret = VEXA_ERR_CMS_SIGNATURE;
        }
    }
    (void)VexaVerifyDestroyCtx(ctx);
    return ret;
}

} // namespace

extern "C" uint32_t verify_image_with_crl(const char *imagePath, const char *crlPath, InputFileSet *files)
{
    CmsFileInfo info = {};
    uint32_t ret = parse_image_file(imagePath, files, &info);
    if (ret != VEXA_OK) {
        LOG_MAJOR("get_image_crl_file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    ret = read_input_file(crlPath, files, FILE_TYPE_UPDATE_CRL);
    if (ret != VEXA_OK) {
        LOG_MAJOR("read crl file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    /* the given CRL file takes the place of the image's own CRL */
    info.crl = files->updateCrl;
    info.crlLen = static_cast<uint32_t>(files->updateCrlSize);
    ret = verify_image_cms_data(&info);
    if (ret != VEXA_OK) {
        LOG_MAJOR("image cms data verify fail, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    return VEXA_OK;
}
