// SPDX-License-Identifier: Apache-2.0
/* The primitive items every template is built from. */
#include "asn1/asn1_items.h"

namespace {

constexpr VexaAsnItem InternalPrimitive(VexaAsnDecodeFn decoder, int32_t tagClass, int32_t constructed,
                                        uint32_t tagNumber, size_t size)
{
    return VexaAsnItem{nullptr, decoder, tagClass, constructed, tagNumber, 0, static_cast<uint32_t>(size)};
}

constexpr uint32_t kBoolean = 1;
constexpr uint32_t kEnumerated = 10;

} // namespace

const VexaAsnItem g_itemVexaAsnOcts = InternalPrimitive(VexaAsnDecodeOcts, VEXA_ASN_ANY_CLASS,
                                                        VEXA_ASN_ANY_CONSTRUCTED, VEXA_ASN_ANY_TAG,
                                                        sizeof(VexaAsnOcts));
const VexaAsnItem g_itemVexaAsnBigInt =
    InternalPrimitive(VexaAsnDecodeOcts, kUniversal, 0, VEXA_ASN_TAG_INTEGER, sizeof(VexaAsnOcts));
const VexaAsnItem g_itemVexaAsnSeqRaw =
    InternalPrimitive(VexaAsnDecodeOcts, kUniversal, kConstructed, VEXA_ASN_TAG_SEQUENCE, sizeof(VexaAsnOcts));
const VexaAsnItem g_itemVexaAsnSetRaw =
    InternalPrimitive(VexaAsnDecodeOcts, kUniversal, kConstructed, VEXA_ASN_TAG_SET, sizeof(VexaAsnOcts));
const VexaAsnItem g_itemVexaAsnBits =
    InternalPrimitive(VexaAsnDecodeBits, kUniversal, 0, VEXA_ASN_TAG_BIT_STRING, sizeof(VexaAsnOcts));
const VexaAsnItem g_itemVexaAsnInt =
    InternalPrimitive(VexaDecodeInt, kUniversal, 0, VEXA_ASN_TAG_INTEGER, sizeof(uint32_t));
const VexaAsnItem g_itemVexaAsnEnum = InternalPrimitive(VexaDecodeInt, kUniversal, 0, kEnumerated, sizeof(uint32_t));
const VexaAsnItem g_itemVexaAsnBool = InternalPrimitive(VexaDecodeInt, kUniversal, 0, kBoolean, sizeof(uint32_t));
const VexaAsnItem g_itemVexaX509KeyUsage =
    InternalPrimitive(VexaBitsToInt, kUniversal, 0, VEXA_ASN_TAG_BIT_STRING, sizeof(uint32_t));
const VexaAsnItem g_itemVexaX509ExtKeyUsage =
    InternalPrimitive(VexaAsnDecodeExtKeyUsage, kUniversal, 0, VEXA_ASN_TAG_OID, sizeof(uint32_t));

/* ExtKeyUsage purposes and other identifier lists: a SEQUENCE of up to ten
 * elements of any tag. */
namespace {
const VexaAsnMember kOidBundleSlots[1] = {
    InternalSlots(g_itemVexaAsnOcts, offsetof(VexaAsnOidBundle, oids), VEXA_ASN_OID_BUNDLE_MAX)};
static_assert(VEXA_SLOTS_OF(VexaAsnOidBundle, oids) >= VEXA_ASN_OID_BUNDLE_MAX, "bundle capacity");
} // namespace

const VexaAsnItem g_itemVexaAsnOidBundle =
    InternalListItem(kOidBundleSlots, sizeof(VexaAsnOidBundle), VEXA_ASN_TAG_SEQUENCE);
