/* SPDX-License-Identifier: Apache-2.0 */
/* The verification context as the library sees it. Callers hold only an
 * opaque pointer (include/vexa/vexa_verify.h). */
#ifndef BASE_VERIFY_CTX_H
#define BASE_VERIFY_CTX_H

#include <stdint.h>

#include "vexa/vexa_list.h"
#include "vexa/vexa_verify.h"

struct VexaPkiStore;

constexpr uint64_t VEXA_CTX_MARKER = 384;
constexpr uint64_t VEXA_CTX_PARAMS_SIZE = 72;

struct VexaVerifyCtx {
    uint64_t size;              /* VEXA_CTX_MARKER once created */
    VexaList decodedBuffers;    /* DER the decoded records point into */
    VexaPkiStore *store;
    VexaList verifyHandles;     /* pending content checks of a signature */
    int64_t verifyTime;         /* when validity and revocation are judged */
    uint32_t crlError;          /* why the last CRL selection found nothing */
    int32_t pathDepth;          /* nesting of certificate verification */
};

/* 0x88100000 for a null context, 0x88100002 for a wrong marker. */
uint32_t InternalCheckVerifyCtx(const VexaVerifyCtx *ctx);

/* What every parameter check of a public operation does: the context check
 * (its code returned unchanged), then 0x88100001 when an argument is missing,
 * recorded under `check`, the check's own name. */
uint32_t InternalCheckCtxAndArgs(const VexaVerifyCtx *ctx, bool argsPresent, const char *check);

#endif
