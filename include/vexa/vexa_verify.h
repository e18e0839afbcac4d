/* SPDX-License-Identifier: Apache-2.0 */
/* The verification library's front: contexts, trusted input, detached
 * signature verification and CRL comparison. */
#ifndef VEXA_VERIFY_H
#define VEXA_VERIFY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VexaVerifyCtx VexaVerifyCtx;

/* Creation record: size must be 72, the rest zero. */
typedef struct VexaVerifyCtxParams {
    uint64_t size;
    uint8_t reserved[64];
} VexaVerifyCtxParams;

uint32_t VexaVerifyCreateCtx(VexaVerifyCtx **ctx, const VexaVerifyCtxParams *params);
uint32_t VexaVerifyDestroyCtx(VexaVerifyCtx *ctx);
/* Trusted certificates, roots included (DER, concatenated DER or PEM). */
uint32_t VexaVerifyAddCert(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length);
uint32_t VexaVerifyAddCertFile(VexaVerifyCtx *ctx, const char *path);
/* CRLs with the certificates of their signers; roots in it are refused. */
uint32_t VexaVerifyAddCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length);
uint32_t VexaVerifyAddCrlFile(VexaVerifyCtx *ctx, const char *path);
const char *VexaGetVersion(void);

/* Detached CMS signature with an RFC 3161 time-stamp token per signer. */
uint32_t VexaVerifyDetachSignatureBegin(VexaVerifyCtx *ctx, const uint8_t *signature, uint32_t length);
uint32_t VexaVerifyDetachSignatureUpdate(VexaVerifyCtx *ctx, const uint8_t *content, uint32_t length);
uint32_t VexaVerifyDetachSignatureFinal(VexaVerifyCtx *ctx, uint32_t *verdict);
uint32_t VexaVerifyDetachSignatureQuick(VexaVerifyCtx *ctx, const char *contentPath, const char *signaturePath,
                                        uint32_t *verdict);

#define VEXA_CRL_SERIAL_MAX 32
#define VEXA_CRL_INFO_MAX 16
#define VEXA_CRL_ISSUER_NAME_SIZE 256
#define VEXA_CRL_INFO_LIST_SIZE 208

typedef struct VexaCrlSerial {
    uint8_t bytes[VEXA_CRL_SERIAL_MAX];
    uint32_t len;
} VexaCrlSerial;

/* Summary of one CRL. */
typedef struct VexaCrlInfo {
    uint32_t verified; /* the signer verified at thisUpdate */
    int64_t thisUpdate;
    int64_t nextUpdate;
    char issuerName[VEXA_CRL_ISSUER_NAME_SIZE];
    uint8_t signerSerial[VEXA_CRL_SERIAL_MAX];
    uint32_t signerSerialLen;
    VexaCrlSerial *rootRevoked; /* only for a root's CRL */
    uint32_t rootRevokedCount;
} VexaCrlInfo;

typedef struct VexaCrlInfoList {
    uint64_t size;
    VexaCrlInfo *infos[VEXA_CRL_INFO_MAX];
    uint32_t count;
} VexaCrlInfoList;

uint32_t VexaDecodeCrlFile(VexaVerifyCtx *ctx, const char *path, VexaCrlInfoList **out);
uint32_t VexaDecodeCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaCrlInfoList **out);
/* result: 0 same, 1 A newer, 2 B newer, 3 mixed or failed. */
uint32_t VexaCrlCompare(VexaVerifyCtx *ctx, const VexaCrlInfoList *a, const VexaCrlInfoList *b, uint32_t *result);
uint32_t VexaCrlInfoListFree(VexaVerifyCtx *ctx, VexaCrlInfoList *list);

/* Decodes `length` characters of Base64 `text` as PEM bodies hold it (line
 * ends LF or CR LF and trailing blanks allowed, blanks inside a line not)
 * into `out`. With `out` null, or a capacity in *size (as signed 32-bit)
 * below the decoded size, only stores the decoded size in *size. */
uint32_t VexaBase64Decode(const char *text, uint32_t length, uint8_t *out, uint32_t *size);

#ifdef __cplusplus
}
#endif

#endif
