/* SPDX-License-Identifier: Apache-2.0 */
/* Bounds-checked memory and string functions.
 *
 * This is the stand-in for the device's libkestrel: the same names and the
 * same contract, so a device build links the real library instead of this
 * one without touching any caller. All functions return 0 (or, for the
 * formatters, the number of characters written) on success and fail on null
 * or overlapping arguments and on any request that does not fit the
 * destination.
 */
#ifndef KESTREL_KESTREL_H
#define KESTREL_KESTREL_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Largest destination size any function accepts; larger sizes are taken
 * as a corrupted size argument rather than a real buffer. */
#define KESTREL_MAX_LEN 0x7FFFFFFFUL

/* Non-zero failure values of the memory and string functions. */
#define KESTREL_EINVAL 22
#define KESTREL_ERANGE 34
#define KESTREL_EOVERLAP 54

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
int memset_s(void *dest, size_t destMax, int c, size_t count);
int strcpy_s(char *dest, size_t destMax, const char *src);
int strcat_s(char *dest, size_t destMax, const char *src);

/* Formats at most `count` characters into `dest` (size `destMax`, with room
 * for the terminator, so count < destMax). Returns the number written, or a
 * negative value when the arguments are bad or the output would be longer
 * than `count`; on failure `dest` holds an empty string. */
int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list ap)
    __attribute__((format(printf, 4, 0)));

#ifdef __cplusplus
}
#endif

#endif
