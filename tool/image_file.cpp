// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <stdio.h>
#include <sys/types.h>
#include <unistd.h>

#include "checktool.h"
#include "image_layout.h"
#include "services/oplog.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

static_assert(sizeof(off_t) >= 8, "image offsets pass 2 GiB: build with 64-bit file offsets");

struct Slot {
    uint64_t *size;
    uint8_t **buffer;
};

bool select_slot(InputFileSet *files, uint32_t fileType, Slot *slot)
{
    switch (fileType) {
    case FILE_TYPE_UPDATE_CRL:
        *slot = {&files->updateCrlSize, &files->updateCrl};
        return true;
    case FILE_TYPE_DEVICE_CRL:
        *slot = {&files->deviceCrlSize, &files->deviceCrl};
        return true;
    case FILE_TYPE_IMAGE:
        *slot = {&files->imageSize, &files->image};
        return true;
    default:
        return false;
    }
}

/* True when [offset, offset + len) lies inside a buffer of `size` bytes. */
bool inside(uint64_t offset, uint64_t len, uint64_t size)
{
    return offset <= size && len <= size - offset;
}

/* Largest CRL file read whole, the library's own limit for such files. */
constexpr uint64_t kMaxCrlFileSize = 2000000;
/* Operation 0 copies an image's CRL block in pieces of this size. */
constexpr size_t kCopyPiece = 64 * 1024;

/* Reads [offset, offset + len) of the file, cut at its size, to `dest` and
 * adds the bytes read to *count. */
bool read_region(FILE *file, uint8_t *dest, uint64_t size, uint64_t offset, uint64_t len, uint64_t *count)
{
    if (offset >= size || len == 0) {
        return true;
    }
    const uint64_t want = len < size - offset ? len : size - offset;
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return false;
    }
    const size_t got = VexaFileRead(dest, static_cast<size_t>(want), file);
    *count += got;
    return got == want;
}

uint32_t alloc_zeroed(uint8_t **out, uint64_t size)
{
    void *buffer = nullptr;
    const uint32_t ret = VexaMallocZero(&buffer, static_cast<uint32_t>(size));
    if (ret != VEXA_OK || buffer == nullptr) {
        LOG_MAJOR("VexaMalloc failed.\n\n");
        return ret != VEXA_OK ? ret : VEXA_ERR_MALLOC;
    }
    *out = static_cast<uint8_t *>(buffer);
    return VEXA_OK;
}

/* An image is read only where get_cms_file_info looks: its header through
 * the magic and the trailer's block headers with their rooms, each into a
 * buffer of fixed size. The body and the CRL data are never read here, so a
 * 4 GiB image costs what a small one does, in time and in memory. No byte
 * left unread is ever used: get_cms_file_info checks each region against
 * the size, and each region inside the size was read here. */
uint32_t read_image_regions(FILE *file, InputFileSet *files, uint64_t size, uint64_t *count)
{
    uint32_t ret = alloc_zeroed(&files->image, image::kMinImageSize);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (!read_region(file, files->image, size, 0, image::kMinImageSize, count)) {
        return VEXA_ERR_FILE_READ;
    }
    if (size < image::kMinImageSize || image::LoadLe64(files->image + image::kMagicOffset) != image::kMagic) {
        return VEXA_OK;
    }
    const uint64_t trailer = image::TrailerOffset(image::LoadLe32(files->image + image::kBodyLenOffset));
    ret = alloc_zeroed(&files->imageTrailer, image::kTrailerRead);
    if (ret != VEXA_OK) {
        return ret;
    }
    files->imageTrailerOffset = trailer;
    return read_region(file, files->imageTrailer, size, trailer, image::kTrailerRead, count) ? VEXA_OK
                                                                                             : VEXA_ERR_FILE_READ;
}

uint32_t read_whole(FILE *file, uint8_t **buffer, uint64_t size, uint64_t *count)
{
    void *block = nullptr;
    uint32_t ret = VexaMalloc(&block, static_cast<uint32_t>(size));
    if (ret != VEXA_OK || block == nullptr) {
        LOG_MAJOR("VexaMalloc failed.\n\n");
        return ret != VEXA_OK ? ret : VEXA_ERR_MALLOC;
    }
    *buffer = static_cast<uint8_t *>(block);
    *count = VexaFileRead(*buffer, static_cast<size_t>(size), file);
    return *count == size ? VEXA_OK : VEXA_ERR_FILE_READ;
}

void release(uint8_t **buffer)
{
    VexaFree(*buffer);
    *buffer = nullptr;
}

/* read_input_file, leaving the file open in *keep when asked to and the
 * read succeeded. */
uint32_t read_input(const char *path, InputFileSet *files, uint32_t fileType, FILE **keep)
{
    Slot slot;
    if (files == nullptr || !select_slot(files, fileType, &slot)) {
        LOG_MAJOR("type invalid %d.\n\n", static_cast<int>(fileType));
        return VEXA_ERR_PARAM;
    }
    FILE *file = VexaFileOpen(path, "rb");
    if (file == nullptr) {
        LOG_MAJOR("open crl file failed %s.\n\n", path == nullptr ? "(null)" : path);
        return VEXA_ERR_FILE_OPEN;
    }
    uint32_t ret = VEXA_OK;
    uint64_t size = VexaFileGetSize(file);
    *slot.size = size;
    uint64_t got = 0;
    if (size == 0) {
        LOG_MAJOR("VexaFileGetSize zero.\n\n");
        ret = VEXA_ERR_FILE_EMPTY;
    } else if (fileType == FILE_TYPE_IMAGE) {
        ret = read_image_regions(file, files, size, &got);
        if (ret != VEXA_OK) {
            release(&files->image);
            release(&files->imageTrailer);
        }
    } else if (size > kMaxCrlFileSize) {
        /* refused before a byte is read: a CRL file never needs more */
        LOG_MAJOR("crl file %s too large, file size %llu, limit %llu.\n\n", path,
                  static_cast<unsigned long long>(size), static_cast<unsigned long long>(kMaxCrlFileSize));
        ret = VEXA_ERR_FILE_TOO_LARGE;
    } else {
        ret = read_whole(file, slot.buffer, size, &got);
        if (ret != VEXA_OK) {
            release(slot.buffer);
        }
    }
    if (ret == VEXA_ERR_FILE_READ) {
        LOG_MAJOR("read crl file %s failed, read size =%u.\n\n", path, static_cast<uint32_t>(got));
    }
    if (ret == VEXA_OK && keep != nullptr) {
        *keep = file;
    } else {
        (void)VexaFileClose(file);
    }
    return ret;
}

/* The bytes [offset, offset + len) of the image as held: in the trailer
 * region when it was read apart, otherwise in the image buffer from offset
 * 0. Callers have checked the range against the image's size. */
const uint8_t *held(const InputFileSet *files, uint64_t offset, uint64_t len)
{
    if (files->imageTrailer == nullptr) {
        return files->image + offset;
    }
    if (offset >= files->imageTrailerOffset && inside(offset - files->imageTrailerOffset, len, image::kTrailerRead)) {
        return files->imageTrailer + (offset - files->imageTrailerOffset);
    }
    return inside(offset, len, image::kMinImageSize) ? files->image + offset : nullptr;
}

uint32_t parse_image(const char *imagePath, InputFileSet *files, CmsFileInfo *info, FILE **keep)
{
    uint32_t ret = read_input(imagePath, files, FILE_TYPE_IMAGE, keep);
    if (ret != VEXA_OK) {
        LOG_MAJOR("read crl file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    ret = get_cms_file_info(files, info);
    if (ret != VEXA_OK) {
        LOG_MINOR("%s get_cms_file_info fail.\n\n", imagePath);
        if (keep != nullptr) {
            (void)VexaFileClose(*keep);
            *keep = nullptr;
        }
        return ret;
    }
    return VEXA_OK;
}

/* Copies the image's CRL block to `out` in pieces; the short-read and
 * short-write lines count bytes as a whole read and write would. */
uint32_t copy_crl_block(FILE *image, const char *imagePath, const CmsFileInfo *info, uint64_t regionsRead,
                        FILE *out, const char *outPath, size_t *written)
{
    static uint8_t piece[kCopyPiece];
    if (info->crlLen != 0 && fseeko(image, static_cast<off_t>(info->crlOffset), SEEK_SET) != 0) {
        LOG_MAJOR("read crl file %s failed, read size =%u.\n\n", imagePath, static_cast<uint32_t>(regionsRead));
        return VEXA_ERR_FILE_READ;
    }
    uint64_t read = regionsRead;
    for (uint32_t left = info->crlLen; left != 0;) {
        const size_t want = left < kCopyPiece ? left : kCopyPiece;
        const size_t got = VexaFileRead(piece, want, image);
        read += got;
        if (got != want) {
            LOG_MAJOR("read crl file %s failed, read size =%u.\n\n", imagePath, static_cast<uint32_t>(read));
            return VEXA_ERR_FILE_READ;
        }
        const size_t put = fwrite(piece, 1, got, out);
        *written += put;
        if (put != got) {
            LOG_MAJOR("write file fail %s, errno = %d, re_len = %d\n\n", outPath, errno, static_cast<int>(*written));
            return VEXA_ERR_FILE_WRITE;
        }
        left -= static_cast<uint32_t>(got);
    }
    return VEXA_OK;
}

} // namespace

extern "C" int flush_output_file(FILE *file)
{
    if (file == nullptr || fflush(file) != 0) {
        return -1;
    }
    return fsync(fileno(file));
}

extern "C" uint32_t read_input_file(const char *path, InputFileSet *files, uint32_t fileType)
{
    return read_input(path, files, fileType, nullptr);
}

/* Finds the three trailer blocks. Every offset is checked against the
 * image's size before anything behind it is read or handed on, so a short or
 * lying image is refused here and never reaches a parser. */
extern "C" uint32_t get_cms_file_info(const InputFileSet *files, CmsFileInfo *info)
{
    if (files == nullptr || info == nullptr || files->image == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const uint8_t *img = files->image;
    const uint64_t size = files->imageSize;
    if (size < image::kMinImageSize) {
        LOG_MAJOR("image file layout invalid, file size %llu.\n\n", static_cast<unsigned long long>(size));
        return VEXA_ERR_PARAM;
    }
    if (image::LoadLe64(img + image::kMagicOffset) != image::kMagic) {
        LOG_MINOR("this image file not has cms crl\n\n");
        return VEXA_ERR_PARAM;
    }
    const uint64_t trailer = image::TrailerOffset(image::LoadLe32(img + image::kBodyLenOffset));
    const uint64_t crl = trailer + image::kCrlBlock;
    const uint8_t *blocks = nullptr;
    if (!inside(trailer, image::kTrailerRead, size) ||
        (blocks = held(files, trailer, image::kTrailerRead)) == nullptr) {
        LOG_MAJOR("image file layout invalid, file size %llu.\n\n", static_cast<unsigned long long>(size));
        return VEXA_ERR_PARAM;
    }
    const uint8_t *sig = blocks + image::kSignatureBlock;
    const uint8_t *content = blocks + image::kContentBlock;
    const uint8_t *crlBlock = blocks + image::kCrlBlock;
    const uint32_t sigLen = image::LoadLe32(sig + image::kBlockLenField);
    const uint32_t contentLen = image::LoadLe32(content + image::kBlockLenField);
    const uint32_t crlLen = image::LoadLe32(crlBlock + image::kBlockLenField);
    if (sigLen > image::kSignatureRoom || contentLen > image::kContentRoom ||
        !inside(crl + image::kBlockHeader, crlLen, size)) {
        LOG_MAJOR("image file layout invalid, file size %llu.\n\n", static_cast<unsigned long long>(size));
        return VEXA_ERR_PARAM;
    }
    info->signatureBlock = sig;
    info->signature = sig + image::kBlockHeader;
    info->signatureLen = sigLen;
    info->contentBlock = content;
    info->content = content + image::kBlockHeader;
    info->contentLen = contentLen;
    info->crlBlock = crlBlock;
    info->crl = files->imageTrailer == nullptr ? files->image + crl + image::kBlockHeader : nullptr;
    info->crlLen = crlLen;
    info->crlOffset = crl + image::kBlockHeader;
    return VEXA_OK;
}

extern "C" uint32_t parse_image_file(const char *imagePath, InputFileSet *files, CmsFileInfo *info)
{
    return parse_image(imagePath, files, info, nullptr);
}

/* Operation 0. The CRL block is copied from the image file opened once, in
 * pieces, so neither its size nor the image's sizes an allocation; the
 * output reaches the storage (fsync) before the operation reports success,
 * so a power cut cannot leave a truncated device CRL behind a success. */
extern "C" uint32_t get_image_crl_file(const char *imagePath, const char *outPath, InputFileSet *files)
{
    CmsFileInfo info = {};
    FILE *image = nullptr;
    uint32_t ret = parse_image(imagePath, files, &info, &image);
    if (ret != VEXA_OK) {
        LOG_MINOR("parse image file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    FILE *out = VexaFileOpen(outPath, "wb");
    if (out == nullptr) {
        LOG_MAJOR("%s fopen fail.\n\n", outPath);
        (void)VexaFileClose(image);
        return VEXA_ERR_FILE_OPEN;
    }
    size_t written = 0;
    ret = copy_crl_block(image, imagePath, &info, image::kMinImageSize + image::kTrailerRead, out, outPath, &written);
    (void)VexaFileClose(image);
    if (ret == VEXA_OK && flush_output_file(out) != 0) {
        LOG_MAJOR("write file fail %s, errno = %d, re_len = %d\n\n", outPath, errno, static_cast<int>(written));
        ret = VEXA_ERR_FILE_WRITE;
    }
    if (VexaFileClose(out) != 0 && ret == VEXA_OK) {
        /* A failed close can lose buffered data: the CRL is not on disk. */
        LOG_MAJOR("write file fail %s, errno = %d, re_len = %d\n\n", outPath, errno, static_cast<int>(written));
        ret = VEXA_ERR_FILE_WRITE;
    }
    return ret;
}
