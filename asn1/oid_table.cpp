// SPDX-License-Identifier: Apache-2.0
/* The 24 object identifiers the library knows, as small integer ids. */
#include "base/diagnostics.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint8_t kUnknown[] = {0xFF};
constexpr uint8_t kSha256[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
constexpr uint8_t kSha384[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02};
constexpr uint8_t kSha512[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03};
constexpr uint8_t kSha256Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};
constexpr uint8_t kSha384Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0C};
constexpr uint8_t kSha512Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0D};
constexpr uint8_t kCommonName[] = {0x55, 0x04, 0x03};
constexpr uint8_t kLocality[] = {0x55, 0x04, 0x07};
constexpr uint8_t kState[] = {0x55, 0x04, 0x08};
constexpr uint8_t kOrganization[] = {0x55, 0x04, 0x0A};
constexpr uint8_t kOrgUnit[] = {0x55, 0x04, 0x0B};
constexpr uint8_t kCountry[] = {0x55, 0x04, 0x06};
constexpr uint8_t kEmail[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x01};
constexpr uint8_t kKeyUsage[] = {0x55, 0x1D, 0x0F};
constexpr uint8_t kBasicConstraints[] = {0x55, 0x1D, 0x13};
constexpr uint8_t kExtKeyUsage[] = {0x55, 0x1D, 0x25};
constexpr uint8_t kCodeSigning[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03};
constexpr uint8_t kTimeStamping[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08};
constexpr uint8_t kIssuingDp[] = {0x55, 0x1D, 0x1C};
constexpr uint8_t kCrlReasons[] = {0x55, 0x1D, 0x15};
constexpr uint8_t kSignedData[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
constexpr uint8_t kMessageDigest[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
constexpr uint8_t kTimestampToken[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x02, 0x0E};

#define VEXA_OID_ROW(id, octets) \
    {(id), {static_cast<uint32_t>(sizeof(octets)), 0, 0, VEXA_ASN_TAG_OID, (octets)}, #id}

constexpr int32_t kOidRows = 24;

} // namespace

extern "C" {

const VexaOidEntry g_krtOIDTable[kOidRows] = {
    VEXA_OID_ROW(AOID_UNKNOWN, kUnknown),
    VEXA_OID_ROW(AOID_SHA256, kSha256),
    VEXA_OID_ROW(AOID_SHA384, kSha384),
    VEXA_OID_ROW(AOID_SHA512, kSha512),
    VEXA_OID_ROW(AOID_SHA256WITHRSAENCRYPTION, kSha256Rsa),
    VEXA_OID_ROW(AOID_SHA384WITHRSAENCRYPTION, kSha384Rsa),
    VEXA_OID_ROW(AOID_SHA512WITHRSAENCRYPTION, kSha512Rsa),
    VEXA_OID_ROW(AOID_AT_COMMONNAME, kCommonName),
    VEXA_OID_ROW(AOID_AT_LOCALITYNAME, kLocality),
    VEXA_OID_ROW(AOID_AT_STATEORPROVINCENAME, kState),
    VEXA_OID_ROW(AOID_AT_ORGANIZATIONNAME, kOrganization),
    VEXA_OID_ROW(AOID_AT_ORGANIZATIONALUNITNAME, kOrgUnit),
    VEXA_OID_ROW(AOID_AT_COUNTRYNAME, kCountry),
    VEXA_OID_ROW(AOID_PKCS9_AT_EMAILADDRESS, kEmail),
    VEXA_OID_ROW(AOID_CE_KEYUSAGE, kKeyUsage),
    VEXA_OID_ROW(AOID_CE_BASICCONSTRAINTS, kBasicConstraints),
    VEXA_OID_ROW(AOID_CE_EXTKEYUSAGE, kExtKeyUsage),
    VEXA_OID_ROW(AOID_KP_CODESIGNING, kCodeSigning),
    VEXA_OID_ROW(AOID_KP_TIMESTAMPING, kTimeStamping),
    VEXA_OID_ROW(AOID_CE_ISSUINGDISTRIBUTIONPOINT, kIssuingDp),
    VEXA_OID_ROW(AOID_CE_CRLREASONS, kCrlReasons),
    VEXA_OID_ROW(AOID_PKCS7_SIGNEDDATA, kSignedData),
    VEXA_OID_ROW(AOID_PKCS9_AT_MESSAGEDIGEST, kMessageDigest),
    VEXA_OID_ROW(AOID_PKCS9_AT_TIMESTAMP_TOKEN, kTimestampToken),
};

const int32_t g_krtOidCount = kOidRows;

} // extern "C"

#undef VEXA_OID_ROW

static_assert(sizeof(g_krtOIDTable) / sizeof(g_krtOIDTable[0]) == static_cast<size_t>(kOidRows),
              "the table holds every known identifier");

extern "C" int32_t VexaAsnOctsCompare(const VexaAsnOcts *a, const VexaAsnOcts *b)
{
    if (a == nullptr || b == nullptr || a->len != b->len) {
        return -1;
    }
    if (a == b || a->data == b->data) {
        return 0;
    }
    return VexaMemCmp(a->data, b->data, a->len);
}

extern "C" int32_t VexaOidGetId(const VexaAsnOcts *oid)
{
    if (oid == nullptr) {
        return AOID_UNKNOWN;
    }
    for (int32_t i = 0; i < g_krtOidCount; i++) {
        if (VexaAsnOctsCompare(&g_krtOIDTable[i].oid, oid) == 0) {
            return g_krtOIDTable[i].id;
        }
    }
    return AOID_UNKNOWN;
}

extern "C" const VexaAsnOcts *VexaOidFindById(int32_t id)
{
    for (int32_t i = 0; i < g_krtOidCount; i++) {
        if (g_krtOIDTable[i].id == id) {
            return &g_krtOIDTable[i].oid;
        }
    }
    return nullptr;
}

extern "C" uint32_t VexaGetHashAlgFromOid(const VexaAsnOcts *oid)
{
    switch (VexaOidGetId(oid)) {
        case AOID_SHA256:
        case AOID_SHA256WITHRSAENCRYPTION:
            return AOID_SHA256;
        case AOID_SHA384:
        case AOID_SHA384WITHRSAENCRYPTION:
            return AOID_SHA384;
        case AOID_SHA512:
        case AOID_SHA512WITHRSAENCRYPTION:
            return AOID_SHA512;
        default:
            return 0;
    }
}
