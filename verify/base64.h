/* SPDX-License-Identifier: Apache-2.0 */
/* Base64 as it appears in PEM bodies: line ends (LF or CR LF) and trailing
 * blanks are allowed, blanks inside a line are not. */
#ifndef VERIFY_BASE64_H
#define VERIFY_BASE64_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Decodes `length` characters of `text` into `out`. With `out` null, or a
 * capacity in *size (as signed 32-bit) below the decoded size, only stores
 * the decoded size in *size. */
uint32_t VexaBase64Decode(const char *text, uint32_t length, uint8_t *out, uint32_t *size);

#ifdef __cplusplus
}
#endif

extern const uint8_t g_base64DecodeTable[128];

uint32_t InternalIsLineEnd(const char *text, uint32_t length, uint32_t pos);
uint32_t InternalBase64Check(const char *text, uint32_t length, uint32_t *pos, uint32_t *size);
/* Never writes more than `capacity` bytes, whatever the text holds. */
uint32_t InternalBase64DecodeBlock(const char *text, uint32_t length, uint8_t *out, uint32_t capacity);

#endif
