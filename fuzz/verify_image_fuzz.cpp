/* A whole operation 3 in memory: the first part is the CRL file, the second
 * the image's trailer (signature, content and CRL blocks). The image is
 * rebuilt around the trailer with an empty body, located by the tool's own
 * layout reader, and verified with the library calls operation 3 makes. */
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "checktool.h"
#include "fuzz_common.h"
#include "image_layout.h"

namespace {

constexpr uint64_t kTrailer = image::TrailerOffset(0);

uint8_t *BuildImage(const uint8_t *trailer, uint32_t trailerLen, uint64_t *size)
{
    *size = kTrailer + trailerLen;
    uint8_t *img = static_cast<uint8_t *>(calloc(1, *size));
    if (img == nullptr) {
        return nullptr;
    }
    for (int i = 0; i < 8; i++) {
        img[image::kMagicOffset + i] = static_cast<uint8_t>(image::kMagic >> (8 * i));
    }
    if (trailerLen != 0) {
        memcpy(img + kTrailer, trailer, trailerLen);
    }
    return img;
}

uint32_t Verify(const CmsFileInfo *info, const uint8_t *crl, uint32_t crlLen)
{
    VexaVerifyCtx *ctx = fuzz::CtxWithRoot();
    if (ctx == nullptr) {
        return 1;
    }
    uint32_t ret = VexaVerifyAddCrl(ctx, crl, crlLen);
    if (ret == VEXA_OK) {
        ret = VexaVerifyDetachSignatureBegin(ctx, info->signature, info->signatureLen);
    }
    if (ret == VEXA_OK) {
        ret = VexaVerifyDetachSignatureUpdate(ctx, info->content, info->contentLen);
    }
    if (ret == VEXA_OK) {
        uint32_t verdict = 0;
        ret = VexaVerifyDetachSignatureFinal(ctx, &verdict);
    }
    (void)VexaVerifyDestroyCtx(ctx);
    return ret;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Parts parts = fuzz::Split(data, size);
    InputFileSet files = {};
    files.image = BuildImage(parts.b, parts.bLen, &files.imageSize);
    if (files.image == nullptr) {
        return 0;
    }
    CmsFileInfo info = {};
    if (get_cms_file_info(&files, &info) == VEXA_OK) {
        (void)Verify(&info, parts.a, parts.aLen);
    }
    free(files.image);
    return 0;
}
