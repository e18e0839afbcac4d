// SPDX-License-Identifier: Apache-2.0
/* The pieces of forge sign: DER assembly of CMS SignedData and SignerInfo,
 * and RFC 3161 tokens made offline. The structures are assembled as DER
 * rather than through the CMS and TS builders, because the fixtures need
 * shapes those builders refuse to make (two signers with separate tokens, a
 * token without signed attributes, an imprint over the wrong bytes, a
 * genTime altered after signing) and because the output must be the same
 * bytes on every run. */
#ifndef FORGE_CMS_H
#define FORGE_CMS_H

#include <string>
#include <vector>

#include "forge.h"

namespace forge {

inline constexpr const char *kOidData = "1.2.840.113549.1.7.1";
inline constexpr const char *kOidSignedData = "1.2.840.113549.1.7.2";
inline constexpr const char *kOidTstInfo = "1.2.840.113549.1.9.16.1.4";
inline constexpr const char *kOidContentType = "1.2.840.113549.1.9.3";
inline constexpr const char *kOidMessageDigest = "1.2.840.113549.1.9.4";
inline constexpr const char *kOidSigningTime = "1.2.840.113549.1.9.5";
inline constexpr const char *kOidSigningCertV2 = "1.2.840.113549.1.9.16.2.47";
inline constexpr const char *kOidTimeStampToken = "1.2.840.113549.1.9.16.2.14";
inline constexpr const char *kOidRsaEncryption = "1.2.840.113549.1.1.1";
inline constexpr const char *kDefaultPolicy = "2.999.5.1";


/* One signer of forge sign and its token, from the command line. */
struct SignerSpec {
    std::string certPath;
    std::string keyPath;
    std::string digest = "sha256";
    bool signedAttrs = true;
    std::string signingTime;
    bool token = true;
    TsaOptions tsa;
    std::string tsaCertPath;
    std::string tsaKeyPath;
    std::string genTime;
    std::string tsDigest = "sha256";
    std::string tsSignDigest = "sha256";
    std::string imprintOver = "signature";
    std::string imprintFile;
    bool tsSignedAttrs = true;
    std::vector<std::string> tsCerts;
    bool tsNoCerts = false;
    std::string tsSerial = "1";
    std::string tsPolicy = kDefaultPolicy;
    std::string tamperGenTime;
    std::string tsaTimeout;
};

Bytes Attribute(const char *oid, const Bytes &value);
/* IssuerAndSerialNumber of a certificate, byte for byte from it. */
uint32_t IssuerAndSerial(X509 *cert, Bytes *out);
/* [0] IMPLICIT SET OF Certificate, in the order given. */
uint32_t CertsField(const std::vector<std::string> &paths, Bytes *out);

/* A SignerInfo over `data` (the content, or the TSTInfo of a token).
 * extraAttrs are added to the signed attributes; the signature value is
 * returned for the time-stamp imprint. */
struct SignerInfoParts {
    X509 *cert;
    EVP_PKEY *key;
    const EVP_MD *md;
    bool signedAttrs;
    const char *contentTypeOid;
    std::vector<Bytes> extraAttrs;
};
uint32_t BuildSignerInfo(const SignerInfoParts &parts, const Bytes &data, const Bytes &signedData,
                         const Bytes &unsignedAttrs, Bytes *out, Bytes *signatureValue);
Bytes ContentInfo(const Bytes &signedDataContent);

/* The RFC 3161 token over `imprintSource`, as a ContentInfo, signed here
 * with the TSA's key (timestamp_token.cpp). */
uint32_t BuildToken(const SignerSpec &s, const Bytes &imprintSource, Bytes *out);

} // namespace forge

#endif
