/* SPDX-License-Identifier: Apache-2.0 */
/* libcrypto objects and answers kept for the rest of the process: the
 * digests fetched once, the RSA keys imported once, and the verdicts of
 * signature checks already made. A run checks the same few keys again and
 * again (the root signs itself, the CA and a CRL; operations 1 and 2 judge
 * the same CRLs in two contexts), and each import, fetch and modular
 * exponentiation costs more than the rest of the check.
 *
 * Single-threaded, like the rest of the library. */
#ifndef SERVICES_CRYPTO_REUSE_H
#define SERVICES_CRYPTO_REUSE_H

#include <stdint.h>

#include <openssl/evp.h>

#include "vexa/vexa_crypto.h"

/* The digest libcrypto offers under `name`, fetched on first use; the
 * implicitly fetched `legacy` one when the fetch fails, so a failure shows
 * where it always did, at digest init. */
const EVP_MD *InternalReusedDigest(uint32_t row, const char *name, const EVP_MD *(*legacy)(void));

/* The RSA public key (n, e): a new reference to the imported key, which the
 * caller frees with EVP_PKEY_free. Logs and returns 0x88000001 when it
 * cannot be made. */
uint32_t InternalReusedRsaKey(const VexaBigInt *exponent, const VexaBigInt *modulus, EVP_PKEY **out);

/* The PKCS #1 v1.5 check of `signature` over a finished digest made with
 * `md`: true when it verifies. A key that proves nothing (modulus under
 * 1024 bits, exponent even or 1) verifies nothing. With a kept key a check
 * is made once; asked again, its verdict is recalled. */
bool InternalCheckRsaDigest(EVP_PKEY *pkey, const EVP_MD *md, const uint8_t *digest, uint32_t digestLen,
                            const uint8_t *signature, uint32_t length);

/* Drops the kept keys and verdicts, so that a benchmark or a test can count
 * the work of a cold run again. */
void VexaCryptoReuseClear(void);

#endif
