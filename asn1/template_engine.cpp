// SPDX-License-Identifier: Apache-2.0
/* The walker: one generic decoder turns DER into a flat record laid out by a
 * constant item template. Every constructed element is decoded through a
 * window over its own content, so no member can read past its parent, and
 * every decoder works on a copy of the cursor that it commits only on
 * success. */
#include "asn1/der_internal.h"
#include "asn1/engine_internal.h"
#include "base/diagnostics.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kContextClass = 2;
constexpr uint32_t kNeverMatches = 101; /* an integer member without an item */

bool InternalMayBeAbsent(const VexaAsnMember *member)
{
    return (member->flags & (VEXA_ASN_OPTIONAL | VEXA_ASN_DEFAULT)) != 0;
}

/* A member whose element cannot start with the identifier at the cursor is
 * absent; deciding that up front keeps an absent OPTIONAL field from leaving
 * error records behind. When in doubt the answer is yes, and the decoder
 * itself decides. */
bool InternalMayStartHere(const VexaAsnStream *stream, const VexaAsnMember *member)
{
    VexaAsnTag tag{};
    if (InternalAsnPeekTag(stream, &tag) != VEXA_OK) {
        return false;
    }
    if (member->tagMode == VEXA_ASN_TAG_EXPLICIT) {
        return tag.tagClass == kContextClass && tag.constructed == 1 && tag.tagNumber == member->tagNumber;
    }
    if (member->item == nullptr || member->item->decoder == nullptr) {
        return true;
    }
    return InternalTagMatches(InternalExpectedTag(member, member->item->decoder), tag);
}

/* The member's element, with its explicit wrapper if it has one. */
uint32_t InternalDecodeTagged(VexaAsnStream *cur, void *record, const VexaAsnMember *member)
{
    const VexaAsnItem *item = member->item;
    VEXA_ENSURE(item != nullptr && item->decoder != nullptr, VEXA_ERR_ASN_SEQ);
    void *dest = record != nullptr ? static_cast<uint8_t *>(record) + member->offset : nullptr;
    uint32_t used = 0;
    if (member->tagMode != VEXA_ASN_TAG_EXPLICIT) {
        VEXA_GUARD(item->decoder(cur, dest, &used, member));
        return VEXA_OK;
    }
    VexaAsnTag tag{};
    VEXA_ENSURE(VexaAsnReadTag(cur, &tag) == VEXA_OK && tag.tagClass == kContextClass && tag.constructed == 1 &&
                    tag.tagNumber == member->tagNumber,
                VEXA_ERR_ASN_SEQ);
    uint32_t len = 0;
    VEXA_GUARD(InternalDecLen(cur, &len));
    VexaAsnStream inner{};
    VEXA_GUARD(InternalAsnWindow(cur, len, &inner));
    VEXA_GUARD(item->decoder(&inner, dest, &used, member));
    /* DER wraps exactly one element: bytes after it inside the wrapper are
     * not part of any field. */
    VEXA_ENSURE(inner.pos == inner.length, VEXA_ERR_ASN_SEQ);
    cur->pos = inner.pos;
    return VEXA_OK;
}

/* A template may place a member only inside its enclosing record; checked
 * before anything is written there. */
bool InternalMemberFits(const VexaAsnMember *member, const VexaAsnItem *parent)
{
    const uint64_t size = member->item != nullptr ? member->item->size : 0;
    return static_cast<uint64_t>(member->offset) + size <= parent->size;
}

} // namespace

extern "C" {

const VexaAsnDecodeFn g_vexaAsnDecoderTable[VEXA_ASN_DECODER_KINDS] = {
    VexaAsnDecodeOcts, VexaAsnDecodeBits,  VexaAsnDecodeSeq, VexaDecodeInt,
    VexaAsnDecodeList, VexaAsnDecodeAttrs, VexaBitsToInt,    VexaAsnDecodeExtKeyUsage,
};

} // extern "C"

VexaAsnTagRule InternalExpectedTag(const VexaAsnMember *member, VexaAsnDecodeFn kind)
{
    const VexaAsnItem *item = member != nullptr ? member->item : nullptr;
    const bool implicit = member != nullptr && member->tagMode == VEXA_ASN_TAG_IMPLICIT;
    VexaAsnTagRule rule{0, 0, kNeverMatches};
    if (kind == VexaAsnDecodeExtKeyUsage) {
        /* read through a plain SEQUENCE OF, whatever the member says */
        return VexaAsnTagRule{0, 1, VEXA_ASN_TAG_SEQUENCE};
    }
    if (kind == VexaAsnDecodeOcts) {
        if (item != nullptr) {
            rule = VexaAsnTagRule{item->tagClass, item->constructed, item->tagNumber};
        }
    } else if (kind == VexaAsnDecodeBits || kind == VexaBitsToInt) {
        rule.tagNumber = VEXA_ASN_TAG_BIT_STRING;
    } else if (kind == VexaDecodeInt) {
        rule.tagNumber = item != nullptr ? item->tagNumber : kNeverMatches;
    } else if (kind == VexaAsnDecodeSeq) {
        rule.tagNumber = item != nullptr ? item->tagNumber : kNeverMatches;
        /* a SEQUENCE carried inside a BIT STRING (the public key) */
        rule.constructed = rule.tagNumber == VEXA_ASN_TAG_BIT_STRING ? 0 : 1;
    } else if (kind == VexaAsnDecodeList || kind == VexaAsnDecodeAttrs) {
        rule.tagNumber = item != nullptr ? item->tagNumber : kNeverMatches;
        rule.constructed = 1;
    } else if (item != nullptr) {
        rule = VexaAsnTagRule{0, item->constructed, item->tagNumber};
    }
    if (implicit) {
        /* The member fixes class and number; only the constructed flag may
         * stay open, for views of any encoding. */
        rule.tagClass = static_cast<int32_t>(kContextClass);
        rule.tagNumber = member->tagNumber;
    }
    return rule;
}

bool InternalTagMatches(const VexaAsnTagRule &rule, const VexaAsnTag &tag)
{
    return (rule.tagClass == VEXA_ASN_ANY_CLASS || static_cast<uint32_t>(rule.tagClass) == tag.tagClass) &&
           (rule.constructed == VEXA_ASN_ANY_CONSTRUCTED ||
            static_cast<uint32_t>(rule.constructed) == tag.constructed) &&
           (rule.tagNumber == VEXA_ASN_ANY_TAG || rule.tagNumber == tag.tagNumber);
}

VexaAsnTag InternalExactTag(const VexaAsnTagRule &rule)
{
    return VexaAsnTag{static_cast<uint32_t>(rule.tagClass), static_cast<uint32_t>(rule.constructed),
                      rule.tagNumber};
}

extern "C" uint32_t VexaAsnDecodeItem(const uint8_t *buffer, uint32_t length, const VexaAsnItem *item,
                                      uint32_t flags, void **record, uint32_t *consumed)
{
    VEXA_ENSURE(buffer != nullptr && length != 0 && item != nullptr && record != nullptr && consumed != nullptr,
                VEXA_ERR_PARAM);
    VEXA_ENSURE(item->decoder != nullptr, VEXA_ERR_ASN_NO_DECODER);
    VEXA_ENSURE(item->size != 0, VEXA_ERR_PARAM);
    VexaAsnStream stream{};
    VEXA_GUARD(VexaAsnStreamInit(&stream, buffer, length));
    void *fresh = nullptr;
    VEXA_GUARD(VexaMallocZero(&fresh, item->size));
    const VexaAsnMember top{item, 0, VEXA_ASN_TAG_NONE, static_cast<uint16_t>(flags), 0, 0};
    uint32_t used = 0;
    const uint32_t ret = item->decoder(&stream, fresh, &used, &top);
    if (ret != VEXA_OK) {
        VexaFree(fresh);
        return VEXA_FAIL(ret);
    }
    *record = fresh;
    *consumed = used;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnDecodeMember(VexaAsnStream *stream, void *record, const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && member != nullptr, VEXA_ERR_PARAM);
    const bool mayBeAbsent = InternalMayBeAbsent(member);
    if (mayBeAbsent && !InternalMayStartHere(stream, member)) {
        return VEXA_OK;
    }
    VexaAsnStream cur = *stream;
    const uint32_t ret = InternalDecodeTagged(&cur, record, member);
    if (ret == VEXA_OK) {
        stream->pos = cur.pos;
        return VEXA_OK;
    }
    if (mayBeAbsent) {
        /* Tolerated: the field stays zero and the cursor where it was; the
         * records above say why, should the parent then fail. */
        VEXA_LOG(VEXA_LOG_WARNING, ret, nullptr);
        return VEXA_OK;
    }
    return VEXA_FAIL(ret);
}

extern "C" uint32_t VexaAsnDecodeSeq(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                     const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && dest != nullptr && consumed != nullptr && member != nullptr &&
                    member->item != nullptr,
                VEXA_ERR_PARAM);
    const VexaAsnItem *item = member->item;
    VEXA_ENSURE(item->memberCount == 0 || item->members != nullptr, VEXA_ERR_PARAM);
    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected = InternalExactTag(InternalExpectedTag(member, VexaAsnDecodeSeq));
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_GUARD(VexaAsnReadHeader(&cur, &expected, &len, &tag));
    if (item->tagNumber == VEXA_ASN_TAG_BIT_STRING) {
        /* the unused-bits octet of the BIT STRING around the SEQUENCE */
        VEXA_ENSURE(len != 0, VEXA_ERR_ASN_BITS);
        VEXA_GUARD(InternalAsnAdvance(&cur, 1));
        len--;
    }
    VexaAsnStream content{};
    VEXA_GUARD(InternalAsnWindow(&cur, len, &content));
    for (uint32_t i = 0; i < item->memberCount; i++) {
        const VexaAsnMember *child = &item->members[i];
        if (content.pos == content.length) {
            for (uint32_t j = i; j < item->memberCount; j++) {
                VEXA_ENSURE(InternalMayBeAbsent(&item->members[j]), VEXA_ERR_ASN_SEQ);
            }
            break;
        }
        const bool skip = (child->flags & VEXA_ASN_SKIP) != 0;
        VEXA_ENSURE(skip || InternalMemberFits(child, item), VEXA_ERR_ASN_SEQ);
        VEXA_GUARD(VexaAsnDecodeMember(&content, skip ? nullptr : dest, child));
    }
    /* trailing content inside the SEQUENCE belongs to no member */
    VEXA_ENSURE(content.pos == content.length, VEXA_ERR_ASN_SEQ);
    stream->pos = content.pos;
    *consumed = content.pos - start;
    return VEXA_OK;
}
