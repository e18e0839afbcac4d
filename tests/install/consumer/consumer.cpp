// The same checks from C++: the public headers are usable from both.
#include <cstdint>
#include <cstdio>

#include <kestrel/kestrel.h>
#include <vexa/vexa_list.h>
#include <vexa/vexa_result.h>
#include <vexa/vexa_services.h>

static_assert(VEXA_LIST_CAPACITY == 16, "list capacity is part of the ABI");
static_assert(VEXA_ERR_LIST_FULL == 0x88000501u, "result codes are part of the ABI");

int main()
{
    VexaList list = {};
    void *block = nullptr;
    if (VexaMalloc(&block, 32) != VEXA_OK || block == nullptr) {
        std::puts("consumer++: VexaMalloc failed");
        return 1;
    }
    if (memset_s(block, 32, 0x5a, 32) != 0 || VexaListAppend(&list, block) != VEXA_OK ||
        VexaMemCmp(block, list.items[0], 32) != 0) {
        std::puts("consumer++: list or copy wrong");
        return 1;
    }
    VexaListFreeAll(&list, VexaFree);
    std::puts("consumer++: ok");
    return 0;
}
