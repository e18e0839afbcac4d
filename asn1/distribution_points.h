/* SPDX-License-Identifier: Apache-2.0 */
/* Distribution points of certificates and CRLs, and the identifiers of the
 * extensions the library processes without storing them. */
#ifndef ASN1_DISTRIBUTION_POINTS_H
#define ASN1_DISTRIBUTION_POINTS_H

#include <stdint.h>

#include "vexa/vexa_asn1.h"

constexpr uint32_t kAsnClassUniversal = 0;
constexpr uint32_t kAsnClassContext = 2;

/* One DistributionPoint of a cRLDistributionPoints extension. */
struct VexaX509DistributionPoint {
    VexaAsnOcts distributionPoint; /* the DistributionPointName: [0] fullName or [1] nameRelativeToCRLIssuer */
    VexaAsnOcts reasons;
    VexaAsnOcts cRLIssuer; /* GeneralNames content; tagNumber 2 when present */
};

/* Reads the next DistributionPoint from the content of a
 * cRLDistributionPoints SEQUENCE; a malformed one is a decode error. */
uint32_t VexaX509NextDistributionPoint(VexaAsnStream *content, VexaX509DistributionPoint *out);

/* Ids of extensions that only the checks of critical entries need to know,
 * beyond the object identifier table's. */
constexpr int32_t AOID_CE_SUBJECTKEYIDENTIFIER = 1000;
constexpr int32_t AOID_CE_AUTHORITYKEYIDENTIFIER = 1001;
constexpr int32_t AOID_CE_SUBJECTALTNAME = 1002;
constexpr int32_t AOID_CE_ISSUERALTNAME = 1003;
constexpr int32_t AOID_CE_CRLDISTRIBUTIONPOINTS = 1004;
constexpr int32_t AOID_CE_CRLNUMBER = 1005;
constexpr int32_t AOID_CE_DELTACRLINDICATOR = 1006;
constexpr int32_t AOID_CE_INVALIDITYDATE = 1007;
constexpr int32_t AOID_CE_CERTIFICATEISSUER = 1008;

/* The table's id, else one of the ids above, else AOID_UNKNOWN. */
int32_t InternalExtensionId(const VexaAsnOcts *oid);

#endif
