/* SPDX-License-Identifier: Apache-2.0 */
/* ASN.1 DER decoding: the read cursor, element views, time conversion, the
 * object identifier table, the template engine and the decoded records of
 * certificates, CRLs, CMS SignedData and RFC 3161 TSTInfo.
 *
 * Decoded records are flat fixed-size blocks. Every VexaAsnOcts in them is a
 * view into the buffer that was decoded: the buffer must outlive the record,
 * and releasing a record never releases the bytes its views point to.
 */
#ifndef VEXA_ASN1_H
#define VEXA_ASN1_H

#include <stdint.h>

#include "vexa/vexa_list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Read cursor and element views
 * ------------------------------------------------------------------------ */

typedef struct VexaAsnStream {
    const uint8_t *data; /* first byte of the buffer; never owned */
    uint32_t length;     /* bytes in the buffer */
    uint32_t pos;        /* next byte to read, 0..length */
} VexaAsnStream;

/* One identifier octet. tagClass: 0 universal, 1 application, 2 context,
 * 3 private. Tag numbers 0-30 only (no high-tag-number form). */
typedef struct VexaAsnTag {
    uint32_t tagClass;
    uint32_t constructed;
    uint32_t tagNumber;
} VexaAsnTag;

/* The view of one decoded element. A view of all zeros is an absent element. */
typedef struct VexaAsnOcts {
    uint32_t len;
    uint32_t tagClass;
    uint32_t constructed;
    uint32_t tagNumber;
    const uint8_t *data; /* into the decoded buffer; null for empty content */
} VexaAsnOcts;

/* A broken-down UTC time. */
typedef struct VexaDateTime {
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
} VexaDateTime;

#define VEXA_ASN_SEEK_CUR 1

#define VEXA_ASN_TAG_INTEGER 2u
#define VEXA_ASN_TAG_BIT_STRING 3u
#define VEXA_ASN_TAG_OID 6u
#define VEXA_ASN_TAG_SEQUENCE 16u
#define VEXA_ASN_TAG_SET 17u
#define VEXA_ASN_TAG_UTCTIME 23u
#define VEXA_ASN_TAG_GENERALIZEDTIME 24u

uint32_t VexaAsnStreamInit(VexaAsnStream *stream, const uint8_t *data, uint32_t length);
/* Fails with 0x88000201 at the end of the buffer, moving nothing. */
uint32_t VexaAsnReadByte(VexaAsnStream *stream, uint8_t *out);
/* Moves pos by `count` relative to it (mode VEXA_ASN_SEEK_CUR only); a
 * target outside 0..length gives 0xFFFFFFFF and moves nothing. */
uint32_t VexaAsnSkip(VexaAsnStream *stream, int32_t count, uint32_t mode);
uint32_t VexaAsnReadTag(VexaAsnStream *stream, VexaAsnTag *tag);
/* Reads an identifier that must equal `expected` exactly, then its length.
 * On success the element's content lies wholly inside the buffer. */
uint32_t VexaAsnReadHeader(VexaAsnStream *stream, const VexaAsnTag *expected, uint32_t *len, VexaAsnTag *tag);

/* UTCTime YYMMDDHHMMSSZ (years 50-99 are 19xx) or GeneralizedTime
 * YYYYMMDDHHMMSSZ; nothing else. */
uint32_t VexaAsnTimeToDateTime(const VexaAsnOcts *time, VexaDateTime *out);
/* Seconds since 1970-01-01 00:00:00 UTC, modulo 2^64 (earlier dates come out
 * as the two's complement of a negative count); 0 for null. */
uint64_t VexaDateTimeToEpoch(const VexaDateTime *dateTime);
uint32_t VexaAsnTimeToEpoch(const VexaAsnOcts *time, int64_t *out);

/* ------------------------------------------------------------------------
 * Object identifier table
 * ------------------------------------------------------------------------ */

typedef enum VexaOidId {
    AOID_UNKNOWN = 0,
    AOID_SHA256 = 43,
    AOID_SHA384 = 44,
    AOID_SHA512 = 45,
    AOID_SHA256WITHRSAENCRYPTION = 63,
    AOID_SHA384WITHRSAENCRYPTION = 64,
    AOID_SHA512WITHRSAENCRYPTION = 65,
    AOID_AT_COMMONNAME = 161,
    AOID_AT_LOCALITYNAME = 162,
    AOID_AT_STATEORPROVINCENAME = 163,
    AOID_AT_ORGANIZATIONNAME = 164,
    AOID_AT_ORGANIZATIONALUNITNAME = 165,
    AOID_AT_COUNTRYNAME = 168,
    AOID_PKCS9_AT_EMAILADDRESS = 172,
    AOID_CE_KEYUSAGE = 176,
    AOID_CE_BASICCONSTRAINTS = 184,
    AOID_CE_EXTKEYUSAGE = 188,
    AOID_KP_CODESIGNING = 192,
    AOID_KP_TIMESTAMPING = 193,
    AOID_CE_ISSUINGDISTRIBUTIONPOINT = 202,
    AOID_CE_CRLREASONS = 204,
    AOID_PKCS7_SIGNEDDATA = 264,
    AOID_PKCS9_AT_MESSAGEDIGEST = 271,
    AOID_PKCS9_AT_TIMESTAMP_TOKEN = 307
} VexaOidId;

typedef struct VexaOidEntry {
    int32_t id;
    VexaAsnOcts oid; /* content octets only, tag 6 */
    const char *name;
} VexaOidEntry;

extern const VexaOidEntry g_krtOIDTable[];
extern const int32_t g_krtOidCount;

/* By length and content only; 0 when equal, non-zero otherwise (-1 for a
 * null argument or different lengths). */
int32_t VexaAsnOctsCompare(const VexaAsnOcts *a, const VexaAsnOcts *b);
/* Id of the first matching row; 0 for null or an unknown identifier. */
int32_t VexaOidGetId(const VexaAsnOcts *oid);
/* The table's view of `id`, or null. Never freed. */
const VexaAsnOcts *VexaOidFindById(int32_t id);
/* Digest id 43/44/45 for SHA-256/384/512 with or without RSA; 0 otherwise. */
uint32_t VexaGetHashAlgFromOid(const VexaAsnOcts *oid);

/* ------------------------------------------------------------------------
 * Template engine
 * ------------------------------------------------------------------------ */

struct VexaAsnMember;

/* Every decoder: fills `dest` (or nothing when it is null and the member
 * skips), stores the bytes the element took in *consumed, and on failure
 * leaves the cursor where the element began. */
typedef uint32_t (*VexaAsnDecodeFn)(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                    const struct VexaAsnMember *member);

#define VEXA_ASN_ANY_CLASS (-2)
#define VEXA_ASN_ANY_CONSTRUCTED (-2)
#define VEXA_ASN_ANY_TAG 100u

typedef struct VexaAsnItem {
    const struct VexaAsnMember *members; /* null for primitive kinds */
    VexaAsnDecodeFn decoder;             /* null: the item cannot be decoded */
    int32_t tagClass;                    /* or VEXA_ASN_ANY_CLASS */
    int32_t constructed;                 /* or VEXA_ASN_ANY_CONSTRUCTED */
    uint32_t tagNumber;                  /* universal number, or VEXA_ASN_ANY_TAG */
    uint32_t memberCount;
    uint32_t size; /* bytes of the record one element fills */
} VexaAsnItem;

#define VEXA_ASN_TAG_NONE 0u
#define VEXA_ASN_TAG_EXPLICIT 1u
#define VEXA_ASN_TAG_IMPLICIT 2u

#define VEXA_ASN_OPTIONAL 0x01u /* may be absent */
#define VEXA_ASN_PEEK 0x02u     /* view the element, leave the cursor before it */
#define VEXA_ASN_WHOLE 0x04u    /* the view includes identifier and length */
#define VEXA_ASN_DEFAULT 0x10u  /* has a DEFAULT; absent leaves the field zero */
#define VEXA_ASN_SKIP 0x20u     /* check and step over, store nothing */

/* A field of a constructed item.
 * tagNumber: the context number of an EXPLICIT/IMPLICIT member; in an
 *   attribute-set item, the OID id of the attribute the member takes.
 * offset: where the field lies in the enclosing record. In the single
 *   member of a list item it is where the slot array begins inside the list
 *   record, whose `count` (u32) comes first.
 * maxCount: in the single member of a list item, how many slots may fill. */
typedef struct VexaAsnMember {
    const VexaAsnItem *item;
    uint32_t tagNumber;
    uint16_t tagMode;
    uint16_t flags;
    uint32_t offset;
    uint32_t maxCount;
} VexaAsnMember;

/* Decodes one element at the start of `buffer` into a new zero-filled record
 * of item->size bytes (released with VexaFree, or with the record's own free
 * for certificates, CRLs and ContentInfo). Bytes after the element are not
 * examined; *consumed says where it ended. */
uint32_t VexaAsnDecodeItem(const uint8_t *buffer, uint32_t length, const VexaAsnItem *item, uint32_t flags,
                           void **record, uint32_t *consumed);
/* One member of a SEQUENCE into `record` (null for a SKIP member). */
uint32_t VexaAsnDecodeMember(VexaAsnStream *stream, void *record, const VexaAsnMember *member);

/* The eight decoder kinds, in the order of the decoder table. */
uint32_t VexaAsnDecodeOcts(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaAsnDecodeBits(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaAsnDecodeSeq(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaDecodeInt(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaAsnDecodeList(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaAsnDecodeAttrs(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaBitsToInt(VexaAsnStream *stream, void *dest, uint32_t *consumed, const VexaAsnMember *member);
uint32_t VexaAsnDecodeExtKeyUsage(VexaAsnStream *stream, void *dest, uint32_t *consumed,
                                  const VexaAsnMember *member);

#define VEXA_ASN_DECODER_KINDS 8
extern const VexaAsnDecodeFn g_vexaAsnDecoderTable[VEXA_ASN_DECODER_KINDS];

/* ------------------------------------------------------------------------
 * Decoded records
 * ------------------------------------------------------------------------ */

/* Capacities of the bounded lists. */
#define VEXA_X509_NAME_MAX_RDNS 10
#define VEXA_X509_RDN_MAX_ATTRS 10
#define VEXA_ASN_OID_BUNDLE_MAX 10
#define VEXA_PKCS7_CERT_SLOTS 10
#define VEXA_PKCS7_MAX_CERTS 2 /* of the slots, how many a SignedData may fill */
#define VEXA_PKCS7_MAX_SIGNERS 1
#define VEXA_X509_MAX_REVOKED 20

/* extKeyUsage bits: the first listed purpose only. */
#define VEXA_EKU_CODE_SIGNING 0x08u
#define VEXA_EKU_TIME_STAMPING 0x40u

typedef struct VexaX509AlgId {
    VexaAsnOcts algorithm;
    VexaAsnOcts parameters; /* a NULL parameter is a view with null data */
} VexaX509AlgId;

typedef struct VexaX509AttrTypeAndValue {
    VexaAsnOcts type;
    VexaAsnOcts value; /* any string type, with its tag */
} VexaX509AttrTypeAndValue;

typedef struct VexaX509Rdn {
    uint32_t count;
    VexaX509AttrTypeAndValue attrs[VEXA_X509_RDN_MAX_ATTRS];
} VexaX509Rdn;

typedef struct VexaX509Name {
    uint32_t count;
    VexaX509Rdn rdns[VEXA_X509_NAME_MAX_RDNS];
} VexaX509Name;

typedef struct VexaX509Validity {
    VexaAsnOcts notBefore;
    VexaAsnOcts notAfter;
} VexaX509Validity;

typedef struct VexaRsaPubKey {
    VexaAsnOcts modulus; /* one leading zero octet dropped */
    VexaAsnOcts publicExponent;
} VexaRsaPubKey;

typedef struct VexaX509PubKeyInfo {
    VexaX509AlgId algorithm; /* not examined: every key is read as RSA */
    VexaRsaPubKey subjectPublicKey;
} VexaX509PubKeyInfo;

typedef struct VexaX509Extensions {
    uint32_t basicConstraintsCa; /* 1 when cA is TRUE */
    uint32_t keyUsage;           /* first value octet, or first*256+second */
    uint32_t extKeyUsage;        /* VEXA_EKU_* of the first listed purpose */
    VexaAsnOcts keyUsageBits;    /* the keyUsage value octets, so a bit is tested at its position */
    VexaAsnOcts pathLenConstraint;     /* the INTEGER element, whole; null data when absent */
    uint32_t pathLenValue;             /* its value, sign-extended from at most four octets */
    VexaAsnOcts cRLDistributionPoints; /* the SEQUENCE OF DistributionPoint, whole; null data when absent */
    uint32_t unprocessedCritical;      /* 1: an entry marked critical that nothing here processes */
} VexaX509Extensions;

typedef struct VexaX509TbsCert {
    VexaAsnOcts serialNumber;
    VexaAsnOcts issuerRaw; /* the issuer Name element, whole */
    VexaX509Name issuer;
    VexaX509Validity validity;
    VexaX509Name subject;
    VexaX509PubKeyInfo subjectPublicKeyInfo;
    VexaX509Extensions extensions;
} VexaX509TbsCert;

typedef struct VexaX509Cert {
    VexaAsnOcts tbsCertificateRaw; /* the whole TBSCertificate, header included */
    VexaX509TbsCert tbsCertificate;
    VexaX509AlgId signatureAlgorithm;
    VexaAsnOcts signatureValue;
    struct VexaX509Cert *verifiedIssuer; /* set by path building */
    uint32_t refCount;
} VexaX509Cert;

typedef struct VexaX509RevokedEntry {
    VexaAsnOcts userCertificate;
    VexaAsnOcts revocationDate;
    uint32_t reasonCode;          /* 0 when absent */
    uint32_t unprocessedCritical; /* 1: a critical entry extension nothing here processes */
} VexaX509RevokedEntry;

typedef struct VexaX509RevokedList {
    uint32_t count;
    VexaX509RevokedEntry entries[VEXA_X509_MAX_REVOKED];
} VexaX509RevokedList;

typedef struct VexaX509Idp {
    VexaAsnOcts distributionPoint;
    uint32_t onlyContainsUserCerts;
    uint32_t onlyContainsCACerts;
    VexaAsnOcts onlySomeReasons;
    uint32_t indirectCRL;
    uint32_t onlyContainsAttributeCerts;
} VexaX509Idp;

typedef struct VexaX509CrlExtensions {
    VexaX509Idp issuingDistributionPoint;
    VexaAsnOcts deltaCrlIndicator; /* the base CRL number; tagNumber 2 when present */
    uint32_t unprocessedCritical;  /* 1: a critical CRL extension nothing here processes */
} VexaX509CrlExtensions;

typedef struct VexaX509TbsCrl {
    uint32_t version;
    VexaX509AlgId signature;
    VexaAsnOcts issuerRaw; /* the issuer Name element, whole */
    VexaX509Name issuer;
    VexaAsnOcts thisUpdate;
    VexaAsnOcts nextUpdate;
    VexaX509RevokedList revokedCertificates;
    VexaX509CrlExtensions crlExtensions;
} VexaX509TbsCrl;

typedef struct VexaX509Crl {
    VexaAsnOcts tbsCertListRaw;
    VexaX509TbsCrl tbsCertList;
    VexaX509AlgId signatureAlgorithm;
    VexaAsnOcts signatureValue;
    uint32_t refCount;
} VexaX509Crl;

typedef struct VexaAsnOidBundle {
    uint32_t count;
    VexaAsnOcts oids[VEXA_ASN_OID_BUNDLE_MAX];
} VexaAsnOidBundle;

typedef struct VexaX509ExtensionEntry {
    VexaAsnOcts extnID;
    uint32_t critical;
    VexaAsnOcts extnValue; /* OCTET STRING content; for an Attribute, its SET's content */
} VexaX509ExtensionEntry;

typedef struct VexaPkcs7CertList {
    uint32_t count;
    VexaAsnOcts certs[VEXA_PKCS7_CERT_SLOTS]; /* whole certificate elements */
} VexaPkcs7CertList;

typedef struct VexaPkcs7EncapContent {
    VexaAsnOcts eContentType;
    VexaAsnOcts eContent; /* the [0] element; its content is the OCTET STRING element */
} VexaPkcs7EncapContent;

typedef struct VexaPkcs7IssuerAndSerial {
    VexaX509Name issuer;
    VexaAsnOcts serialNumber;
} VexaPkcs7IssuerAndSerial;

typedef struct VexaPkcs7SignedAttrs {
    VexaAsnOcts messageDigest;
} VexaPkcs7SignedAttrs;

typedef struct VexaPkcs7UnsignedAttrs {
    VexaAsnOcts timeStampToken; /* the whole token ContentInfo */
} VexaPkcs7UnsignedAttrs;

typedef struct VexaPkcs7SignerInfo {
    uint32_t version;
    VexaPkcs7IssuerAndSerial sid;
    VexaX509AlgId digestAlgorithm;
    VexaAsnOcts signedAttrsRaw; /* whole [0] element, tag fields set to SET */
    VexaPkcs7SignedAttrs signedAttrs;
    VexaAsnOcts signature;
    VexaPkcs7UnsignedAttrs unsignedAttrs;
} VexaPkcs7SignerInfo;

typedef struct VexaPkcs7SignerInfoList {
    uint32_t count;
    VexaPkcs7SignerInfo signers[VEXA_PKCS7_MAX_SIGNERS];
} VexaPkcs7SignerInfoList;

typedef struct VexaPkcs7SignedData {
    uint32_t version;
    VexaPkcs7EncapContent encapContentInfo;
    VexaPkcs7CertList certificates;
    VexaList decodedCerts; /* VexaX509Cert, owned by the record */
    VexaPkcs7SignerInfoList signerInfos;
} VexaPkcs7SignedData;

typedef struct VexaPkcs7Content {
    VexaAsnOcts contentType;
    VexaPkcs7SignedData content;
} VexaPkcs7Content;

typedef struct VexaTimestampImprint {
    VexaX509AlgId hashAlgorithm;
    VexaAsnOcts hashedMessage;
} VexaTimestampImprint;

typedef struct VexaTimestampInfo {
    VexaTimestampImprint messageImprint;
    VexaAsnOcts genTime;
} VexaTimestampInfo;

extern const VexaAsnItem g_itemVexaAsnOcts;
extern const VexaAsnItem g_itemVexaAsnOidBundle;
extern const VexaAsnItem g_itemVexaX509ExtensionEntry;
extern const VexaAsnItem g_itemVexaX509Cert;
extern const VexaAsnItem g_itemVexaX509Crl;
extern const VexaAsnItem g_itemVexaPkcs7Content;
extern const VexaAsnItem g_itemVexaTimestampInfo;

/* `consumed` receives the size of the element, so concatenated DER can be
 * walked. The record starts with refCount 1. */
uint32_t VexaX509DecodeCert(const uint8_t *buffer, uint32_t length, VexaX509Cert **cert, uint32_t *consumed);
uint32_t VexaX509DecodeCrl(const uint8_t *buffer, uint32_t length, VexaX509Crl **crl, uint32_t *consumed);
/* Drops one reference; the record goes when none is left. Null is ignored. */
void VexaX509FreeCert(VexaX509Cert *cert);
void VexaX509FreeCrl(VexaX509Crl *crl);
/* A certificate from a whole-element view; the view must be tagged as a
 * universal constructed SEQUENCE (0x88200008 otherwise). */
uint32_t VexaX509DecodeCertFromOcts(const VexaAsnOcts *view, VexaX509Cert **cert, uint32_t *consumed);
/* A ContentInfo with SignedData and its certificates decoded into
 * decodedCerts. Any failure is 0x88200312. */
uint32_t VexaPkcs7DecodeContent(const uint8_t *buffer, uint32_t length, VexaPkcs7Content **content,
                                uint32_t *consumed);
void VexaPkcs7FreeContent(VexaPkcs7Content *content);

#ifdef __cplusplus
}
#endif

#endif
