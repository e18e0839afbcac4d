// SPDX-License-Identifier: Apache-2.0
/* CRL summaries and their comparison as operation 1 makes them: each CRL
 * file decoded in its own context holding the root, each summary compared
 * with itself (the validity check) and with the other. */
#include <stddef.h>
#include <stdint.h>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::Parts parts = fuzz::Split(data, size);
    VexaVerifyCtx *ctxA = fuzz::CtxWithRoot();
    VexaVerifyCtx *ctxB = fuzz::CtxWithRoot();
    VexaCrlInfoList *infoA = nullptr;
    VexaCrlInfoList *infoB = nullptr;
    if (ctxA != nullptr && ctxB != nullptr) {
        (void)VexaDecodeCrl(ctxA, parts.a, parts.aLen, &infoA);
        (void)VexaDecodeCrl(ctxB, parts.b, parts.bLen, &infoB);
        uint32_t cmp = 0;
        (void)VexaCrlCompare(ctxA, infoA, infoA, &cmp);
        (void)VexaCrlCompare(ctxB, infoB, infoB, &cmp);
        (void)VexaCrlCompare(ctxA, infoA, infoB, &cmp);
        (void)VexaCrlCompare(ctxB, infoB, infoA, &cmp);
    }
    /* each call refuses a null argument */
    (void)VexaCrlInfoListFree(ctxA, infoA);
    (void)VexaCrlInfoListFree(ctxB, infoB);
    (void)VexaVerifyDestroyCtx(ctxA);
    (void)VexaVerifyDestroyCtx(ctxB);
    return 0;
}
