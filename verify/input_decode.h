/* SPDX-License-Identifier: Apache-2.0 */
/* Certificates, CRLs and CMS signatures as DER or PEM input: recognised,
 * decoded, and their DER bytes handed to the context that keeps them. */
#ifndef VERIFY_INPUT_DECODE_H
#define VERIFY_INPUT_DECODE_H

#include <stdint.h>
#include <stdio.h>

#include "vexa/vexa_asn1.h"
#include "vexa/vexa_verify.h"

/* Shortest input that can hold a certificate or CRL. */
constexpr uint32_t VEXA_MIN_INPUT_LEN = 38;
/* Largest file the whole-file reader accepts. */
constexpr uint64_t VEXA_MAX_INPUT_FILE = 2000000;

uint32_t InternalBase64Decode(const char *begin, const char *end, uint8_t **out, uint32_t *outLen);
uint32_t InternalDecodeCertCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaList *certs,
                               VexaList *crls);
uint32_t InternalDecodePemCertCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaList *certs,
                                  VexaList *crls);
uint32_t InternalDecodeStreamCertCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaList *certs,
                                     VexaList *crls);
uint32_t InternalPemDecodeCert(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Cert **out);
uint32_t InternalPemDecodeCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Crl **out);
uint32_t InternalPemDecodeCms(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaPkcs7Content **out);

uint32_t InternalReadFile(const char *path, uint8_t **data, uint32_t *length);
void InternalCloseFile(FILE *file);

/* Shared with the signature and CRL front ends. */
uint32_t InternalAddCertToStore(VexaVerifyCtx *ctx, VexaList *certs, uint32_t allowRoot);
uint32_t InternalAddCrlToStore(VexaVerifyCtx *ctx, VexaList *crls);

#endif
