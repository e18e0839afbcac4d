/* SPDX-License-Identifier: Apache-2.0 */
/* Pieces of the template engine shared by its decoders. */
#ifndef ASN1_ENGINE_INTERNAL_H
#define ASN1_ENGINE_INTERNAL_H

#include <stdint.h>

#include "vexa/vexa_asn1.h"

/* The identifier an element must carry, with the item's wildcards
 * (VEXA_ASN_ANY_CLASS, VEXA_ASN_ANY_CONSTRUCTED, VEXA_ASN_ANY_TAG). */
struct VexaAsnTagRule {
    int32_t tagClass;
    int32_t constructed;
    uint32_t tagNumber;
};

/* The identifier that decoder `kind` requires of an element reached through
 * `member`. Every decoder and the absence test of optional members ask this
 * one function, so they cannot disagree. */
VexaAsnTagRule InternalExpectedTag(const VexaAsnMember *member, VexaAsnDecodeFn kind);

bool InternalTagMatches(const VexaAsnTagRule &rule, const VexaAsnTag &tag);

/* The rule as an exact tag for VexaAsnReadHeader, which knows no wildcards
 * (a wildcard then matches nothing). */
VexaAsnTag InternalExactTag(const VexaAsnTagRule &rule);

/* The identifier at the cursor without moving it and without a record: a
 * question, not a failure. 0 when there is one, else non-zero. */
uint32_t InternalAsnPeekTag(const VexaAsnStream *stream, VexaAsnTag *tag);

/* Writes `value` into the u32 field a decoder fills. */
inline void InternalStoreU32(void *dest, uint32_t value)
{
    *static_cast<uint32_t *>(dest) = value;
}

#endif
