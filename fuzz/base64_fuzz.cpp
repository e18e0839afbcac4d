// SPDX-License-Identifier: Apache-2.0
/* Base64 of PEM bodies: the size query, a decode into a buffer of exactly
 * that size, and a decode into one byte less, which must not write past it. */
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "verify/base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *text = reinterpret_cast<const char *>(data);
    const uint32_t length = static_cast<uint32_t>(size);
    uint32_t need = 0;
    if (VexaBase64Decode(text, length, nullptr, &need) != 0 || need == 0 || need > 0x7FFFFFFFu) {
        return 0;
    }
    /* exact-size heap blocks, so the sanitizer sees any byte written past them */
    uint8_t *out = static_cast<uint8_t *>(malloc(need));
    if (out == nullptr) {
        return 0;
    }
    uint32_t got = need;
    if (VexaBase64Decode(text, length, out, &got) == 0 && got > need) {
        __builtin_trap();
    }
    free(out);
    if (need > 1) {
        uint8_t *shortOut = static_cast<uint8_t *>(malloc(need - 1));
        if (shortOut != nullptr) {
            uint32_t room = need - 1;
            (void)VexaBase64Decode(text, length, shortOut, &room);
            free(shortOut);
        }
    }
    return 0;
}
