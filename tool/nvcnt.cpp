// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <stdio.h>

#include <kestrel/kestrel.h>

#include "checktool.h"
#include "image_layout.h"
#include "services/oplog.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

struct NvcntRecord {
    uint32_t flag;
    uint32_t counter;
};

constexpr uint32_t kNvcntWritten = 0;
constexpr uint32_t kNvcntAbsent = 1;
constexpr uint32_t kNvcntFailed = 2;
constexpr size_t kNvcntTextSize = 64;

/* Offsets are 64-bit on every target: a 32-bit long cannot reach the end
 * of an image past 2 GiB. */
uint32_t read_record_at(FILE *file, int64_t offset, NvcntRecord *record)
{
    int seek = fseeko(file, static_cast<off_t>(offset), SEEK_SET);
    if (seek != 0) {
        LOG_MAJOR("fseek fail, ret=%d.\n\n", seek);
        return VEXA_ERR_FILE_READ;
    }
    uint8_t raw[image::kNvcntRecordSize] = {0};
    uint32_t got = static_cast<uint32_t>(VexaFileRead(raw, sizeof(raw), file));
    if (got != sizeof(raw)) {
        LOG_MAJOR("VexaFileRead failed, read_count=%u.\n\n", got);
        return VEXA_ERR_FILE_READ;
    }
    record->flag = image::LoadLe32(raw);
    record->counter = image::LoadLe32(raw + 4);
    return VEXA_OK;
}

uint32_t get_cms_image_nvcnt_open(FILE *file, uint8_t *header, NvcntRecord *record)
{
    uint32_t got = static_cast<uint32_t>(VexaFileRead(header, image::kNvcntHeaderRead, file));
    if (got != image::kNvcntHeaderRead) {
        LOG_MAJOR("VexaFileRead failed, read_count=%u.\n\n", got);
        return VEXA_ERR_FILE_READ;
    }
    /* The body length wraps in 32 bits before the record's 8 bytes are
     * taken off, so L = 0 puts the record at the end of the header region. */
    uint32_t bodyEnd = image::LoadLe32(header + image::kBodyLenOffset) + static_cast<uint32_t>(image::kHeaderRegion);
    int64_t offset = static_cast<int64_t>(bodyEnd) - image::kNvcntRecordSize;
    uint64_t size = VexaFileGetSize(file);
    if (size == 0 || static_cast<int64_t>(size) - static_cast<int64_t>(image::kNvcntRecordSize) < offset) {
        LOG_MAJOR("file_size [%u] or offset[%lld] invalid.\n\n", static_cast<uint32_t>(size),
                  static_cast<long long>(offset));
        return VEXA_ERR_FILE_EMPTY;
    }
    return read_record_at(file, offset, record);
}

uint32_t get_cms_image_nvcnt(const char *imagePath, NvcntRecord *record)
{
    void *header = nullptr;
    if (VexaMalloc(&header, image::kNvcntHeaderRead) != VEXA_OK || header == nullptr) {
        LOG_MAJOR("VexaMalloc failed.\n\n");
        return VEXA_ERR_MALLOC;
    }
    FILE *file = VexaFileOpen(imagePath, "rb");
    if (file == nullptr) {
        LOG_MAJOR("open crl file failed %s.\n\n", imagePath);
        VexaFree(header);
        return VEXA_ERR_FILE_OPEN;
    }
    uint32_t ret = get_cms_image_nvcnt_open(file, static_cast<uint8_t *>(header), record);
    (void)VexaFileClose(file);
    VexaFree(header);
    return ret;
}

uint32_t get_soc_image_nvcnt(const char *imagePath, NvcntRecord *record)
{
    FILE *file = VexaFileOpen(imagePath, "rb");
    if (file == nullptr) {
        LOG_MAJOR("open crl file failed %s.\n\n", imagePath);
        return VEXA_ERR_FILE_OPEN;
    }
    uint32_t ret = VEXA_OK;
    uint64_t size = VexaFileGetSize(file);
    if (size == 0) {
        LOG_MAJOR("VexaFileGetSize zero.\n\n");
        ret = VEXA_ERR_FILE_EMPTY;
    } else {
        /* A file shorter than the record seeks before its start and fails. */
        ret = read_record_at(file, static_cast<int64_t>(size) - static_cast<int64_t>(image::kNvcntRecordSize), record);
    }
    (void)VexaFileClose(file);
    return ret;
}

uint32_t write_nvcnt_to_file(const char *outPath, uint32_t counter)
{
    FILE *out = VexaFileOpen(outPath, "wb");
    if (out == nullptr) {
        LOG_MAJOR("%s fopen fail.\n\n", outPath);
        return VEXA_ERR_FILE_OPEN;
    }
    char text[kNvcntTextSize] = {0};
    int len = snprintf_s(text, sizeof(text), sizeof(text) - 1, "IMAGE_NVCNT=%u\n", counter);
    if (len < 0) {
        LOG_MAJOR("snprintf_s failed, ret=%d.\n\n", len);
        (void)VexaFileClose(out);
        return VEXA_ERR_FILE_READ;
    }
    uint32_t ret = VEXA_OK;
    size_t written = fwrite(text, 1, static_cast<size_t>(len), out);
    /* On storage before success is reported: a power cut must not leave an
     * empty counter file behind a successful run. */
    if (written != static_cast<size_t>(len) || flush_output_file(out) != 0) {
        LOG_MAJOR("write file fail %s, errno = %d, ret_len = %d\n\n", outPath, errno, static_cast<int>(written));
        ret = VEXA_ERR_FILE_WRITE;
    }
    if (VexaFileClose(out) != 0 && ret == VEXA_OK) {
        LOG_MAJOR("write file fail %s, errno = %d, ret_len = %d\n\n", outPath, errno, static_cast<int>(written));
        ret = VEXA_ERR_FILE_WRITE;
    }
    return ret;
}

} // namespace

extern "C" uint32_t get_image_nvcnt(int32_t imageType, const char *imagePath, const char *outPath)
{
    NvcntRecord record = {0, 0};
    uint32_t ret;
    if (imageType == 0) {
        ret = get_cms_image_nvcnt(imagePath, &record);
        if (ret != VEXA_OK) {
            LOG_MAJOR("get_cms_image_nvcnt failed, ret=%u.\n\n", ret);
            return kNvcntFailed;
        }
    } else if (imageType == 1) {
        ret = get_soc_image_nvcnt(imagePath, &record);
        if (ret != VEXA_OK) {
            LOG_MAJOR("get_soc_image_nvcnt failed, ret=%u.\n\n", ret);
            return kNvcntFailed;
        }
    } else {
        LOG_MAJOR("image type[%d] not support.\n\n", imageType);
        return kNvcntFailed;
    }
    if (record.flag != image::kNvcntFlag) {
        LOG_MAJOR("image flag[0x%x] not valid, image nvcnt not exist.\n\n", record.flag);
        return kNvcntAbsent;
    }
    ret = write_nvcnt_to_file(outPath, record.counter);
    if (ret != VEXA_OK) {
        LOG_MAJOR("write_nvcnt_to_file failed, ret = %u\n\n", ret);
        return kNvcntFailed;
    }
    return kNvcntWritten;
}
