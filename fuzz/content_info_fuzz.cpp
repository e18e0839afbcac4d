// SPDX-License-Identifier: Apache-2.0
/* The CMS ContentInfo (SignedData) decoder over arbitrary bytes. */
#include <stddef.h>
#include <stdint.h>

#include "vexa/vexa_asn1.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VexaPkcs7Content *content = nullptr;
    uint32_t consumed = 0;
    if (VexaPkcs7DecodeContent(data, static_cast<uint32_t>(size), &content, &consumed) == 0) {
        if (consumed > size) {
            __builtin_trap();
        }
        VexaPkcs7FreeContent(content);
    }
    return 0;
}
