// SPDX-License-Identifier: Apache-2.0
/* The add operations' input decoding (DER, concatenated DER, PEM): the same
 * bytes offered as trusted certificates and as a CRL file to one context
 * that already holds the root, as a CRL file with its signers would be. */
#include <stddef.h>
#include <stdint.h>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VexaVerifyCtx *ctx = fuzz::CtxWithRoot();
    if (ctx == nullptr) {
        return 0;
    }
    (void)VexaVerifyAddCert(ctx, data, static_cast<uint32_t>(size));
    (void)VexaVerifyAddCrl(ctx, data, static_cast<uint32_t>(size));
    (void)VexaVerifyDestroyCtx(ctx);
    return 0;
}
