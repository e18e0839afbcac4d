// SPDX-License-Identifier: Apache-2.0
#include <stdlib.h>

#include <kestrel/kestrel.h>

#include "services/oplog.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

#if defined(CHECKTOOL_ALLOC_FAIL_INJECTION)
/* Test builds only: the VEXA_FAIL_ALLOC_AT-th call that reaches malloc fails
 * as malloc would, and the number of such calls is written at exit to the
 * file VEXA_ALLOC_COUNT_FILE names, so a test can fail every call in turn. */
#include <stdio.h>

namespace {

unsigned long g_allocCalls = 0;

void write_alloc_count()
{
    const char *path = getenv("VEXA_ALLOC_COUNT_FILE");
    FILE *out = path != nullptr ? fopen(path, "w") : nullptr;
    if (out != nullptr) {
        fprintf(out, "%lu\n", g_allocCalls);
        fclose(out);
    }
}

bool injected_failure()
{
    if (g_allocCalls++ == 0) {
        (void)atexit(write_alloc_count);
    }
    const char *at = getenv("VEXA_FAIL_ALLOC_AT");
    return at != nullptr && strtoul(at, nullptr, 10) == g_allocCalls;
}

} // namespace
#define VEXA_INJECTED_FAILURE() injected_failure()
#else
#define VEXA_INJECTED_FAILURE() false
#endif

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
    void *block = VEXA_INJECTED_FAILURE() ? nullptr : malloc(size);
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
