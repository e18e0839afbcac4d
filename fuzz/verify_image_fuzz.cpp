// SPDX-License-Identifier: Apache-2.0
/* A whole operation 3: the first part is the CRL file, the second the
 * image's trailer (signature, content and CRL blocks). The CRL file, and the
 * image around the trailer with an empty body as a sparse file, are written
 * to tmpfs and handed to operation 3's own function, which reads them back
 * (the image reader fills only the header and trailer regions). */
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include "checktool.h"
#include "fuzz_common.h"
#include "image_layout.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint64_t kTrailer = image::TrailerOffset(0);
/* The header's magic and the trailer at their offsets; the rest is a hole. */
bool WriteImage(const uint8_t *trailer, uint32_t trailerLen)
{
    const int fd = open(fuzz::TmpPath(1), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Parts parts = fuzz::Split(data, size);
    const char *crl = fuzz::TmpFile(0, parts.a, parts.aLen);
    if (crl != nullptr && WriteImage(parts.b, parts.bLen)) {
        InputFileSet files = {};
        (void)verify_image_with_crl(fuzz::TmpPath(1), crl, &files);
        VexaFree(files.image);
        VexaFree(files.imageTrailer);
        VexaFree(files.updateCrl);
    }
    return 0;
}
