/* SPDX-License-Identifier: Apache-2.0 */
/* Services the verification library calls by name: memory, strings, files
 * and the sink of its diagnostics. The check tool supplies them; their
 * failures are written to the tool's operation log. */
#ifndef VEXA_SERVICES_H
#define VEXA_SERVICES_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t VexaMalloc(void **out, uint32_t size);
/* VexaMalloc plus clearing; a size of 0 leaves *out untouched. */
uint32_t VexaMallocZero(void **out, uint32_t size);
void VexaFree(void *ptr);

/* Equality tests: 0 when equal; -1 for a null argument. */
int32_t VexaMemCmp(const void *a, const void *b, size_t length);
int32_t VexaStrNCmp(const char *a, const char *b, size_t length);
int32_t VexaStrCmp(const char *a, const char *b);
const char *VexaStrStr(const char *text, const char *pattern);
const char *VexaStrChr(const char *text, uint8_t c);
uint32_t VexaStrLen(const char *text);

/* Opens an existing file by its resolved path (symbolic links and dot
 * components resolved first). */
FILE *VexaFileOpen(const char *path, const char *mode);
size_t VexaFileRead(void *buffer, size_t count, FILE *file);
int32_t VexaFileClose(FILE *file);
/* Size of an open file, 0 when empty or not measurable; never above
 * 0xFFFFFFFF. The file position is left where it was. */
uint64_t VexaFileGetSize(FILE *file);

void VexaLogPrint(uint32_t level, const char *logName, uint32_t line, const char *function,
                  uint32_t code, const char *message);

#ifdef __cplusplus
}
#endif

#endif
