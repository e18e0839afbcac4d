/* SPDX-License-Identifier: Apache-2.0 */
/* The PKI of one verification context: store, path building, CRL selection
 * and certificate verification. */
#ifndef PKI_PKI_H
#define PKI_PKI_H

#include <stdint.h>

#include "asn1/x509_signature.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_verify.h"

/* Verifications nest at most this deep (pathDepth 0 .. 10 on entry). */
constexpr int32_t VEXA_PKI_MAX_NESTING = 10;

/* One remembered certificate verification: its code and verdict. */
struct VexaPkiVerifyOutcome {
    uint32_t code;
    uint8_t known;
    uint8_t verdict;
};

/* Outcomes remembered so that hostile input cannot make the same work run
 * again and again. Checks between two stored records never change (records
 * are immutable and never leave the store); a whole certificate verification
 * is remembered only within one top-level verification, keyed by the nesting
 * depth it started at, so the depth limit gives the same codes as before.
 * Indexes are store positions. */
struct VexaPkiMemo {
    int32_t crlSigner[VEXA_LIST_CAPACITY][VEXA_LIST_CAPACITY]; /* [crl][cert], valid when known */
    uint8_t crlSignerKnown[VEXA_LIST_CAPACITY][VEXA_LIST_CAPACITY];
    uint8_t issuerRefused[VEXA_LIST_CAPACITY][VEXA_LIST_CAPACITY]; /* [cert][candidate] */
    uint8_t notSelfSigned[VEXA_LIST_CAPACITY];
    VexaPkiVerifyOutcome verified[VEXA_LIST_CAPACITY][VEXA_PKI_MAX_NESTING + 1][2]; /* [cert][depth][crlMode] */
};

struct VexaPkiStore {
    VexaList certs;
    VexaList crls;
    VexaPkiMemo memo;
};

/* keyUsage bits by their position in the BIT STRING (bit 0 is the first
 * octet's most significant bit), whatever the string's length */
constexpr uint32_t VEXA_KU_BIT_DIGITAL_SIGNATURE = 0;
constexpr uint32_t VEXA_KU_BIT_KEY_CERT_SIGN = 5;
constexpr uint32_t VEXA_KU_BIT_CRL_SIGN = 6;

/* true when the certificate's keyUsage extension asserts the bit */
bool InternalHasKeyUsage(const VexaX509Cert *cert, uint32_t bit);

/* memo */
int32_t InternalStoreIndexOf(const VexaList *list, const void *record);
void InternalPkiMemoForget(VexaVerifyCtx *ctx);
const VexaPkiVerifyOutcome *InternalPkiMemoVerified(const VexaVerifyCtx *ctx, const VexaX509Cert *cert,
                                                    uint32_t crlMode);
void InternalPkiMemoSetVerified(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode, uint32_t code,
                                uint32_t verdict);

/* CRL candidate score bits */
constexpr uint32_t VEXA_CRL_SCORE_INDIRECT = 0x10;
constexpr uint32_t VEXA_CRL_SCORE_ISSUER = 0x20;
constexpr uint32_t VEXA_CRL_SCORE_CURRENT = 0x40;
constexpr uint32_t VEXA_CRL_SCORE_LISTED = 0x80;

/* store */
uint32_t VexaPkiCreateStore(VexaVerifyCtx *ctx);
void VexaPkiFreeStore(VexaVerifyCtx *ctx);
uint32_t VexaPkiAddCert(VexaVerifyCtx *ctx, VexaX509Cert *cert);
uint32_t VexaPkiAddCrl(VexaVerifyCtx *ctx, VexaX509Crl *crl);
int32_t VexaX509NameCompare(const VexaX509Name *a, const VexaX509Name *b);
VexaX509Cert *VexaPkiFindCertByIssuerSerial(const VexaVerifyCtx *ctx, const VexaX509Name *issuer,
                                            const VexaAsnOcts *serial);
int32_t InternalIsCrlSigner(const VexaX509Crl *crl, const VexaX509Cert *cert);
VexaX509Cert *VexaPkiFindCrlSigner(const VexaVerifyCtx *ctx, const VexaX509Crl *crl);

/* path building */
uint32_t InternalCheckSelfSigned(VexaX509Cert *cert, uint32_t *selfSigned);
/* the same, remembering a certificate of the store that is not self-signed */
uint32_t InternalCheckSelfSignedInStore(const VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t *selfSigned);
int32_t InternalCheckIssuer(VexaX509Cert *cert, VexaX509Cert *candidate);
VexaX509Cert *InternalFindIssuer(const VexaVerifyCtx *ctx, VexaX509Cert *cert);
VexaX509Cert *InternalFindCertRoot(const VexaVerifyCtx *ctx, VexaX509Cert *cert, int32_t depth);

/* CRL selection and revocation */
int32_t InternalCrlGetIssuerScore(const VexaVerifyCtx *ctx, const VexaX509Crl *crl, const VexaX509Cert *cert,
                                  const VexaX509Cert *root, uint32_t *score);
uint32_t InternalCrlGetScore(const VexaVerifyCtx *ctx, const VexaX509Crl *crl, const VexaX509Cert *cert,
                             const VexaX509Cert *root);
uint32_t InternalCollectCrls(const VexaVerifyCtx *ctx, const VexaX509Cert *cert, VexaList *candidates);
int32_t InternalCompareCrlScore(const void *a, const void *b);
VexaX509Crl *InternalFindBestCrlOfCert(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode);
uint32_t InternalCheckRevokedEntry(const VexaX509Cert *cert, int64_t time, uint32_t crlMode,
                                   const VexaX509RevokedEntry *entry);
uint32_t InternalCheckCrlOfCert(VexaVerifyCtx *ctx, const VexaX509Cert *cert, uint32_t crlMode, VexaX509Crl **used);

/* constraints of a verified path: 0, 0x88200019 or 0x8820001A */
uint32_t InternalCheckPathConstraints(const VexaX509Cert *first);

/* whether a CRL can prove that `cert` is not revoked: its critical
 * extensions are all processed, it is complete (no delta), and its scope
 * covers the certificate */
bool InternalCrlCovers(const VexaX509Crl *crl, const VexaX509Cert *cert);

/* certificate verification */
uint32_t InternalCheckCertDate(const VexaX509Cert *cert, int64_t time);
uint32_t InternalVerifyCertificate(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t crlMode, VexaX509Cert **next,
                                   uint32_t *done);
uint32_t VexaPkiVerifyCert(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t resetDepth, uint32_t crlMode,
                           uint32_t *verdict);

#endif
