// SPDX-License-Identifier: Apache-2.0
/* Remembered outcomes of the PKI's checks, so that a crafted CRL file of
 * 16 CRLs and 16 certificates costs a bounded number of signature checks
 * and verifications instead of one per path through the candidates. */
#include <string.h>

#include "pki/pki.h"
#include "base/verify_ctx.h"

int32_t InternalStoreIndexOf(const VexaList *list, const void *record)
{
    for (uint32_t i = 0; i < list->count && i < VEXA_LIST_CAPACITY; i++) {
        if (list->items[i] == record) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

void InternalPkiMemoForget(VexaVerifyCtx *ctx)
{
    if (ctx != nullptr && ctx->store != nullptr) {
        memset(ctx->store->memo.verified, 0, sizeof(ctx->store->memo.verified));
    }
}

namespace {

VexaPkiVerifyOutcome *Slot(const VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode)
{
    if (ctx == nullptr || ctx->store == nullptr || crlMode > 1 || ctx->pathDepth < 0 ||
        ctx->pathDepth > VEXA_PKI_MAX_NESTING) {
        return nullptr;
    }
    const int32_t index = InternalStoreIndexOf(&ctx->store->certs, cert);
    if (index < 0) {
        return nullptr;
    }
    return &ctx->store->memo.verified[index][ctx->pathDepth][crlMode];
}

} // namespace

const VexaPkiVerifyOutcome *InternalPkiMemoVerified(const VexaVerifyCtx *ctx, const VexaX509Cert *cert,
                                                    uint32_t crlMode)
{
    const VexaPkiVerifyOutcome *slot = Slot(ctx, cert, crlMode);
    return slot != nullptr && slot->known != 0 ? slot : nullptr;
}

void InternalPkiMemoSetVerified(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode, uint32_t code,
                                uint32_t verdict)
{
    VexaPkiVerifyOutcome *slot = Slot(ctx, cert, crlMode);
    if (slot != nullptr) {
        slot->code = code;
        slot->verdict = verdict == 1 ? 1 : 0;
        slot->known = 1;
    }
}
