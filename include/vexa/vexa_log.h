/* SPDX-License-Identifier: Apache-2.0 */
/* The verification library's diagnostics: every error and warning record of
 * the library passes through VexaLogCallback on its way to the VexaLogPrint
 * service. Diagnostics never change a result. */
#ifndef VEXA_LOG_H
#define VEXA_LOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Severities; any other value is dropped. */
#define VEXA_LOG_ERROR 0u
#define VEXA_LOG_WARNING 1u

/* The log name every record of this library carries. */
#define VEXA_LOG_FILE "vexa_log.log"

/* The longest formatted message, without its terminating NUL. */
#define VEXA_LOG_MESSAGE_MAX 2047u

/* An observer of the library's diagnostics, for tools that explain a
 * verdict (forge inspect) and for tests; off unless set, and checktool never
 * sets it, so a device's diagnostics end in VexaLogPrint, which discards
 * them. It receives every record as it is made, inside out along a failing
 * call chain: the level (VEXA_LOG_ERROR or VEXA_LOG_WARNING), the function
 * that made it, its source line, the result code and the formatted message
 * (null when the record has none). The strings live only for the call. The
 * observer runs on the thread that logs and must not call the library; it is
 * one per process, so set it before verifying and clear it (null) after. */
typedef void (*VexaLogObserver)(uint32_t level, const char *function, uint32_t line, uint32_t code,
                                const char *message);
void VexaLogSetObserver(VexaLogObserver observer);

/* Formats `format` (printf style, may be null for no message) and hands one
 * record to VexaLogPrint. When the message cannot be formatted, a record about
 * that comes first and the caller's record carries the raw format. */
void VexaLogCallback(uint32_t level, const char *logName, uint32_t line, const char *function, uint32_t code,
                     const char *format, ...)
#if defined(__GNUC__) || defined(__clang__)
    __attribute__((format(printf, 6, 7)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif
