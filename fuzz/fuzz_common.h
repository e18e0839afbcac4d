/* SPDX-License-Identifier: Apache-2.0 */
/* Helpers shared by the fuzz targets: contexts holding the built-in root, and
 * splitting one fuzz input into two parts. */
#ifndef FUZZ_FUZZ_COMMON_H
#define FUZZ_FUZZ_COMMON_H

#include <stddef.h>
#include <stdint.h>

#include "root_cert.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace fuzz {

/* Two parts: a 2-byte little-endian length of the first part, the first
 * part (cut short at the end of the input), then the second part. The seed
 * maker writes the same layout. */
struct Parts {
    const uint8_t *a;
    uint32_t aLen;
    const uint8_t *b;
    uint32_t bLen;
};

inline Parts Split(const uint8_t *data, size_t size)
{
    Parts p = {data, 0, data, 0};
    if (size < 2) {
        return p;
    }
    size_t want = static_cast<size_t>(data[0]) | static_cast<size_t>(data[1]) << 8;
    size_t rest = size - 2;
    size_t aLen = want < rest ? want : rest;
    p.a = data + 2;
    p.aLen = static_cast<uint32_t>(aLen);
    p.b = data + 2 + aLen;
    p.bLen = static_cast<uint32_t>(rest - aLen);
    return p;
}

/* A fresh context that trusts the built-in root, or null. */
inline VexaVerifyCtx *CtxWithRoot()
{
    VexaVerifyCtxParams params = {};
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = nullptr;
    if (VexaVerifyCreateCtx(&ctx, &params) != VEXA_OK) {
        return nullptr;
    }
    if (VexaVerifyAddCert(ctx, get_root_cert_data(), get_root_cert_len()) != VEXA_OK) {
        (void)VexaVerifyDestroyCtx(ctx);
        return nullptr;
    }
    return ctx;
}

} // namespace fuzz

#endif
