/* SPDX-License-Identifier: Apache-2.0 */
/* Helpers of detached-signature verification shared with the time-stamp
 * token check. */
#ifndef VERIFY_DETACHED_VERIFY_H
#define VERIFY_DETACHED_VERIFY_H

#include <stdint.h>

#include "verify/verify_handle.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_verify.h"

constexpr uint32_t VEXA_USAGE_CODE_SIGNING = 0x08;
constexpr uint32_t VEXA_USAGE_TIME_STAMPING = 0x40;

uint32_t InternalAddCmsCertsToStore(VexaVerifyCtx *ctx, VexaPkcs7Content *content);
uint32_t InternalVerifyIssuerCert(VexaVerifyCtx *ctx, VexaX509Cert *cert, uint32_t usage);
uint32_t VexaPkcs7DetachedSignatureVerify(const VexaPkcs7SignerInfo *signer, const VexaX509Cert *cert,
                                          uint32_t *verdict);
uint32_t InternalGetDigestFromSignerInfo(const VexaPkcs7SignerInfo *signer, VexaVerifyHandle **out);
uint32_t InternalHashContent(const uint8_t *data, uint32_t length, uint32_t hashAlg, uint8_t *out, uint32_t *outLen);

/* Time-stamp token of one signer: sets the context's verification time. */
uint32_t InternalVerifyTimeStamp(VexaVerifyCtx *ctx, const VexaPkcs7SignerInfo *signer);

#endif
