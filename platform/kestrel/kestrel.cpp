// SPDX-License-Identifier: Apache-2.0
#include "kestrel/kestrel.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

namespace {

bool size_ok(size_t destMax)
{
    return destMax != 0 && destMax <= KESTREL_MAX_LEN;
}

bool overlap(const void *a, size_t aLen, const void *b, size_t bLen)
{
    uintptr_t pa = reinterpret_cast<uintptr_t>(a);
    uintptr_t pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bLen && pb < pa + aLen;
}

/* Length of src, stopping at limit (returns limit when no NUL before it). */
size_t bounded_len(const char *s, size_t limit)
{
    const void *nul = memchr(s, '\0', limit);
    return nul == nullptr ? limit : static_cast<size_t>(static_cast<const char *>(nul) - s);
}

} // namespace

extern "C" int memcpy_s(void *dest, size_t destMax, const void *src, size_t count)
{
    if (dest == nullptr || !size_ok(destMax)) {
        return KESTREL_EINVAL;
    }
    if (src == nullptr) {
        memset(dest, 0, destMax);
        return KESTREL_EINVAL;
    }
    if (count > destMax) {
        /* Never leave a half-done copy behind for the caller to trust. */
        memset(dest, 0, destMax);
        return KESTREL_ERANGE;
    }
    if (count == 0) {
        return 0;
    }
    if (overlap(dest, count, src, count)) {
        return KESTREL_EOVERLAP;
    }
    memcpy(dest, src, count);
    return 0;
}

extern "C" int memset_s(void *dest, size_t destMax, int c, size_t count)
{
    if (dest == nullptr || !size_ok(destMax)) {
        return KESTREL_EINVAL;
    }
    if (count > destMax) {
        memset(dest, c, destMax);
        return KESTREL_ERANGE;
    }
    memset(dest, c, count);
    return 0;
}

extern "C" int strcpy_s(char *dest, size_t destMax, const char *src)
{
    if (dest == nullptr || !size_ok(destMax)) {
        return KESTREL_EINVAL;
    }
    if (src == nullptr) {
        dest[0] = '\0';
        return KESTREL_EINVAL;
    }
    if (dest == src) {
        return 0;
    }
    size_t len = bounded_len(src, destMax);
    if (len >= destMax) {
        dest[0] = '\0';
        return KESTREL_ERANGE;
    }
    if (overlap(dest, len + 1, src, len + 1)) {
        dest[0] = '\0';
        return KESTREL_EOVERLAP;
    }
    memcpy(dest, src, len + 1);
    return 0;
}

extern "C" int strcat_s(char *dest, size_t destMax, const char *src)
{
    if (dest == nullptr || !size_ok(destMax)) {
        return KESTREL_EINVAL;
    }
    size_t have = bounded_len(dest, destMax);
    if (have >= destMax) {
        /* dest is not a string inside its own buffer */
        dest[0] = '\0';
        return KESTREL_EINVAL;
    }
    if (src == nullptr) {
        dest[0] = '\0';
        return KESTREL_EINVAL;
    }
    size_t room = destMax - have;
    size_t add = bounded_len(src, room);
    if (add >= room) {
        dest[0] = '\0';
        return KESTREL_ERANGE;
    }
    if (overlap(dest, destMax, src, add + 1)) {
        dest[0] = '\0';
        return KESTREL_EOVERLAP;
    }
    memcpy(dest + have, src, add + 1);
    return 0;
}

extern "C" int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list ap)
{
    if (dest == nullptr || !size_ok(destMax)) {
        return -1;
    }
    if (format == nullptr || count >= destMax) {
        dest[0] = '\0';
        return -1;
    }
    if (overlap(dest, destMax, format, bounded_len(format, destMax) + 1)) {
        dest[0] = '\0';
        return -1;
    }
    /* Format into at most count + 1 bytes: the C library reports the full
     * length, so an output that does not fit is seen and refused whole. */
    int full = vsnprintf(dest, count + 1, format, ap);
    if (full < 0 || static_cast<size_t>(full) > count) {
        dest[0] = '\0';
        return -1;
    }
    return full;
}

extern "C" int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...)
{
    va_list ap;
    va_start(ap, format);
    int ret = vsnprintf_s(dest, destMax, count, format, ap);
    va_end(ap);
    return ret;
}
