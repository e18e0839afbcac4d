// SPDX-License-Identifier: Apache-2.0
/* Decoders of primitive elements: raw views, BIT STRINGs and small
 * integers. Each works on a copy of the cursor and commits it on success. */
#include "asn1/der_internal.h"
#include "asn1/engine_internal.h"
#include "base/diagnostics.h"

namespace {

constexpr uint32_t kMaxIntOctets = 4;
constexpr uint32_t kBooleanTag = 1;
constexpr uint8_t kBooleanTrue = 0xFF;
constexpr uint32_t kMaxKeyUsageOctets = 2;

uint32_t InternalFlags(const VexaAsnMember *member)
{
    return member != nullptr ? member->flags : 0u;
}

} // namespace

extern "C" uint32_t VexaAsnDecodeOcts(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                      const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    const uint32_t flags = InternalFlags(member);
    VexaAsnOcts *view = (flags & VEXA_ASN_SKIP) != 0 ? nullptr : static_cast<VexaAsnOcts *>(dest);
    VEXA_ENSURE((flags & VEXA_ASN_SKIP) != 0 || view != nullptr, VEXA_ERR_PARAM);

    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    VexaAsnTag tag{};
    VEXA_GUARD(VexaAsnReadTag(&cur, &tag));
    if (member != nullptr && member->item != nullptr) {
        VEXA_ENSURE(InternalTagMatches(InternalExpectedTag(member, VexaAsnDecodeOcts), tag), VEXA_ERR_ASN_OCTS_TAG);
    }
    uint32_t len = 0;
    VEXA_GUARD(InternalDecLen(&cur, &len));
    const uint32_t contentAt = cur.pos;
    if (len == 0) {
        if (view != nullptr) {
            view->data = nullptr;
        }
    } else {
        const uint8_t *data = cur.data + contentAt;
        uint32_t viewLen = len;
        if ((flags & VEXA_ASN_WHOLE) != 0) {
            data = cur.data + start;
            viewLen = len + (contentAt - start);
        } else if (tag.tagNumber == VEXA_ASN_TAG_INTEGER && data[0] == 0x00) {
            /* the sign octet of a positive INTEGER is not part of its value;
             * only one is dropped, so a non-minimal encoding stays visible */
            data++;
            viewLen--;
        }
        if (view != nullptr) {
            view->len = viewLen;
            view->tagClass = tag.tagClass;
            view->constructed = tag.constructed;
            view->tagNumber = tag.tagNumber;
            view->data = data;
        }
    }
    VEXA_GUARD(InternalAsnAdvance(&cur, len));

    if ((flags & VEXA_ASN_PEEK) != 0) {
        VEXA_ENSURE(view != nullptr, VEXA_ERR_ASN_PEEK);
        if (member->tagMode == VEXA_ASN_TAG_IMPLICIT) {
            /* Keep the bytes as encoded but the tag of the underlying type,
             * so the signed attributes can be hashed under the SET tag they
             * were signed with rather than the [0] they are stored under. */
            VEXA_ENSURE(member->item != nullptr, VEXA_ERR_ASN_PEEK);
            view->tagClass = static_cast<uint32_t>(member->item->tagClass);
            view->constructed = static_cast<uint32_t>(member->item->constructed);
            view->tagNumber = member->item->tagNumber;
        }
        *consumed = 0;
        return VEXA_OK;
    }
    stream->pos = cur.pos;
    *consumed = cur.pos - start;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnDecodeBits(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                      const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && consumed != nullptr && member != nullptr, VEXA_ERR_PARAM);
    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected = InternalExactTag(InternalExpectedTag(member, VexaAsnDecodeBits));
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_GUARD(VexaAsnReadHeader(&cur, &expected, &len, &tag));
    VEXA_ENSURE(len != 0 && tag.constructed == 0, VEXA_ERR_ASN_BITS);
    if ((member->flags & VEXA_ASN_SKIP) == 0) {
        VEXA_ENSURE(dest != nullptr, VEXA_ERR_ASN_BITS);
        uint8_t unusedBits = 0; /* neither checked nor kept */
        VEXA_GUARD(VexaAsnReadByte(&cur, &unusedBits));
        VexaAsnOcts *view = static_cast<VexaAsnOcts *>(dest);
        view->tagClass = tag.tagClass;
        view->constructed = tag.constructed;
        view->tagNumber = tag.tagNumber;
        view->len = len - 1;
        view->data = len > 1 ? cur.data + cur.pos : nullptr;
        len--;
    }
    VEXA_GUARD(InternalAsnAdvance(&cur, len));
    stream->pos = cur.pos;
    *consumed = cur.pos - start;
    return VEXA_OK;
}

extern "C" uint32_t VexaDecodeInt(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                  const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && consumed != nullptr && member != nullptr, VEXA_ERR_PARAM);
    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected = InternalExactTag(InternalExpectedTag(member, VexaDecodeInt));
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_GUARD(VexaAsnReadHeader(&cur, &expected, &len, &tag));
    if ((member->flags & VEXA_ASN_SKIP) == 0) {
        VEXA_ENSURE(dest != nullptr, VEXA_ERR_ASN_INT);
        VEXA_ENSURE(len != 0 && len <= kMaxIntOctets, VEXA_ERR_ASN_INT);
        uint8_t octet = 0;
        VEXA_ENSURE(VexaAsnReadByte(&cur, &octet) == VEXA_OK, VEXA_ERR_ASN_INT);
        uint32_t value = 0;
        if (member->item != nullptr && member->item->tagNumber == kBooleanTag) {
            VEXA_ENSURE(len == 1, VEXA_ERR_ASN_BOOL);
            value = octet == kBooleanTrue ? 1u : 0u;
        } else {
            value = (octet & 0x80u) != 0 ? (0xFFFFFF00u | octet) : octet;
            for (uint32_t i = 1; i < len; i++) {
                VEXA_ENSURE(VexaAsnReadByte(&cur, &octet) == VEXA_OK, VEXA_ERR_ASN_INT);
                value = (value << 8) | octet;
            }
        }
        InternalStoreU32(dest, value);
    } else {
        VEXA_GUARD(InternalAsnAdvance(&cur, len));
    }
    stream->pos = cur.pos;
    *consumed = cur.pos - start;
    return VEXA_OK;
}

extern "C" uint32_t VexaBitsToInt(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                  const VexaAsnMember *member)
{
    VEXA_ENSURE(dest != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(stream != nullptr, VEXA_ERR_PARAM);
    VexaAsnStream cur = *stream;
    VexaAsnOcts bits{};
    VEXA_GUARD(VexaAsnDecodeBits(&cur, &bits, consumed, member));
    if (bits.data == nullptr) {
        /* also a BIT STRING with the unused-bits octet and no value octet */
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_ASN_BITS, "Decode bits to intger failed.");
        return VEXA_ERR_ASN_BITS;
    }
    if (bits.len > kMaxKeyUsageOctets) {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_ASN_BITS, "unsupported length count");
        return VEXA_ERR_ASN_BITS;
    }
    /* the octets as encoded: keyCertSign|cRLSign (0x06) is 6, not bit-reversed */
    const uint32_t value = bits.len == kMaxKeyUsageOctets ? bits.data[0] * 256u + bits.data[1] : bits.data[0];
    InternalStoreU32(dest, value);
    stream->pos = cur.pos;
    return VEXA_OK;
}
