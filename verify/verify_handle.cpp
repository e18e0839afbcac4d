// SPDX-License-Identifier: Apache-2.0
#include "verify/verify_handle.h"

#include "vexa/vexa_services.h"

void InternalFreeVerifyHandle(VexaVerifyHandle *handle)
{
    if (handle == nullptr) {
        return;
    }
    if (handle->digestCtx != nullptr) {
        VexaDigestFree(handle->digestCtx);
    }
    if (handle->verifyCtx != nullptr) {
        VexaRsaVerifyFree(handle->verifyCtx);
    }
    VexaFree(handle);
}
