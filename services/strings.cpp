// SPDX-License-Identifier: Apache-2.0
#include <string.h>

#include "services/oplog.h"
#include "vexa/vexa_services.h"

extern "C" int32_t VexaMemCmp(const void *a, const void *b, size_t length)
{
    if (a == nullptr || b == nullptr) {
        LOG_MAJOR("input buffer is null.\n\n");
        return -1;
    }
    int r = memcmp(a, b, length);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

extern "C" int32_t VexaStrNCmp(const char *a, const char *b, size_t length)
{
    if (a == nullptr || b == nullptr) {
        LOG_MAJOR("input buffer is null.\n\n");
        return -1;
    }
    return strncmp(a, b, length);
}

extern "C" const char *VexaStrStr(const char *text, const char *pattern)
{
    if (text == nullptr || pattern == nullptr) {
        LOG_MAJOR("input pointer is null.\n\n");
        return nullptr;
    }
    return strstr(text, pattern);
}

extern "C" const char *VexaStrChr(const char *text, uint8_t c)
{
    if (text == nullptr) {
        LOG_MAJOR("input string is null.\n\n");
        return nullptr;
    }
    return strchr(text, c);
}

extern "C" uint32_t VexaStrLen(const char *text)
{
    if (text == nullptr) {
        LOG_MAJOR("input string is null.\n\n");
        return 0;
    }
    return static_cast<uint32_t>(strlen(text));
}

/* An equality test, not an ordering: strings of different lengths are simply
 * "not equal" (-1) in either order. */
extern "C" int32_t VexaStrCmp(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        LOG_MAJOR("input string is null.\n\n");
        return -1;
    }
    if (a == b) {
        return 0;
    }
    size_t la = strlen(a);
    if (la != strlen(b)) {
        return -1;
    }
    return memcmp(a, b, la) == 0 ? 0 : -1;
}
