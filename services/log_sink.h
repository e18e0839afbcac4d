/* SPDX-License-Identifier: Apache-2.0 */
/* Where the library's diagnostics end. The device build discards them; tests
 * register an observer to see each record. */
#ifndef SERVICES_LOG_SINK_H
#define SERVICES_LOG_SINK_H

#include <stdint.h>

typedef void (*VexaLogObserver)(uint32_t level, const char *logName, uint32_t line,
                                const char *function, uint32_t code, const char *message);

/* Null removes the observer. */
void VexaLogSetObserver(VexaLogObserver observer);

#endif
