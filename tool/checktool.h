/* SPDX-License-Identifier: Apache-2.0 */
/* The check tool's operations and the records they share. */
#ifndef CHECKTOOL_CHECKTOOL_H
#define CHECKTOOL_CHECKTOOL_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    OP_GET_IMAGE_CRL = 0,
    OP_COMPARE_CRL = 1,
    OP_CHECK_CRL = 2,
    OP_VERIFY_IMAGE = 3,
    OP_GET_IMAGE_NVCNT = 4,
};

/* Slots of InputFileSet, as read_input_file names them. */
enum {
    FILE_TYPE_UPDATE_CRL = 0,
    FILE_TYPE_DEVICE_CRL = 1,
    FILE_TYPE_IMAGE = 2,
};

/* Buffers owned by main, released once by free_input_files. A CRL file is
 * read whole (at most 2,000,000 bytes). An image is never held whole: `image`
 * holds its header through the magic and `imageTrailer` the trailer's three
 * block headers with the signature and content rooms, read from
 * `imageTrailerOffset`, so memory does not grow with the image. (Without
 * `imageTrailer`, `image` holds the whole file, as callers that have the
 * image in memory pass it.) */
typedef struct InputFileSet {
    uint64_t deviceCrlSize;
    uint8_t *deviceCrl;
    uint64_t updateCrlSize;
    uint8_t *updateCrl;
    uint64_t imageSize;
    uint8_t *image;
    uint8_t *imageTrailer;
    uint64_t imageTrailerOffset;
} InputFileSet;

/* Where the three trailer blocks of an image are; points into the held
 * regions and owns nothing. The CRL data is not held for an image read by
 * read_input_file (`crl` is null): operation 0 copies it from `crlOffset`. */
typedef struct CmsFileInfo {
    const uint8_t *signatureBlock;
    const uint8_t *signature;
    uint32_t signatureLen;
    const uint8_t *contentBlock;
    const uint8_t *content;
    uint32_t contentLen;
    const uint8_t *crlBlock;
    const uint8_t *crl;
    uint32_t crlLen;
    uint64_t crlOffset;
} CmsFileInfo;

int check_root_user(void);
void create_log_dir(void);
void free_input_files(InputFileSet *files);

uint32_t read_input_file(const char *path, InputFileSet *files, uint32_t fileType);
uint32_t get_cms_file_info(const InputFileSet *files, CmsFileInfo *info);
uint32_t parse_image_file(const char *imagePath, InputFileSet *files, CmsFileInfo *info);

/* Pushes an output file's data to the storage device (fflush, then fsync):
 * 0 when it got there. */
int flush_output_file(FILE *file);

uint32_t get_image_crl_file(const char *imagePath, const char *outPath, InputFileSet *files);
uint32_t compare_crl_files(const char *crlPath1, const char *crlPath2, InputFileSet *files);
uint32_t verify_image_with_crl(const char *imagePath, const char *crlPath, InputFileSet *files);
uint32_t get_image_nvcnt(int32_t imageType, const char *imagePath, const char *outPath);

#ifdef __cplusplus
}
#endif

#endif
