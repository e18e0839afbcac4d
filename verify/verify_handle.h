/* SPDX-License-Identifier: Apache-2.0 */
/* One pending content check of a detached-signature verification. */
#ifndef VERIFY_VERIFY_HANDLE_H
#define VERIFY_VERIFY_HANDLE_H

#include <stdint.h>

#include "vexa/vexa_crypto.h"

constexpr uint32_t VEXA_HANDLE_DIGEST_MAX = 64;
constexpr uint32_t VEXA_HANDLE_SIGNATURE_MAX = 516;

struct VexaVerifyHandle {
    VexaCryptoCtx *digestCtx; /* non-null: compare the content's digest */
    uint32_t hashAlg;
    uint8_t digest[VEXA_HANDLE_DIGEST_MAX];
    uint32_t digestLen;
    VexaCryptoCtx *verifyCtx; /* RSA verification over the content itself */
    uint8_t signature[VEXA_HANDLE_SIGNATURE_MAX];
    uint32_t signatureLen;
};

void InternalFreeVerifyHandle(VexaVerifyHandle *handle);

#endif
