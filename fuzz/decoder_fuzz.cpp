// SPDX-License-Identifier: Apache-2.0
/* One decoder over arbitrary bytes, chosen when the target is built
 * (FUZZ_CERT, FUZZ_CRL or FUZZ_CONTENT_INFO): what it says it took must lie
 * inside the input. */
#include <stddef.h>
#include <stdint.h>

#include "vexa/vexa_asn1.h"

namespace {

template <class T>
void DecodeAndFree(uint32_t (*decode)(const uint8_t *, uint32_t, T **, uint32_t *), void (*release)(T *),
                   const uint8_t *data, size_t size)
{
    T *record = nullptr;
    uint32_t consumed = 0;
    if (decode(data, static_cast<uint32_t>(size), &record, &consumed) == 0) {
        if (consumed > size) {
            __builtin_trap();
        }
        release(record);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
#if defined(FUZZ_CERT)
    DecodeAndFree(VexaX509DecodeCert, VexaX509FreeCert, data, size);
#elif defined(FUZZ_CRL)
    DecodeAndFree(VexaX509DecodeCrl, VexaX509FreeCrl, data, size);
#elif defined(FUZZ_CONTENT_INFO)
    DecodeAndFree(VexaPkcs7DecodeContent, VexaPkcs7FreeContent, data, size);
#else
#error "build with FUZZ_CERT, FUZZ_CRL or FUZZ_CONTENT_INFO"
#endif
    return 0;
}
