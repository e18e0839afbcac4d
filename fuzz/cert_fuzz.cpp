// SPDX-License-Identifier: Apache-2.0
/* The certificate decoder over arbitrary bytes. */
#include <stddef.h>
#include <stdint.h>

#include "vexa/vexa_asn1.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VexaX509Cert *cert = nullptr;
    uint32_t consumed = 0;
    if (VexaX509DecodeCert(data, static_cast<uint32_t>(size), &cert, &consumed) == 0) {
        /* what the decoder says it took must lie inside the input */
        if (consumed > size) {
            __builtin_trap();
        }
        VexaX509FreeCert(cert);
    }
    return 0;
}
