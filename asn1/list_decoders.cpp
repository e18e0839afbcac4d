// SPDX-License-Identifier: Apache-2.0
/* Decoders of repeated content: bounded SEQUENCE OF / SET OF lists,
 * attribute and extension sets selected by identifier, and ExtKeyUsage. */
#include "asn1/asn1_items.h"
#include "asn1/der_internal.h"
#include "asn1/distribution_points.h"
#include "asn1/engine_internal.h"
#include "base/diagnostics.h"

namespace {

uint8_t *InternalAt(void *record, uint64_t offset)
{
    return static_cast<uint8_t *>(record) + offset;
}

/* The slots of a list item must lie inside its record, whatever maxCount
 * says; checked before the first slot is written. */
bool InternalSlotsFit(const VexaAsnItem *list, const VexaAsnMember *element)
{
    if (element->item == nullptr || element->item->decoder == nullptr || element->item->size == 0) {
        return false;
    }
    const uint64_t end = static_cast<uint64_t>(element->offset) +
                         static_cast<uint64_t>(element->maxCount) * element->item->size;
    return element->offset >= sizeof(uint32_t) && end <= list->size;
}

/* An entry's critical field as encoded. Any octet but 0 counts as critical
 * here, so a BOOLEAN TRUE written as 0x01 cannot pass an unprocessed
 * extension off as non-critical. */
const VexaAsnItem kBooleanView = {nullptr, VexaAsnDecodeOcts, 0, 0, 1, 0, sizeof(VexaAsnOcts)};
const VexaAsnMember kCriticalViewMembers[] = {
    VexaAsnMember{&g_itemVexaAsnOcts, 0, VEXA_ASN_TAG_NONE, VEXA_ASN_SKIP, 0, 0},
    VexaAsnMember{&kBooleanView, 0, VEXA_ASN_TAG_NONE, VEXA_ASN_OPTIONAL, 0, 0},
    VexaAsnMember{&g_itemVexaAsnOcts, 0, VEXA_ASN_TAG_NONE, VEXA_ASN_SKIP, 0, 0},
};
const VexaAsnItem kCriticalViewItem = {kCriticalViewMembers, VexaAsnDecodeSeq, 0, 1, VEXA_ASN_TAG_SEQUENCE, 3,
                                       sizeof(VexaAsnOcts)};

bool MarkedCritical(VexaAsnStream entry)
{
    VexaAsnOcts critical{};
    uint32_t used = 0;
    const VexaAsnMember asView{&kCriticalViewItem, 0, VEXA_ASN_TAG_NONE, 0, 0, 0};
    return VexaAsnDecodeSeq(&entry, &critical, &used, &asView) == VEXA_OK && critical.data != nullptr &&
           critical.len == 1 && critical.data[0] != 0;
}

/* One Extension or Attribute entry, stored by every member of the set for
 * its identifier (a value may be kept in two forms; a SKIP member only
 * checks it). An entry no member takes is ignored, but when it is marked
 * critical and the set has a critical-flag member, that member records it:
 * the path and CRL checks refuse what they cannot honour. */
uint32_t InternalDecodeAttrEntry(VexaAsnStream *content, void *dest, const VexaAsnItem *set)
{
    VexaX509ExtensionEntry entry{};
    const VexaAsnMember asEntry{&g_itemVexaX509ExtensionEntry, 0, VEXA_ASN_TAG_NONE, 0, 0, 0};
    uint32_t used = 0;
    const VexaAsnStream entryStart = *content;
    VEXA_GUARD(VexaAsnDecodeSeq(content, &entry, &used, &asEntry));
    VEXA_ENSURE(entry.extnValue.data != nullptr && entry.extnValue.len != 0, VEXA_ERR_ASN_LIST);
    const int32_t id = InternalExtensionId(&entry.extnID);
    bool taken = false;
    const VexaAsnMember *criticalFlag = nullptr;
    for (uint32_t i = 0; i < set->memberCount; i++) {
        const VexaAsnMember *target = &set->members[i];
        if (target->tagNumber == kUnprocessedCriticalMember) {
            criticalFlag = target;
            continue;
        }
        if (id == AOID_UNKNOWN || target->tagNumber != static_cast<uint32_t>(id)) {
            continue;
        }
        taken = true;
        VEXA_ENSURE(target->item != nullptr && target->item->decoder != nullptr, VEXA_ERR_ASN_LIST);
        const bool skip = (target->flags & VEXA_ASN_SKIP) != 0;
        VEXA_ENSURE(skip || static_cast<uint64_t>(target->offset) + target->item->size <= set->size,
                    VEXA_ERR_ASN_LIST);
        /* The value is read on its own: it need not fill extnValue, and it
         * can never reach outside it. */
        VexaAsnStream value{};
        VEXA_GUARD(VexaAsnStreamInit(&value, entry.extnValue.data, entry.extnValue.len));
        VEXA_GUARD(target->item->decoder(&value, skip ? nullptr : InternalAt(dest, target->offset), &used, target));
    }
    if (!taken && criticalFlag != nullptr && (entry.critical == 1 || MarkedCritical(entryStart))) {
        VEXA_ENSURE(static_cast<uint64_t>(criticalFlag->offset) + sizeof(uint32_t) <= set->size, VEXA_ERR_ASN_LIST);
        InternalStoreU32(InternalAt(dest, criticalFlag->offset), 1);
    }
    return VEXA_OK;
}

} // namespace

extern "C" uint32_t VexaAsnDecodeList(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                      const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && dest != nullptr && consumed != nullptr && member != nullptr &&
                    member->item != nullptr && member->item->memberCount == 1 && member->item->members != nullptr,
                VEXA_ERR_PARAM);
    const VexaAsnItem *list = member->item;
    const VexaAsnMember *element = &list->members[0];
    VEXA_ENSURE(InternalSlotsFit(list, element), VEXA_ERR_ASN_LIST);

    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected = InternalExactTag(InternalExpectedTag(member, VexaAsnDecodeList));
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_ENSURE(VexaAsnReadHeader(&cur, &expected, &len, &tag) == VEXA_OK, VEXA_ERR_ASN_LIST);
    VexaAsnStream content{};
    VEXA_ENSURE(InternalAsnWindow(&cur, len, &content) == VEXA_OK, VEXA_ERR_ASN_LIST);

    uint32_t filled = 0;
    while (content.pos < content.length) {
        /* the capacity bounds the loop even for an element that takes no bytes */
        VEXA_ENSURE(filled < element->maxCount, VEXA_ERR_ASN_LIST);
        void *slot = InternalAt(dest, element->offset + static_cast<uint64_t>(filled) * element->item->size);
        uint32_t used = 0;
        VEXA_ENSURE(element->item->decoder(&content, slot, &used, element) == VEXA_OK, VEXA_ERR_ASN_LIST);
        filled++;
    }
    InternalStoreU32(dest, filled);
    stream->pos = content.pos;
    *consumed = content.pos - start;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnDecodeAttrs(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                       const VexaAsnMember *member)
{
    VEXA_ENSURE(stream != nullptr && dest != nullptr && consumed != nullptr && member != nullptr &&
                    member->item != nullptr,
                VEXA_ERR_PARAM);
    const VexaAsnItem *set = member->item;
    VEXA_ENSURE(set->memberCount == 0 || set->members != nullptr, VEXA_ERR_PARAM);

    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected = InternalExactTag(InternalExpectedTag(member, VexaAsnDecodeAttrs));
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_ENSURE(VexaAsnReadHeader(&cur, &expected, &len, &tag) == VEXA_OK, VEXA_ERR_ASN_LIST);
    VexaAsnStream content{};
    VEXA_ENSURE(InternalAsnWindow(&cur, len, &content) == VEXA_OK, VEXA_ERR_ASN_LIST);

    /* every entry takes at least its two header bytes, so this ends */
    while (content.pos < content.length) {
        VEXA_GUARD(InternalDecodeAttrEntry(&content, dest, set));
    }
    stream->pos = content.pos;
    *consumed = content.pos - start;
    return VEXA_OK;
}

extern "C" uint32_t VexaAsnDecodeExtKeyUsage(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                             const VexaAsnMember *member)
{
    (void)member;
    VEXA_ENSURE(dest != nullptr, VEXA_ERR_PARAM);
    VexaAsnOidBundle purposes{};
    const VexaAsnMember asBundle{&g_itemVexaAsnOidBundle, 0, VEXA_ASN_TAG_NONE, 0, 0, 0};
    VEXA_GUARD(VexaAsnDecodeList(stream, &purposes, consumed, &asBundle));
    if (purposes.count == 0) {
        return VEXA_OK;
    }
    /* Only the first purpose counts: a certificate must name the use it is
     * meant for first. */
    const int32_t first = VexaOidGetId(&purposes.oids[0]);
    if (first == AOID_KP_CODESIGNING) {
        InternalStoreU32(dest, *static_cast<uint32_t *>(dest) | VEXA_EKU_CODE_SIGNING);
    } else if (first == AOID_KP_TIMESTAMPING) {
        InternalStoreU32(dest, *static_cast<uint32_t *>(dest) | VEXA_EKU_TIME_STAMPING);
    }
    return VEXA_OK;
}
