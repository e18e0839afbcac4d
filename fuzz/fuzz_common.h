/* SPDX-License-Identifier: Apache-2.0 */
/* Helpers shared by the fuzz targets: contexts holding the built-in root,
 * splitting one fuzz input into two parts, and files for the tool's own
 * functions to read. */
#ifndef FUZZ_FUZZ_COMMON_H
#define FUZZ_FUZZ_COMMON_H

#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

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

/* This process's tmpfs file number `slot` (0 or 1): on tmpfs because
 * truncating a file on a disk file system per input costs more than the
 * work; one name per process, so parallel jobs do not collide; removed when
 * the process exits. */
inline const char *TmpPath(int slot)
{
    static char paths[2][64];
    if (paths[0][0] == '\0') {
        for (int i = 0; i < 2; i++) {
            (void)snprintf(paths[i], sizeof(paths[i]), "/dev/shm/checktool-fuzz-%ld-%d", static_cast<long>(getpid()), i);
        }
        (void)atexit([] {
            (void)unlink(paths[0]);
            (void)unlink(paths[1]);
        });
    }
    return paths[slot];
}

/* Writes `len` bytes to tmpfs file `slot`; its path, or null. */
inline const char *TmpFile(int slot, const uint8_t *data, uint32_t len)
{
    const int fd = open(TmpPath(slot), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        return nullptr;
    }
    const bool ok = len == 0 || write(fd, data, len) == static_cast<ssize_t>(len);
    return close(fd) == 0 && ok ? TmpPath(slot) : nullptr;
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
