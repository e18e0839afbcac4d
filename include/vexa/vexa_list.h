/* SPDX-License-Identifier: Apache-2.0 */
/* The library's one collection: at most 16 pointers, embedded by value. */
#ifndef VEXA_LIST_H
#define VEXA_LIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VEXA_LIST_CAPACITY 16

typedef struct VexaList {
    uint32_t count;
    void *items[VEXA_LIST_CAPACITY];
} VexaList;

typedef void (*VexaListFreeFunc)(void *entry);
typedef int32_t (*VexaListCompareFunc)(const void *a, const void *b);

/* Fails with 0x88000501 when the list is full; the caller keeps the entry. */
uint32_t VexaListAppend(VexaList *list, void *entry);
/* Releases entries in list order and empties the list. */
void VexaListFreeAll(VexaList *list, VexaListFreeFunc freeFunc);
/* Stable sort, smallest first. */
uint32_t VexaListSort(VexaList *list, VexaListCompareFunc compare);

#ifdef __cplusplus
}
#endif

#endif
