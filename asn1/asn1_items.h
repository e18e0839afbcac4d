/* SPDX-License-Identifier: Apache-2.0 */
/* The library's item templates that are not exported, and the helpers that
 * keep template tables short and checked. */
#ifndef ASN1_ASN1_ITEMS_H
#define ASN1_ASN1_ITEMS_H

#include <stddef.h>
#include <stdint.h>

#include "vexa/vexa_asn1.h"

/* Primitive items shared by all templates. */
extern const VexaAsnItem g_itemVexaAsnBigInt;  /* INTEGER as a view, one leading zero dropped */
extern const VexaAsnItem g_itemVexaAsnSeqRaw;  /* any SEQUENCE as a view */
extern const VexaAsnItem g_itemVexaAsnSetRaw;  /* any SET as a view */
extern const VexaAsnItem g_itemVexaAsnBits;    /* BIT STRING value octets */
extern const VexaAsnItem g_itemVexaAsnInt;     /* INTEGER of at most 4 octets as u32 */
extern const VexaAsnItem g_itemVexaAsnEnum;    /* ENUMERATED as u32 */
extern const VexaAsnItem g_itemVexaAsnBool;    /* BOOLEAN as 0/1 */
extern const VexaAsnItem g_itemVexaX509KeyUsage;
extern const VexaAsnItem g_itemVexaX509ExtKeyUsage;

/* Certificates. */
extern const VexaAsnItem g_itemVexaX509TbsCert;
extern const VexaAsnItem g_itemVexaX509AlgId;
extern const VexaAsnItem g_itemVexaX509Name;
extern const VexaAsnItem g_itemVexaX509Rdn;
extern const VexaAsnItem g_itemVexaX509AttrTypeAndValue;
extern const VexaAsnItem g_itemVexaX509Validity;
extern const VexaAsnItem g_itemVexaX509PubKeyInfo;
extern const VexaAsnItem g_itemVexaRsaPubKeyBits;
extern const VexaAsnItem g_itemVexaRsaPubKey;
extern const VexaAsnItem g_itemVexaX509Extensions;
extern const VexaAsnItem g_itemVexaX509BasicConstraints;
extern const VexaAsnItem g_itemVexaX509PathLen;       /* basicConstraints' pathLenConstraint as a view */
extern const VexaAsnItem g_itemVexaX509CrlDps;        /* cRLDistributionPoints, checked and kept whole */
extern "C" uint32_t InternalDecodeDistributionPoints(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                                     const VexaAsnMember *member);

/* CRLs. */
extern const VexaAsnItem g_itemVexaX509TbsCrl;
extern const VexaAsnItem g_itemVexaX509RevokedList;
extern const VexaAsnItem g_itemVexaX509RevokedEntry;
extern const VexaAsnItem g_itemVexaX509RevokedEntryExts;
extern const VexaAsnItem g_itemVexaX509CrlExtensions;
extern const VexaAsnItem g_itemVexaX509Idp;

/* CMS and time-stamp information. */
extern const VexaAsnItem g_itemVexaPkcs7SignedData;
extern const VexaAsnItem g_itemVexaPkcs7EncapContent;
extern const VexaAsnItem g_itemVexaPkcs7CertList;
extern const VexaAsnItem g_itemVexaPkcs7SignerInfoList;
extern const VexaAsnItem g_itemVexaPkcs7SignerInfo;
extern const VexaAsnItem g_itemVexaPkcs7IssuerAndSerial;
extern const VexaAsnItem g_itemVexaPkcs7SignedAttrs;
extern const VexaAsnItem g_itemVexaPkcs7UnsignedAttrs;
extern const VexaAsnItem g_itemVexaTimestampImprint;

/* ---- building templates ---- */

constexpr uint16_t kOptional = VEXA_ASN_OPTIONAL;
constexpr uint16_t kPeek = VEXA_ASN_PEEK;
constexpr uint16_t kWhole = VEXA_ASN_WHOLE;
constexpr uint16_t kDefault = VEXA_ASN_DEFAULT;
constexpr uint16_t kSkip = VEXA_ASN_SKIP;

constexpr int32_t kUniversal = 0;
constexpr int32_t kConstructed = 1;

/* An untagged field at `offset` of the record. */
constexpr VexaAsnMember InternalField(const VexaAsnItem &item, size_t offset, uint16_t flags = 0)
{
    return VexaAsnMember{&item, 0, VEXA_ASN_TAG_NONE, flags, static_cast<uint32_t>(offset), 0};
}

constexpr VexaAsnMember InternalExplicit(uint32_t tag, const VexaAsnItem &item, size_t offset, uint16_t flags = 0)
{
    return VexaAsnMember{&item, tag, VEXA_ASN_TAG_EXPLICIT, flags, static_cast<uint32_t>(offset), 0};
}

constexpr VexaAsnMember InternalImplicit(uint32_t tag, const VexaAsnItem &item, size_t offset, uint16_t flags = 0)
{
    return VexaAsnMember{&item, tag, VEXA_ASN_TAG_IMPLICIT, flags, static_cast<uint32_t>(offset), 0};
}

/* The member of an attribute set that takes the entry with this OID id. */
constexpr VexaAsnMember InternalAttr(int32_t oidId, const VexaAsnItem &item, size_t offset, uint16_t flags = 0)
{
    return VexaAsnMember{&item, static_cast<uint32_t>(oidId), VEXA_ASN_TAG_NONE, flags,
                         static_cast<uint32_t>(offset), 0};
}

/* The member of an attribute set that records, as a u32 1, an entry marked
 * critical that no other member of the set takes. */
constexpr uint32_t kUnprocessedCriticalMember = 0xFFFFFFFFu;
constexpr VexaAsnMember InternalCriticalFlag(const VexaAsnItem &u32Item, size_t offset)
{
    return VexaAsnMember{&u32Item, kUnprocessedCriticalMember, VEXA_ASN_TAG_NONE, 0, static_cast<uint32_t>(offset), 0};
}

/* The single member of a list item: the slot array starts at `slotsOffset`
 * of the list record, and at most `maxCount` slots fill. */
constexpr VexaAsnMember InternalSlots(const VexaAsnItem &item, size_t slotsOffset, uint32_t maxCount,
                                      uint16_t flags = 0)
{
    return VexaAsnMember{&item, 0, VEXA_ASN_TAG_NONE, flags, static_cast<uint32_t>(slotsOffset), maxCount};
}

template <size_t N>
constexpr VexaAsnItem InternalSeqItem(const VexaAsnMember (&members)[N], size_t size,
                                      uint32_t tagNumber = VEXA_ASN_TAG_SEQUENCE)
{
    return VexaAsnItem{members, VexaAsnDecodeSeq, kUniversal, tagNumber == VEXA_ASN_TAG_BIT_STRING ? 0 : kConstructed,
                       tagNumber, static_cast<uint32_t>(N), static_cast<uint32_t>(size)};
}

template <size_t N>
constexpr VexaAsnItem InternalAttrsItem(const VexaAsnMember (&members)[N], size_t size, uint32_t tagNumber)
{
    return VexaAsnItem{members, VexaAsnDecodeAttrs, kUniversal, kConstructed, tagNumber, static_cast<uint32_t>(N),
                       static_cast<uint32_t>(size)};
}

constexpr VexaAsnItem InternalListItem(const VexaAsnMember (&element)[1], size_t size, uint32_t tagNumber)
{
    return VexaAsnItem{element, VexaAsnDecodeList, kUniversal, kConstructed, tagNumber, 1,
                       static_cast<uint32_t>(size)};
}

/* Number of slots in a record's array field. */
#define VEXA_SLOTS_OF(Record, array) (sizeof(Record::array) / sizeof(Record::array[0]))

#endif
