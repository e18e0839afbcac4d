// SPDX-License-Identifier: Apache-2.0
/* The checks every public operation makes of the context it is given. */
#include "base/verify_ctx.h"

#include "base/diagnostics.h"
#include "vexa/vexa_result.h"

uint32_t InternalCheckVerifyCtx(const VexaVerifyCtx *ctx)
{
    if (ctx == nullptr) {
        return VEXA_ERR_NULL_CTX;
    }
    return ctx->size == VEXA_CTX_MARKER ? VEXA_OK : VEXA_ERR_RECORD_SIZE;
}

uint32_t InternalCheckCtxAndArgs(const VexaVerifyCtx *ctx, bool argsPresent, const char *check)
{
    const uint32_t ret = InternalCheckVerifyCtx(ctx);
    if (ret != VEXA_OK || argsPresent) {
        return ret;
    }
    return VexaLogFailure(VEXA_ERR_PARAM, static_cast<uint32_t>(__LINE__), check);
}
