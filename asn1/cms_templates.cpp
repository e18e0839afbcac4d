// SPDX-License-Identifier: Apache-2.0
/* Item templates of CMS ContentInfo/SignedData (RFC 5652) and of RFC 3161
 * TSTInfo. */
#include "asn1/asn1_items.h"

namespace {

const VexaAsnMember kContentMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaPkcs7Content, contentType)),
    InternalExplicit(0, g_itemVexaPkcs7SignedData, offsetof(VexaPkcs7Content, content)),
};

const VexaAsnMember kSignedDataMembers[] = {
    InternalField(g_itemVexaAsnInt, offsetof(VexaPkcs7SignedData, version), kOptional),
    InternalField(g_itemVexaAsnSetRaw, 0, kSkip),
    InternalField(g_itemVexaPkcs7EncapContent, offsetof(VexaPkcs7SignedData, encapContentInfo)),
    InternalImplicit(0, g_itemVexaPkcs7CertList, offsetof(VexaPkcs7SignedData, certificates), kOptional),
    InternalImplicit(1, g_itemVexaAsnSeqRaw, 0, kOptional | kSkip),
    InternalField(g_itemVexaPkcs7SignerInfoList, offsetof(VexaPkcs7SignedData, signerInfos)),
};

const VexaAsnMember kEncapContentMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaPkcs7EncapContent, eContentType)),
    /* absent for a detached signature; otherwise the view of the [0]
     * element, whose content is the OCTET STRING element */
    InternalField(g_itemVexaAsnOcts, offsetof(VexaPkcs7EncapContent, eContent), kOptional),
};

/* Whole certificate elements of any tag: the tag is checked when each is
 * decoded as a certificate. */
const VexaAsnMember kCertSlots[1] = {
    InternalSlots(g_itemVexaAsnOcts, offsetof(VexaPkcs7CertList, certs), VEXA_PKCS7_MAX_CERTS, kWhole)};
static_assert(VEXA_PKCS7_MAX_CERTS <= VEXA_SLOTS_OF(VexaPkcs7CertList, certs), "certificates of a SignedData");
static_assert(VEXA_PKCS7_CERT_SLOTS == VEXA_ASN_OID_BUNDLE_MAX && sizeof(VexaPkcs7CertList) == sizeof(VexaAsnOidBundle),
              "a certificate list has the shape of an identifier bundle");
static_assert(VEXA_PKCS7_MAX_CERTS <= VEXA_LIST_CAPACITY, "every certificate fits decodedCerts");

const VexaAsnMember kSignerSlots[1] = {
    InternalSlots(g_itemVexaPkcs7SignerInfo, offsetof(VexaPkcs7SignerInfoList, signers), VEXA_PKCS7_MAX_SIGNERS)};
static_assert(VEXA_SLOTS_OF(VexaPkcs7SignerInfoList, signers) == VEXA_PKCS7_MAX_SIGNERS, "signers of a SignedData");

const VexaAsnMember kSignerInfoMembers[] = {
    InternalField(g_itemVexaAsnInt, offsetof(VexaPkcs7SignerInfo, version)),
    InternalField(g_itemVexaPkcs7IssuerAndSerial, offsetof(VexaPkcs7SignerInfo, sid)),
    InternalField(g_itemVexaX509AlgId, offsetof(VexaPkcs7SignerInfo, digestAlgorithm)),
    /* the signed attributes' bytes as encoded, under the SET tag they are
     * signed with, then the same element again as attributes */
    InternalImplicit(0, g_itemVexaAsnSetRaw, offsetof(VexaPkcs7SignerInfo, signedAttrsRaw), kOptional | kPeek | kWhole),
    InternalImplicit(0, g_itemVexaPkcs7SignedAttrs, offsetof(VexaPkcs7SignerInfo, signedAttrs), kOptional),
    /* the digest algorithm alone selects the hash */
    InternalField(g_itemVexaAsnSeqRaw, 0, kSkip),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaPkcs7SignerInfo, signature)),
    InternalImplicit(1, g_itemVexaPkcs7UnsignedAttrs, offsetof(VexaPkcs7SignerInfo, unsignedAttrs), kOptional),
};

const VexaAsnMember kIssuerAndSerialMembers[] = {
    InternalField(g_itemVexaX509Name, offsetof(VexaPkcs7IssuerAndSerial, issuer)),
    InternalField(g_itemVexaAsnBigInt, offsetof(VexaPkcs7IssuerAndSerial, serialNumber)),
};

/* the digest octets: the first value of the attribute's SET */
const VexaAsnMember kSignedAttrsMembers[] = {
    InternalAttr(AOID_PKCS9_AT_MESSAGEDIGEST, g_itemVexaAsnOcts, offsetof(VexaPkcs7SignedAttrs, messageDigest)),
};

/* the whole token ContentInfo, to be decoded again as a SignedData */
const VexaAsnMember kUnsignedAttrsMembers[] = {
    InternalAttr(AOID_PKCS9_AT_TIMESTAMP_TOKEN, g_itemVexaAsnOcts, offsetof(VexaPkcs7UnsignedAttrs, timeStampToken),
                 kOptional | kWhole),
};

const VexaAsnMember kTimestampInfoMembers[] = {
    InternalField(g_itemVexaAsnInt, 0, kSkip),
    InternalField(g_itemVexaAsnOcts, 0, kSkip),
    InternalField(g_itemVexaTimestampImprint, offsetof(VexaTimestampInfo, messageImprint)),
    InternalField(g_itemVexaAsnBigInt, 0, kSkip),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaTimestampInfo, genTime)),
    InternalField(g_itemVexaAsnSeqRaw, 0, kOptional | kSkip),
    InternalField(g_itemVexaAsnBool, 0, kOptional | kSkip),
    InternalField(g_itemVexaAsnBigInt, 0, kOptional | kSkip),
    InternalImplicit(0, g_itemVexaAsnSeqRaw, 0, kOptional | kSkip),
    InternalImplicit(1, g_itemVexaAsnSeqRaw, 0, kOptional | kSkip),
};

const VexaAsnMember kTimestampImprintMembers[] = {
    InternalField(g_itemVexaX509AlgId, offsetof(VexaTimestampImprint, hashAlgorithm)),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaTimestampImprint, hashedMessage)),
};

} // namespace

const VexaAsnItem g_itemVexaPkcs7Content = InternalSeqItem(kContentMembers, sizeof(VexaPkcs7Content));
const VexaAsnItem g_itemVexaPkcs7SignedData = InternalSeqItem(kSignedDataMembers, sizeof(VexaPkcs7SignedData));
const VexaAsnItem g_itemVexaPkcs7EncapContent = InternalSeqItem(kEncapContentMembers, sizeof(VexaPkcs7EncapContent));
const VexaAsnItem g_itemVexaPkcs7CertList =
    InternalListItem(kCertSlots, sizeof(VexaPkcs7CertList), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaPkcs7SignerInfoList =
    InternalListItem(kSignerSlots, sizeof(VexaPkcs7SignerInfoList), VEXA_ASN_TAG_SET);
const VexaAsnItem g_itemVexaPkcs7SignerInfo = InternalSeqItem(kSignerInfoMembers, sizeof(VexaPkcs7SignerInfo));
const VexaAsnItem g_itemVexaPkcs7IssuerAndSerial =
    InternalSeqItem(kIssuerAndSerialMembers, sizeof(VexaPkcs7IssuerAndSerial));
const VexaAsnItem g_itemVexaPkcs7SignedAttrs =
    InternalAttrsItem(kSignedAttrsMembers, sizeof(VexaPkcs7SignedAttrs), VEXA_ASN_TAG_SET);
const VexaAsnItem g_itemVexaPkcs7UnsignedAttrs =
    InternalAttrsItem(kUnsignedAttrsMembers, sizeof(VexaPkcs7UnsignedAttrs), VEXA_ASN_TAG_SET);
const VexaAsnItem g_itemVexaTimestampInfo = InternalSeqItem(kTimestampInfoMembers, sizeof(VexaTimestampInfo));
const VexaAsnItem g_itemVexaTimestampImprint = InternalSeqItem(kTimestampImprintMembers, sizeof(VexaTimestampImprint));
