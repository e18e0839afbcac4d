/* SPDX-License-Identifier: Apache-2.0 */
/* RSA public keys of certificates, signature checks over byte ranges, and
 * names as text. */
#ifndef ASN1_X509_SIGNATURE_H
#define ASN1_X509_SIGNATURE_H

#include <stdint.h>

#include "vexa/vexa_asn1.h"
#include "vexa/vexa_crypto.h"

uint32_t InternalGetBigIntFromOcts(VexaBigInt *out, const VexaAsnOcts *view);
/* Exponent first, as the RSA service takes them. */
uint32_t VexaX509ExtractPublicKey(const VexaX509Cert *cert, VexaBigInt *exponent, VexaBigInt *modulus);
/* Verdict in *result (1 valid); the code says whether the check could run. */
uint32_t VexaX509PubKeyVerify(const uint8_t *data, uint32_t dataLen, const uint8_t *signature, uint32_t signatureLen,
                              const VexaRsaPubKey *key, const VexaX509AlgId *alg, uint32_t *result);
uint32_t InternalGetMaxAttrLen(uint32_t bufSize, uint32_t used, uint32_t wanted);
uint32_t VexaX509FormatAttr(const VexaX509AttrTypeAndValue *attr, char *buf, uint32_t bufSize, const void *reserved);
/* "C=XX,O=Org,CN=Name" in encoding order; release *out with VexaFree. */
uint32_t VexaX509NameToString(const VexaX509Name *name, char **out, uint32_t *outLen);

#endif
