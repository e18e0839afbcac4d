// SPDX-License-Identifier: Apache-2.0
/* Item templates of X.509 CRLs (RFC 5280). */
#include "asn1/asn1_items.h"
#include "asn1/distribution_points.h"

namespace {

/* thisUpdate and nextUpdate are primitive universal elements. Holding them
 * to that keeps a missing nextUpdate from taking the revoked list or the
 * extensions that follow it as its value. */
const VexaAsnItem kTimeItem = {nullptr, VexaAsnDecodeOcts, kUniversal, 0, VEXA_ASN_ANY_TAG, 0, sizeof(VexaAsnOcts)};

const VexaAsnMember kCrlMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509Crl, tbsCertListRaw), kPeek | kWhole),
    InternalField(g_itemVexaX509TbsCrl, offsetof(VexaX509Crl, tbsCertList)),
    InternalField(g_itemVexaX509AlgId, offsetof(VexaX509Crl, signatureAlgorithm)),
    InternalField(g_itemVexaAsnBits, offsetof(VexaX509Crl, signatureValue)),
};

const VexaAsnMember kTbsCrlMembers[] = {
    /* required: version 1 CRLs are refused */
    InternalField(g_itemVexaAsnInt, offsetof(VexaX509TbsCrl, version)),
    InternalField(g_itemVexaX509AlgId, offsetof(VexaX509TbsCrl, signature)),
    /* the issuer as encoded, for names resolved against it */
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509TbsCrl, issuerRaw), kPeek | kWhole),
    InternalField(g_itemVexaX509Name, offsetof(VexaX509TbsCrl, issuer)),
    InternalField(kTimeItem, offsetof(VexaX509TbsCrl, thisUpdate)),
    InternalField(kTimeItem, offsetof(VexaX509TbsCrl, nextUpdate)),
    InternalField(g_itemVexaX509RevokedList, offsetof(VexaX509TbsCrl, revokedCertificates), kOptional),
    InternalExplicit(0, g_itemVexaX509CrlExtensions, offsetof(VexaX509TbsCrl, crlExtensions), kOptional),
};

const VexaAsnMember kRevokedSlots[1] = {InternalSlots(
    g_itemVexaX509RevokedEntry, offsetof(VexaX509RevokedList, entries), VEXA_X509_MAX_REVOKED)};
static_assert(VEXA_SLOTS_OF(VexaX509RevokedList, entries) == VEXA_X509_MAX_REVOKED, "revoked entries of a CRL");

const VexaAsnMember kRevokedEntryMembers[] = {
    InternalField(g_itemVexaAsnBigInt, offsetof(VexaX509RevokedEntry, userCertificate)),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509RevokedEntry, revocationDate)),
    InternalField(g_itemVexaX509RevokedEntryExts, offsetof(VexaX509RevokedEntry, reasonCode), kOptional),
};

/* reasonCode and the critical flag right after it; invalidity dates and
 * certificate issuers are not needed, and ignoring them can only revoke
 * more */
constexpr size_t kEntryCriticalFlag = offsetof(VexaX509RevokedEntry, unprocessedCritical) -
                                      offsetof(VexaX509RevokedEntry, reasonCode);
static_assert(kEntryCriticalFlag == sizeof(uint32_t), "the flag follows reasonCode");
const VexaAsnMember kRevokedEntryExtsMembers[] = {
    InternalAttr(AOID_CE_CRLREASONS, g_itemVexaAsnEnum, 0),
    InternalAttr(AOID_CE_INVALIDITYDATE, g_itemVexaAsnOcts, 0, kSkip),
    InternalAttr(AOID_CE_CERTIFICATEISSUER, g_itemVexaAsnOcts, 0, kSkip),
    InternalCriticalFlag(g_itemVexaAsnBool, kEntryCriticalFlag),
};

const VexaAsnMember kCrlExtensionsMembers[] = {
    InternalAttr(AOID_CE_ISSUINGDISTRIBUTIONPOINT, g_itemVexaX509Idp,
                 offsetof(VexaX509CrlExtensions, issuingDistributionPoint)),
    InternalAttr(AOID_CE_DELTACRLINDICATOR, g_itemVexaAsnBigInt, offsetof(VexaX509CrlExtensions, deltaCrlIndicator)),
    InternalAttr(AOID_CE_CRLNUMBER, g_itemVexaAsnOcts, 0, kSkip),
    InternalAttr(AOID_CE_AUTHORITYKEYIDENTIFIER, g_itemVexaAsnOcts, 0, kSkip),
    InternalCriticalFlag(g_itemVexaAsnBool, offsetof(VexaX509CrlExtensions, unprocessedCritical)),
};

const VexaAsnMember kIdpMembers[] = {
    InternalImplicit(0, g_itemVexaAsnOcts, offsetof(VexaX509Idp, distributionPoint), kOptional),
    InternalImplicit(1, g_itemVexaAsnBool, offsetof(VexaX509Idp, onlyContainsUserCerts), kOptional),
    InternalImplicit(2, g_itemVexaAsnBool, offsetof(VexaX509Idp, onlyContainsCACerts), kOptional),
    InternalImplicit(3, g_itemVexaAsnBits, offsetof(VexaX509Idp, onlySomeReasons), kOptional),
    InternalImplicit(4, g_itemVexaAsnBool, offsetof(VexaX509Idp, indirectCRL), kOptional),
    InternalImplicit(5, g_itemVexaAsnBool, offsetof(VexaX509Idp, onlyContainsAttributeCerts), kOptional),
};

} // namespace

const VexaAsnItem g_itemVexaX509Crl = InternalSeqItem(kCrlMembers, sizeof(VexaX509Crl));
const VexaAsnItem g_itemVexaX509TbsCrl = InternalSeqItem(kTbsCrlMembers, sizeof(VexaX509TbsCrl));
const VexaAsnItem g_itemVexaX509RevokedList =
    InternalListItem(kRevokedSlots, sizeof(VexaX509RevokedList), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaX509RevokedEntry = InternalSeqItem(kRevokedEntryMembers, sizeof(VexaX509RevokedEntry));
const VexaAsnItem g_itemVexaX509RevokedEntryExts =
    InternalAttrsItem(kRevokedEntryExtsMembers, 2 * sizeof(uint32_t), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaX509CrlExtensions =
    InternalAttrsItem(kCrlExtensionsMembers, sizeof(VexaX509CrlExtensions), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaX509Idp = InternalSeqItem(kIdpMembers, sizeof(VexaX509Idp));
