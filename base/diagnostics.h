/* SPDX-License-Identifier: Apache-2.0 */
/* The library's guard style.
 *
 * A failure is recorded where it is detected, under the detecting function's
 * own name, and the code travels up unchanged; every function it passes
 * through records it again, so one failure leaves a chain of records from the
 * inside out. Library code writes its checks with these three macros only:
 *
 *     VEXA_ENSURE(stream != nullptr, VEXA_ERR_PARAM);   // detect
 *     VEXA_GUARD(VexaAsnReadTag(stream, &tag));          // propagate
 *     return VEXA_FAIL(VEXA_ERR_ASN_SEQ);                // detect, no condition
 *
 * Each records level VEXA_LOG_ERROR with no message text; the function name
 * is __func__ and the line is the guard's own, so a record points at the
 * exact check. Where a fixed message or a warning is wanted, VEXA_LOG writes
 * one record and leaves the control flow to the caller.
 */
#ifndef BASE_DIAGNOSTICS_H
#define BASE_DIAGNOSTICS_H

#include <stdint.h>

#include "vexa/vexa_log.h"
#include "vexa/vexa_result.h"

/* One record under the calling function's name; pass nullptr for no text. */
#define VEXA_LOG(level, code, ...) \
    VexaLogCallback((level), VEXA_LOG_FILE, static_cast<uint32_t>(__LINE__), __func__, (code), __VA_ARGS__)

/* Records `code` as an error of the calling function and yields it. */
#define VEXA_FAIL(code) VexaLogFailure((code), static_cast<uint32_t>(__LINE__), __func__)

/* Fails with `code` unless `cond` holds. */
#define VEXA_ENSURE(cond, code)              \
    do {                                     \
        if (!(cond)) {                       \
            return VEXA_FAIL(code);          \
        }                                    \
    } while (0)

/* Runs a step that returns a result code; a failure is recorded under this
 * function's name and returned unchanged. The step is evaluated once. */
#define VEXA_GUARD(step)                               \
    do {                                               \
        const uint32_t vexaGuardCode_ = (step);        \
        if (vexaGuardCode_ != VEXA_OK) {               \
            return VEXA_FAIL(vexaGuardCode_);          \
        }                                              \
    } while (0)

/* The record behind VEXA_FAIL; returns `code`. */
uint32_t VexaLogFailure(uint32_t code, uint32_t line, const char *function);

#endif
