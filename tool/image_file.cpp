#include <errno.h>
#include <stdio.h>
#include <sys/types.h>

#include "checktool.h"
#include "image_layout.h"
#include "oplog.h"
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

/* Reads [offset, offset + len), cut at the measured size, into the same place
 * of the buffer and adds the bytes read to *count. */
bool read_region(FILE *file, uint8_t *buffer, uint64_t size, uint64_t offset, uint64_t len, uint64_t *count)
{
    if (offset >= size || len == 0) {
        return true;
    }
    const uint64_t want = len < size - offset ? len : size - offset;
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return false;
    }
    const size_t got = VexaFileRead(buffer + offset, static_cast<size_t>(want), file);
    *count += got;
    return got == want;
}

/* An image is read only where get_cms_file_info looks: the header through
 * the magic, the trailer's block headers with their rooms, and the CRL data.
 * The body is neither read nor touched, so a large image costs no read time
 * and no resident memory (a large allocation is mapped lazily). No byte left
 * unread is ever used: get_cms_file_info checks each of these regions against
 * the size, and each region inside the size was read here. */
bool read_image_regions(FILE *file, uint8_t *img, uint64_t size, uint64_t *count)
{
    if (!read_region(file, img, size, 0, image::kMinImageSize, count)) {
        return false;
    }
    if (size < image::kMinImageSize || image::LoadLe64(img + image::kMagicOffset) != image::kMagic) {
        return true;
    }
    const uint64_t trailer = image::TrailerOffset(image::LoadLe32(img + image::kBodyLenOffset));
    const uint64_t blocks = image::kCrlBlock + image::kBlockHeader;
    if (!read_region(file, img, size, trailer, blocks, count)) {
        return false;
    }
    if (!inside(trailer, blocks, size)) {
        return true;
    }
    const uint32_t crlLen = image::LoadLe32(img + trailer + image::kCrlBlock + image::kBlockLenField);
    return read_region(file, img, size, trailer + blocks, crlLen, count);
}

bool read_whole(FILE *file, uint8_t *buffer, uint64_t size, uint64_t *count)
{
    *count = VexaFileRead(buffer, static_cast<size_t>(size), file);
    return *count == size;
}

} // namespace

extern "C" uint32_t read_input_file(const char *path, InputFileSet *files, uint32_t fileType)
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
    if (size == 0) {
        LOG_MAJOR("VexaFileGetSize zero.\n\n");
        ret = VEXA_ERR_FILE_EMPTY;
    } else {
        void *buffer = nullptr;
        ret = VexaMalloc(&buffer, static_cast<uint32_t>(size));
        if (ret != VEXA_OK || buffer == nullptr) {
            LOG_MAJOR("VexaMalloc failed.\n\n");
            ret = ret != VEXA_OK ? ret : VEXA_ERR_MALLOC;
        } else {
            *slot.buffer = static_cast<uint8_t *>(buffer);
            uint64_t got = 0;
            const bool complete = fileType == FILE_TYPE_IMAGE
                                   ? read_image_regions(file, *slot.buffer, size, &got)
                                   : read_whole(file, *slot.buffer, size, &got);
            if (!complete) {
                LOG_MAJOR("read crl file %s failed, read size =%u.\n\n", path, static_cast<uint32_t>(got));
                VexaFree(buffer);
                *slot.buffer = nullptr;
                ret = VEXA_ERR_FILE_READ;
            }
        }
    }
    (void)VexaFileClose(file);
    return ret;
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
    const uint64_t sig = trailer + image::kSignatureBlock;
    const uint64_t content = trailer + image::kContentBlock;
    const uint64_t crl = trailer + image::kCrlBlock;
    if (!inside(trailer, image::kCrlBlock + image::kBlockHeader, size)) {
        LOG_MAJOR("image file layout invalid, file size %llu.\n\n", static_cast<unsigned long long>(size));
        return VEXA_ERR_PARAM;
    }
    const uint32_t sigLen = image::LoadLe32(img + sig + image::kBlockLenField);
    const uint32_t contentLen = image::LoadLe32(img + content + image::kBlockLenField);
    const uint32_t crlLen = image::LoadLe32(img + crl + image::kBlockLenField);
    if (sigLen > image::kSignatureRoom || contentLen > image::kContentRoom ||
        !inside(crl + image::kBlockHeader, crlLen, size)) {
        LOG_MAJOR("image file layout invalid, file size %llu.\n\n", static_cast<unsigned long long>(size));
        return VEXA_ERR_PARAM;
    }
    info->signatureBlock = img + sig;
    info->signature = img + sig + image::kBlockHeader;
    info->signatureLen = sigLen;
    info->contentBlock = img + content;
    info->content = img + content + image::kBlockHeader;
    info->contentLen = contentLen;
    info->crlBlock = img + crl;
    info->crl = img + crl + image::kBlockHeader;
    info->crlLen = crlLen;
    return VEXA_OK;
}

extern "C" uint32_t parse_image_file(const char *imagePath, InputFileSet *files, CmsFileInfo *info)
{
    uint32_t ret = read_input_file(imagePath, files, FILE_TYPE_IMAGE);
    if (ret != VEXA_OK) {
        LOG_MAJOR("read crl file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    ret = get_cms_file_info(files, info);
    if (ret != VEXA_OK) {
        LOG_MINOR("%s get_cms_file_info fail.\n\n", imagePath);
        return ret;
    }
    return VEXA_OK;
}

extern "C" uint32_t get_image_crl_file(const char *imagePath, const char *outPath, InputFileSet *files)
{
    CmsFileInfo info = {};
    uint32_t ret = parse_image_file(imagePath, files, &info);
    if (ret != VEXA_OK) {
        LOG_MINOR("parse image file failed, ret=%d.\n\n", static_cast<int>(ret));
        return ret;
    }
    FILE *out = VexaFileOpen(outPath, "wb");
    if (out == nullptr) {
        LOG_MAJOR("%s fopen fail.\n\n", outPath);
        return VEXA_ERR_FILE_OPEN;
    }
    size_t written = info.crlLen == 0 ? 0 : fwrite(info.crl, 1, info.crlLen, out);
    if (static_cast<uint32_t>(written) != info.crlLen) {
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
