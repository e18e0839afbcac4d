// SPDX-License-Identifier: Apache-2.0
/* Item templates of X.509 certificates (RFC 5280). Only what the verifier
 * uses is stored; the rest is checked and stepped over. */
#include "asn1/asn1_items.h"
#include "asn1/distribution_points.h"

namespace {

const VexaAsnMember kCertMembers[] = {
    /* the signed bytes, identifier and length included, then the same
     * element again as fields */
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509Cert, tbsCertificateRaw), kPeek | kWhole),
    InternalField(g_itemVexaX509TbsCert, offsetof(VexaX509Cert, tbsCertificate)),
    InternalField(g_itemVexaX509AlgId, offsetof(VexaX509Cert, signatureAlgorithm)),
    InternalField(g_itemVexaAsnBits, offsetof(VexaX509Cert, signatureValue)),
};

const VexaAsnMember kTbsCertMembers[] = {
    /* required though not kept: version 1 certificates are refused */
    InternalExplicit(0, g_itemVexaAsnInt, 0, kSkip),
    InternalField(g_itemVexaAsnBigInt, offsetof(VexaX509TbsCert, serialNumber)),
    InternalField(g_itemVexaAsnSeqRaw, 0, kSkip),
    /* the issuer as encoded, for names resolved against it */
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509TbsCert, issuerRaw), kPeek | kWhole),
    InternalField(g_itemVexaX509Name, offsetof(VexaX509TbsCert, issuer)),
    InternalField(g_itemVexaX509Validity, offsetof(VexaX509TbsCert, validity)),
    InternalField(g_itemVexaX509Name, offsetof(VexaX509TbsCert, subject)),
    InternalField(g_itemVexaX509PubKeyInfo, offsetof(VexaX509TbsCert, subjectPublicKeyInfo)),
    InternalImplicit(1, g_itemVexaAsnBits, 0, kOptional | kSkip),
    InternalImplicit(2, g_itemVexaAsnBits, 0, kOptional | kSkip),
    InternalExplicit(3, g_itemVexaX509Extensions, offsetof(VexaX509TbsCert, extensions), kOptional),
};

const VexaAsnMember kAlgIdMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509AlgId, algorithm)),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509AlgId, parameters), kOptional),
};

const VexaAsnMember kNameSlots[1] = {
    InternalSlots(g_itemVexaX509Rdn, offsetof(VexaX509Name, rdns), VEXA_X509_NAME_MAX_RDNS)};
static_assert(VEXA_SLOTS_OF(VexaX509Name, rdns) == VEXA_X509_NAME_MAX_RDNS, "RDNs of a name");

const VexaAsnMember kRdnSlots[1] = {
    InternalSlots(g_itemVexaX509AttrTypeAndValue, offsetof(VexaX509Rdn, attrs), VEXA_X509_RDN_MAX_ATTRS)};
static_assert(VEXA_SLOTS_OF(VexaX509Rdn, attrs) == VEXA_X509_RDN_MAX_ATTRS, "attributes of an RDN");

const VexaAsnMember kAttrTypeAndValueMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509AttrTypeAndValue, type)),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509AttrTypeAndValue, value)),
};

const VexaAsnMember kValidityMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509Validity, notBefore)),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509Validity, notAfter)),
};

const VexaAsnMember kPubKeyInfoMembers[] = {
    InternalField(g_itemVexaX509AlgId, offsetof(VexaX509PubKeyInfo, algorithm)),
    InternalField(g_itemVexaRsaPubKeyBits, offsetof(VexaX509PubKeyInfo, subjectPublicKey)),
};

/* The BIT STRING around the RSAPublicKey, read as a one-member SEQUENCE. */
const VexaAsnMember kRsaPubKeyBitsMembers[] = {
    InternalField(g_itemVexaRsaPubKey, 0),
};

const VexaAsnMember kRsaPubKeyMembers[] = {
    InternalField(g_itemVexaAsnBigInt, offsetof(VexaRsaPubKey, modulus)),
    InternalField(g_itemVexaAsnBigInt, offsetof(VexaRsaPubKey, publicExponent)),
};

/* Any other extension is stepped over; one marked critical is remembered,
 * since the path check must refuse a constraint it cannot honour. The key
 * identifiers and alternative names are processed in that they constrain
 * nothing the path check relies on. */
const VexaAsnMember kExtensionsMembers[] = {
    InternalAttr(AOID_CE_BASICCONSTRAINTS, g_itemVexaX509BasicConstraints,
                 offsetof(VexaX509Extensions, basicConstraintsCa)),
    InternalAttr(AOID_CE_BASICCONSTRAINTS, g_itemVexaX509PathLen, offsetof(VexaX509Extensions, pathLenConstraint)),
    InternalAttr(AOID_CE_KEYUSAGE, g_itemVexaX509KeyUsage, offsetof(VexaX509Extensions, keyUsage)),
    InternalAttr(AOID_CE_KEYUSAGE, g_itemVexaAsnBits, offsetof(VexaX509Extensions, keyUsageBits)),
    InternalAttr(AOID_CE_EXTKEYUSAGE, g_itemVexaX509ExtKeyUsage, offsetof(VexaX509Extensions, extKeyUsage)),
    InternalAttr(AOID_CE_CRLDISTRIBUTIONPOINTS, g_itemVexaX509CrlDps,
                 offsetof(VexaX509Extensions, cRLDistributionPoints)),
    InternalAttr(AOID_CE_SUBJECTKEYIDENTIFIER, g_itemVexaAsnOcts, 0, kSkip),
    InternalAttr(AOID_CE_AUTHORITYKEYIDENTIFIER, g_itemVexaAsnOcts, 0, kSkip),
    InternalAttr(AOID_CE_SUBJECTALTNAME, g_itemVexaAsnOcts, 0, kSkip),
    InternalAttr(AOID_CE_ISSUERALTNAME, g_itemVexaAsnOcts, 0, kSkip),
    InternalCriticalFlag(g_itemVexaAsnBool, offsetof(VexaX509Extensions, unprocessedCritical)),
};

/* cA BOOLEAN DEFAULT FALSE, pathLenConstraint not kept here */
const VexaAsnMember kBasicConstraintsMembers[] = {
    InternalField(g_itemVexaAsnBool, 0, kDefault),
    InternalField(g_itemVexaAsnOcts, 0, kOptional | kSkip),
};

/* the same SEQUENCE read for its pathLenConstraint: the element (present
 * or not) and its value, an INTEGER of at most four octets */
constexpr size_t kPathLenValue =
    offsetof(VexaX509Extensions, pathLenValue) - offsetof(VexaX509Extensions, pathLenConstraint);
const VexaAsnMember kPathLenMembers[] = {
    InternalField(g_itemVexaAsnBool, 0, kDefault | kSkip),
    InternalField(g_itemVexaAsnBigInt, 0, kOptional | kPeek | kWhole),
    InternalField(g_itemVexaAsnInt, kPathLenValue, kOptional),
};

const VexaAsnMember kExtensionEntryMembers[] = {
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509ExtensionEntry, extnID)),
    InternalField(g_itemVexaAsnBool, offsetof(VexaX509ExtensionEntry, critical), kDefault),
    InternalField(g_itemVexaAsnOcts, offsetof(VexaX509ExtensionEntry, extnValue)),
};

} // namespace

const VexaAsnItem g_itemVexaX509Cert = InternalSeqItem(kCertMembers, sizeof(VexaX509Cert));
const VexaAsnItem g_itemVexaX509TbsCert = InternalSeqItem(kTbsCertMembers, sizeof(VexaX509TbsCert));
const VexaAsnItem g_itemVexaX509AlgId = InternalSeqItem(kAlgIdMembers, sizeof(VexaX509AlgId));
const VexaAsnItem g_itemVexaX509Name = InternalListItem(kNameSlots, sizeof(VexaX509Name), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaX509Rdn = InternalListItem(kRdnSlots, sizeof(VexaX509Rdn), VEXA_ASN_TAG_SET);
const VexaAsnItem g_itemVexaX509AttrTypeAndValue =
    InternalSeqItem(kAttrTypeAndValueMembers, sizeof(VexaX509AttrTypeAndValue));
const VexaAsnItem g_itemVexaX509Validity = InternalSeqItem(kValidityMembers, sizeof(VexaX509Validity));
const VexaAsnItem g_itemVexaX509PubKeyInfo = InternalSeqItem(kPubKeyInfoMembers, sizeof(VexaX509PubKeyInfo));
const VexaAsnItem g_itemVexaRsaPubKeyBits =
    InternalSeqItem(kRsaPubKeyBitsMembers, sizeof(VexaRsaPubKey), VEXA_ASN_TAG_BIT_STRING);
const VexaAsnItem g_itemVexaRsaPubKey = InternalSeqItem(kRsaPubKeyMembers, sizeof(VexaRsaPubKey));
const VexaAsnItem g_itemVexaX509Extensions =
    InternalAttrsItem(kExtensionsMembers, sizeof(VexaX509Extensions), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnItem g_itemVexaX509BasicConstraints = InternalSeqItem(kBasicConstraintsMembers, sizeof(uint32_t));
const VexaAsnItem g_itemVexaX509PathLen = InternalSeqItem(kPathLenMembers, kPathLenValue + sizeof(uint32_t));
const VexaAsnItem g_itemVexaX509CrlDps = {nullptr, InternalDecodeDistributionPoints, kUniversal, kConstructed,
                                          VEXA_ASN_TAG_SEQUENCE, 0, sizeof(VexaAsnOcts)};
const VexaAsnItem g_itemVexaX509ExtensionEntry =
    InternalSeqItem(kExtensionEntryMembers, sizeof(VexaX509ExtensionEntry));
