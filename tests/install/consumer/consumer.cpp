// SPDX-License-Identifier: Apache-2.0
// The same library from C++: every public header must declare C linkage.
#include <cstdio>

#include <kestrel/kestrel.h>
#include <vexa/vexa_crypto.h>
#include <vexa/vexa_list.h>
#include <vexa/vexa_result.h>
#include <vexa/vexa_services.h>
#include <vexa/vexa_verify.h>

static_assert(VEXA_LIST_CAPACITY == 16, "list capacity is part of the ABI");

int main()
{
    VexaList list = {};
    void *block = nullptr;
    VexaCryptoCtx *digest = nullptr;
    bool ok = VexaMalloc(&block, 32) == VEXA_OK && memset_s(block, 32, 0x5a, 32) == 0 &&
              VexaListAppend(&list, block) == VEXA_OK && VexaMemCmp(block, list.items[0], 32) == 0 &&
              VexaDigestCreate(&digest) == VEXA_OK && VexaVerifyDestroyCtx(nullptr) == VEXA_ERR_PARAM;
    VexaDigestFree(digest);
    VexaListFreeAll(&list, VexaFree);
    std::puts(ok ? "consumer++: ok" : "consumer++: failed");
    return ok ? 0 : 1;
}
