// SPDX-License-Identifier: Apache-2.0
#include "vexa/vexa_list.h"
#include "vexa/vexa_result.h"

extern "C" uint32_t VexaListAppend(VexaList *list, void *entry)
{
    if (list == nullptr || entry == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (list->count >= VEXA_LIST_CAPACITY) {
        return VEXA_ERR_LIST_FULL;
    }
    list->items[list->count] = entry;
    list->count++;
    return VEXA_OK;
}

extern "C" void VexaListFreeAll(VexaList *list, VexaListFreeFunc freeFunc)
{
    if (list == nullptr || freeFunc == nullptr) {
        return;
    }
    /* A count above capacity can only be a corrupted record; never walk
     * past the array for it. */
    uint32_t n = list->count < VEXA_LIST_CAPACITY ? list->count : VEXA_LIST_CAPACITY;
    for (uint32_t i = 0; i < n; i++) {
        freeFunc(list->items[i]);
    }
    list->count = 0;
}

/* Bubble sort moving small entries to the front; equal entries never swap,
 * so entries that tie keep the order in which they were added. */
extern "C" uint32_t VexaListSort(VexaList *list, VexaListCompareFunc compare)
{
    if (list == nullptr || compare == nullptr) {
        return VEXA_ERR_PARAM;
    }
    uint32_t n = list->count < VEXA_LIST_CAPACITY ? list->count : VEXA_LIST_CAPACITY;
    bool swapped = true;
    for (uint32_t i = 0; i < n && swapped; i++) {
        swapped = false;
        for (uint32_t j = n - 1; j > i; j--) {
            if (compare(list->items[j - 1], list->items[j]) > 0) {
                void *tmp = list->items[j - 1];
                list->items[j - 1] = list->items[j];
                list->items[j] = tmp;
                swapped = true;
            }
        }
    }
    return VEXA_OK;
}
