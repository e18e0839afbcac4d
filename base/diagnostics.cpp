// SPDX-License-Identifier: Apache-2.0
#include "base/diagnostics.h"

#include <stdarg.h>

#include <kestrel/kestrel.h>

#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kMessageBufferSize = VEXA_LOG_MESSAGE_MAX + 1;
static_assert(kMessageBufferSize == 2048, "a message and its NUL fit 2048 bytes");

/* The callback's own records carry these fixed source lines, so a reader of
 * the sink can tell them from any caller's record. */
constexpr uint32_t kAllocFailedLine = 33;
constexpr uint32_t kFormatFailedLine = 49;

} // namespace

extern "C" void VexaLogCallback(uint32_t level, const char *logName, uint32_t line, const char *function,
                                uint32_t code, const char *format, ...)
{
    if (logName == nullptr || function == nullptr || level > VEXA_LOG_WARNING) {
        return;
    }
    void *block = nullptr;
    if (VexaMallocZero(&block, kMessageBufferSize) != VEXA_OK || block == nullptr) {
        VexaLogPrint(VEXA_LOG_ERROR, VEXA_LOG_FILE, kAllocFailedLine, "VexaLogCallback", VEXA_ERR_MALLOC,
                     "Allocate memory for log message failed.");
        VexaLogPrint(level, logName, line, function, code, format);
        return;
    }
    char *message = static_cast<char *>(block);
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        const int written = vsnprintf_s(message, kMessageBufferSize, VEXA_LOG_MESSAGE_MAX, format, args);
        va_end(args);
        if (written <= 0) {
            VexaLogPrint(VEXA_LOG_ERROR, VEXA_LOG_FILE, kFormatFailedLine, "VexaLogCallback", VEXA_OK,
                         "format log message failed.");
            VexaLogPrint(level, logName, line, function, code, format);
            VexaFree(block);
            return;
        }
    }
    VexaLogPrint(level, logName, line, function, code, message);
    VexaFree(block);
}

uint32_t VexaLogFailure(uint32_t code, uint32_t line, const char *function)
{
    VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, line, function, code, nullptr);
    return code;
}
