// SPDX-License-Identifier: Apache-2.0
/* A whole operation 1: the two parts are the update and the device CRL
 * files, written to tmpfs and compared by operation 1's own function (each
 * file read, decoded in its own context holding the root, checked against
 * itself and compared with the other). */
#include <stddef.h>
#include <stdint.h>

#include "checktool.h"
#include "fuzz_common.h"
#include "vexa/vexa_services.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Parts parts = fuzz::Split(data, size);
    const char *update = fuzz::TmpFile(0, parts.a, parts.aLen);
    const char *device = update != nullptr ? fuzz::TmpFile(1, parts.b, parts.bLen) : nullptr;
    if (device != nullptr) {
        InputFileSet files = {};
        (void)compare_crl_files(update, device, &files);
        VexaFree(files.updateCrl);
        VexaFree(files.deviceCrl);
    }
    return 0;
}
