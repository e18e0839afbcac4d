// SPDX-License-Identifier: Apache-2.0
/* A whole operation 3: the first part is the CRL file, the second the
 * image's trailer (signature, content and CRL blocks). The image is written
 * around the trailer with an empty body as a sparse file, read back by the
 * tool's own image reader (which fills only the header and trailer regions),
 * located, and verified with the library calls operation 3 makes. */
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "checktool.h"
#include "fuzz_common.h"
#include "image_layout.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint64_t kTrailer = image::TrailerOffset(0);
/* On tmpfs: truncating a file on a disk file system per input costs more than
 * the verification. One file per process, so parallel jobs do not collide. */
char g_path[64];

void RemoveImage()
{
    (void)unlink(g_path);
}

const char *ImagePath()
{
    if (g_path[0] == '\0') {
        (void)snprintf(g_path, sizeof(g_path), "/dev/shm/checktool-fuzz-image-%ld.bin", static_cast<long>(getpid()));
        (void)atexit(RemoveImage);
    }
    return g_path;
}

/* The header's magic and the trailer at their offsets; the rest is a hole. */
bool WriteImage(const uint8_t *trailer, uint32_t trailerLen)
{
    const int fd = open(ImagePath(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    uint8_t magic[8];
    for (int i = 0; i < 8; i++) {
        magic[i] = static_cast<uint8_t>(image::kMagic >> (8 * i));
    }
    bool ok = pwrite(fd, magic, sizeof(magic), image::kMagicOffset) == static_cast<ssize_t>(sizeof(magic)) &&
              ftruncate(fd, static_cast<off_t>(kTrailer + trailerLen)) == 0 &&
              (trailerLen == 0 ||
               pwrite(fd, trailer, trailerLen, static_cast<off_t>(kTrailer)) == static_cast<ssize_t>(trailerLen));
    return close(fd) == 0 && ok;
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
    if (!WriteImage(parts.b, parts.bLen)) {
        return 0;
    }
    InputFileSet files = {};
    CmsFileInfo info = {};
    if (parse_image_file(ImagePath(), &files, &info) == VEXA_OK) {
        (void)Verify(&info, parts.a, parts.aLen);
    }
    VexaFree(files.image);
    VexaFree(files.imageTrailer);
    return 0;
}
