/* SPDX-License-Identifier: Apache-2.0 */
/* Helpers of the DER cursor shared inside the decoder. */
#ifndef ASN1_DER_INTERNAL_H
#define ASN1_DER_INTERNAL_H

#include <stdint.h>

#include "vexa/vexa_asn1.h"

/* Reads one definite length (at most 4 length octets). After success the
 * `len` bytes that follow lie inside the stream, always. */
uint32_t InternalDecLen(VexaAsnStream *stream, uint32_t *len);

/* A cursor over the next `len` bytes of `stream` only, so that the content
 * of a constructed element can never be read past its own end. `len` must
 * have come from InternalDecLen on the same stream. */
uint32_t InternalAsnWindow(const VexaAsnStream *stream, uint32_t len, VexaAsnStream *window);

/* Steps over `count` bytes, which must all be left (0x88000201 otherwise,
 * moving nothing). Unsigned, unlike VexaAsnSkip, so no content length can
 * turn into a step backwards. */
uint32_t InternalAsnAdvance(VexaAsnStream *stream, uint32_t count);

/* Bytes left to read. */
inline uint32_t InternalAsnLeft(const VexaAsnStream *stream)
{
    return stream->length - stream->pos;
}

#endif
