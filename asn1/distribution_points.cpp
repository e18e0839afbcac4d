// SPDX-License-Identifier: Apache-2.0
#include "asn1/distribution_points.h"

#include "asn1/asn1_items.h"
#include "asn1/der_internal.h"
#include "asn1/engine_internal.h"
#include "base/diagnostics.h"
#include "vexa/vexa_services.h"

namespace {

/* The extensions the checks of critical entries know beyond the table's,
 * all under id-ce (2.5.29): the identifier's last arc for each. */
constexpr uint8_t kIdCe[] = {0x55, 0x1D};
constexpr struct {
    int32_t id;
    uint8_t arc;
} kCeExtensions[] = {
    {AOID_CE_SUBJECTKEYIDENTIFIER, 14}, {AOID_CE_SUBJECTALTNAME, 17},     {AOID_CE_ISSUERALTNAME, 18},
    {AOID_CE_CRLNUMBER, 20},            {AOID_CE_INVALIDITYDATE, 24},     {AOID_CE_DELTACRLINDICATOR, 27},
    {AOID_CE_CERTIFICATEISSUER, 29},    {AOID_CE_CRLDISTRIBUTIONPOINTS, 31}, {AOID_CE_AUTHORITYKEYIDENTIFIER, 35},
};

const VexaAsnMember kDistributionPointMembers[] = {
    /* a CHOICE under a tag is always explicitly tagged */
    InternalExplicit(0, g_itemVexaAsnOcts, offsetof(VexaX509DistributionPoint, distributionPoint), kOptional),
    InternalImplicit(1, g_itemVexaAsnBits, offsetof(VexaX509DistributionPoint, reasons), kOptional),
    InternalImplicit(2, g_itemVexaAsnOcts, offsetof(VexaX509DistributionPoint, cRLIssuer), kOptional),
};

const VexaAsnItem kDistributionPointItem =
    InternalSeqItem(kDistributionPointMembers, sizeof(VexaX509DistributionPoint));

} // namespace

int32_t InternalExtensionId(const VexaAsnOcts *oid)
{
    const int32_t id = VexaOidGetId(oid);
    if (id != AOID_UNKNOWN || oid == nullptr || oid->data == nullptr || oid->len != sizeof(kIdCe) + 1 ||
        VexaMemCmp(oid->data, kIdCe, sizeof(kIdCe)) != 0) {
        return id;
    }
    for (const auto &row : kCeExtensions) {
        if (row.arc == oid->data[sizeof(kIdCe)]) {
            return row.id;
        }
    }
    return AOID_UNKNOWN;
}

uint32_t VexaX509NextDistributionPoint(VexaAsnStream *content, VexaX509DistributionPoint *out)
{
    VEXA_ENSURE(content != nullptr && out != nullptr, VEXA_ERR_PARAM);
    *out = VexaX509DistributionPoint{};
    const VexaAsnMember asPoint{&kDistributionPointItem, 0, VEXA_ASN_TAG_NONE, 0, 0, 0};
    uint32_t used = 0;
    VEXA_GUARD(VexaAsnDecodeSeq(content, out, &used, &asPoint));
    /* the name must be one of the two forms the CHOICE allows */
    const VexaAsnOcts &name = out->distributionPoint;
    VEXA_ENSURE(name.data == nullptr || (name.tagClass == kAsnClassContext && name.constructed == 1 &&
                                         (name.tagNumber == 0 || name.tagNumber == 1)),
                VEXA_ERR_ASN_SEQ);
    return VEXA_OK;
}

/* The cRLDistributionPoints value: every point is read once here, so a
 * malformed one fails the certificate's decoding; the record keeps the
 * whole SEQUENCE for the CRL scope check. */
extern "C" uint32_t InternalDecodeDistributionPoints(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                                     const VexaAsnMember *member)
{
    (void)member;
    VEXA_ENSURE(stream != nullptr && dest != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    VexaAsnStream cur = *stream;
    const uint32_t start = cur.pos;
    const VexaAsnTag expected{kAsnClassUniversal, 1, VEXA_ASN_TAG_SEQUENCE};
    VexaAsnTag tag{};
    uint32_t len = 0;
    VEXA_GUARD(VexaAsnReadHeader(&cur, &expected, &len, &tag));
    VexaAsnStream content{};
    VEXA_GUARD(InternalAsnWindow(&cur, len, &content));
    /* every point takes at least its two header bytes, so this ends */
    while (content.pos < content.length) {
        VexaX509DistributionPoint point{};
        VEXA_GUARD(VexaX509NextDistributionPoint(&content, &point));
    }
    VEXA_GUARD(InternalAsnAdvance(&cur, len));
    VexaAsnOcts *view = static_cast<VexaAsnOcts *>(dest);
    view->data = cur.data + start;
    view->len = cur.pos - start;
    view->tagClass = tag.tagClass;
    view->constructed = tag.constructed;
    view->tagNumber = tag.tagNumber;
    stream->pos = cur.pos;
    *consumed = cur.pos - start;
    return VEXA_OK;
}
