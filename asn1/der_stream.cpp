// SPDX-License-Identifier: Apache-2.0
/* The one way the library reads untrusted bytes: a cursor whose single
 * primitive checks what is left before it moves. */
#include "asn1/der_internal.h"
#include "asn1/engine_internal.h"
#include "base/diagnostics.h"

namespace {

constexpr uint8_t kLongFormBit = 0x80;
constexpr uint32_t kMaxLengthOctets = 4;
constexpr uint32_t kHighTagNumber = 31;

/* False for the high-tag-number form, which the decoder does not support. */
bool InternalTagFromOctet(uint8_t octet, VexaAsnTag *tag)
{
    if ((octet & 0x1Fu) == kHighTagNumber) {
        return false;
    }
    tag->tagClass = static_cast<uint32_t>(octet >> 6);
    tag->constructed = (octet & 0x20u) != 0 ? 1u : 0u;
    tag->tagNumber = octet & 0x1Fu;
    return true;
}

} // namespace

extern "C" uint32_t VexaAsnStreamInit(VexaAsnStream *stream, const uint8_t *data, uint32_t length)
{
    VEXA_ENSURE(stream != nullptr && data != nullptr && length != 0, VEXA_ERR_PARAM);
    stream->data = data;
    stream->length = length;
    stream->pos = 0;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnReadByte(VexaAsnStream *stream, uint8_t *out)
{
    VEXA_ENSURE(stream != nullptr && out != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(stream->pos < stream->length, VEXA_ERR_BUFFER_END);
    *out = stream->data[stream->pos];
    stream->pos++;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnSkip(VexaAsnStream *stream, int32_t count, uint32_t mode)
{
    VEXA_ENSURE(stream != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(mode == VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC);
    const int64_t target = static_cast<int64_t>(stream->pos) + count;
    VEXA_ENSURE(target >= 0 && target <= static_cast<int64_t>(stream->length), VEXA_ERR_GENERIC);
    stream->pos = static_cast<uint32_t>(target);
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnReadTag(VexaAsnStream *stream, VexaAsnTag *tag)
{
    VEXA_ENSURE(tag != nullptr, VEXA_ERR_PARAM);
    uint8_t octet = 0;
    VEXA_GUARD(VexaAsnReadByte(stream, &octet));
    VEXA_ENSURE(InternalTagFromOctet(octet, tag), VEXA_ERR_ASN_TAG);
    return VEXA_OK;
}

uint32_t InternalDecLen(VexaAsnStream *stream, uint32_t *len)
{
    VEXA_ENSURE(len != nullptr, VEXA_ERR_PARAM);
    uint8_t first = 0;
    VEXA_GUARD(VexaAsnReadByte(stream, &first));
    uint32_t value = first;
    if ((first & kLongFormBit) != 0) {
        const uint32_t octets = first & 0x7Fu;
        if (octets == 0 || octets > kMaxLengthOctets) {
            VEXA_LOG(VEXA_LOG_WARNING, VEXA_ERR_ASN_LENGTH, "indefinit length not supported.");
            return VEXA_ERR_ASN_LENGTH;
        }
        value = 0;
        for (uint32_t i = 0; i < octets; i++) {
            uint8_t octet = 0;
            VEXA_GUARD(VexaAsnReadByte(stream, &octet));
            value = (value << 8) | octet;
        }
    }
    /* The one place a length from the input meets the buffer: past this
     * check every caller may trust it. */
    if (value > InternalAsnLeft(stream)) {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_ASN_LENGTH, "overflow length.");
        return VEXA_ERR_ASN_LENGTH;
    }
    *len = value;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnReadHeader(VexaAsnStream *stream, const VexaAsnTag *expected, uint32_t *len,
                                      VexaAsnTag *tag)
{
    VEXA_ENSURE(expected != nullptr && len != nullptr && tag != nullptr, VEXA_ERR_PARAM);
    VEXA_GUARD(VexaAsnReadTag(stream, tag));
    VEXA_ENSURE(tag->tagClass == expected->tagClass && tag->constructed == expected->constructed &&
                    tag->tagNumber == expected->tagNumber,
                VEXA_ERR_ASN_TAG);
    VEXA_GUARD(InternalDecLen(stream, len));
    return VEXA_OK;
}

uint32_t InternalAsnAdvance(VexaAsnStream *stream, uint32_t count)
{
    VEXA_ENSURE(stream != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(count <= InternalAsnLeft(stream), VEXA_ERR_BUFFER_END);
    stream->pos += count;
    return VEXA_OK;
}

uint32_t InternalAsnWindow(const VexaAsnStream *stream, uint32_t len, VexaAsnStream *window)
{
    VEXA_ENSURE(stream != nullptr && window != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(len <= InternalAsnLeft(stream), VEXA_ERR_ASN_LENGTH);
    window->data = stream->data;
    window->length = stream->pos + len;
    window->pos = stream->pos;
    return VEXA_OK;
}

uint32_t InternalAsnPeekTag(const VexaAsnStream *stream, VexaAsnTag *tag)
{
    if (stream == nullptr || tag == nullptr || stream->pos >= stream->length) {
        return VEXA_ERR_BUFFER_END;
    }
    return InternalTagFromOctet(stream->data[stream->pos], tag) ? VEXA_OK : VEXA_ERR_ASN_TAG;
}
