/* SPDX-License-Identifier: Apache-2.0 */
/* The one trust anchor: a DER X.509 root certificate compiled into the tool
 * (the CMake cache variable ROOT_CERT_DER chooses it). */
#ifndef CHECKTOOL_ROOT_CERT_H
#define CHECKTOOL_ROOT_CERT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

const unsigned char *get_root_cert_data(void);
uint32_t get_root_cert_len(void);

#ifdef __cplusplus
}
#endif

#endif
