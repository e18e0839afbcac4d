#include <stdlib.h>

#include <kestrel/kestrel.h>

#include "oplog.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

extern "C" uint32_t VexaMalloc(void **out, uint32_t size)
{
    if (out == nullptr) {
        LOG_MAJOR("input ppByte is null.\n\n");
        return VEXA_ERR_PARAM;
    }
    if (size == 0) {
        LOG_SUGGESTION("input size is 0.\n\n");
        return VEXA_OK;
    }
    void *block = malloc(size);
    if (block == nullptr) {
        LOG_MAJOR("malloc failed.\n\n");
        return VEXA_ERR_MALLOC;
    }
    *out = block;
    return VEXA_OK;
}

extern "C" uint32_t VexaMallocZero(void **out, uint32_t size)
{
    if (out == nullptr) {
        return VEXA_ERR_PARAM;
    }
    uint32_t ret = VexaMalloc(out, size);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (size == 0 || *out == nullptr) {
        return VEXA_OK;
    }
    int set = memset_s(*out, size, 0, size);
    if (set != 0) {
        VexaFree(*out);
        *out = nullptr;
        return static_cast<uint32_t>(set);
    }
    return VEXA_OK;
}

extern "C" void VexaFree(void *ptr)
{
    free(ptr);
}
