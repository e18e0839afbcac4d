// SPDX-License-Identifier: Apache-2.0
/* The CRL decoder over arbitrary bytes. */
#include <stddef.h>
#include <stdint.h>

#include "vexa/vexa_asn1.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VexaX509Crl *crl = nullptr;
    uint32_t consumed = 0;
    if (VexaX509DecodeCrl(data, static_cast<uint32_t>(size), &crl, &consumed) == 0) {
        if (consumed > size) {
            __builtin_trap();
        }
        VexaX509FreeCrl(crl);
    }
    return 0;
}
