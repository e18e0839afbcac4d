// SPDX-License-Identifier: Apache-2.0
#include "services/log_sink.h"

#include "vexa/vexa_services.h"

namespace {
VexaLogObserver g_observer = nullptr;
}

extern "C" void VexaLogSetObserver(VexaLogObserver observer)
{
    g_observer = observer;
}

extern "C" void VexaLogPrint(uint32_t level, const char *logName, uint32_t line, const char *function,
                             uint32_t code, const char *message)
{
    (void)logName; /* always VEXA_LOG_FILE */
    if (g_observer != nullptr) {
        g_observer(level, function, line, code, message);
    }
}
