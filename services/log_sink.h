/* SPDX-License-Identifier: Apache-2.0 */
/* Where the library's diagnostics end: VexaLogPrint discards them on the
 * device; a tool or a test may observe them (VexaLogSetObserver,
 * include/vexa/vexa_log.h). */
#ifndef SERVICES_LOG_SINK_H
#define SERVICES_LOG_SINK_H

#include "vexa/vexa_log.h"

#endif
