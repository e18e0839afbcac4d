/* SPDX-License-Identifier: Apache-2.0 */
/* Base64 as it appears in PEM bodies: line ends (LF or CR LF) and trailing
 * blanks are allowed, blanks inside a line are not. */
#ifndef VERIFY_BASE64_H
#define VERIFY_BASE64_H

#include <stdint.h>

#include "vexa/vexa_verify.h"

extern const uint8_t g_base64DecodeTable[128];

uint32_t InternalIsLineEnd(const char *text, uint32_t length, uint32_t pos);
uint32_t InternalBase64Check(const char *text, uint32_t length, uint32_t *pos, uint32_t *size);
/* Never writes more than `capacity` bytes, whatever the text holds. */
uint32_t InternalBase64DecodeBlock(const char *text, uint32_t length, uint8_t *out, uint32_t capacity);

#endif
