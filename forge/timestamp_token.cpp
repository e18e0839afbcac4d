// SPDX-License-Identifier: Apache-2.0
/* RFC 3161 time-stamp tokens made offline with a TSA's key: the TSTInfo,
 * its SignerInfo (with ESS signing-certificate-v2) and the token's
 * SignedData, with the faults the fixtures need (no signed attributes, a
 * genTime changed after signing). */
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "cms.h"

namespace forge {

namespace {

Bytes TstInfo(const SignerSpec &s, const EVP_MD *imprintMd, const Bytes &imprint,
              const Bytes &serialDer, const std::string &genTime)
{
    Bytes version = DerUint(1);
    Bytes policy = DerOid(s.tsPolicy.c_str());
    Bytes alg = AlgId(DigestOid(imprintMd), false);
    Bytes hashed = DerOctets(imprint);
    Bytes msgImprint = DerTlv(kTagSequence, DerCat({&alg, &hashed}));
    Bytes time = DerTime(genTime);
    return DerTlv(kTagSequence, DerCat({&version, &policy, &msgImprint, &serialDer, &time}));
}

} // namespace

uint32_t BuildToken(const SignerSpec &s, const Bytes &imprintSource, Bytes *out)
{
    const EVP_MD *imprintMd = DigestByName(s.tsDigest);
    const EVP_MD *signMd = DigestByName(s.tsSignDigest);
    if (imprintMd == nullptr || signMd == nullptr) {
        return kErrUsage;
    }
    if (DerOid(s.tsPolicy.c_str()).empty()) {
        Fail("sign: bad --ts-policy '%s'", s.tsPolicy.c_str());
        return kErrUsage;
    }
    X509Ptr tsaCert;
    PkeyPtr tsaKey;
    Bytes serial;
    uint32_t rc = LoadCert(s.tsaCertPath, &tsaCert);
    if (rc == kOk) rc = LoadPrivateKey(s.tsaKeyPath, &tsaKey);
    if (rc == kOk) rc = ParseSerial(s.tsSerial, &serial);
    Bytes imprint;
    if (rc == kOk) rc = Digest(imprintMd, imprintSource.data(), imprintSource.size(), &imprint);
    if (rc != kOk) {
        return rc;
    }
    Bytes signedTst = TstInfo(s, imprintMd, imprint, serial, s.genTime);
    Bytes writtenTst = s.tamperGenTime.empty()
                           ? signedTst
                           : TstInfo(s, imprintMd, imprint, serial, s.tamperGenTime);

    SignerInfoParts parts{tsaCert.get(), tsaKey.get(), signMd, s.tsSignedAttrs, kOidTstInfo, {}};
    if (s.tsSignedAttrs) {
        /* ESS signing-certificate-v2 with the SHA-256 of the TSA
         * certificate (hashAlgorithm left at its default): RFC 3161
         * clients look for it. */
        Bytes tsaDer;
        Bytes certHash;
        rc = CertDer(tsaCert.get(), &tsaDer);
        if (rc == kOk) rc = Digest(EVP_sha256(), tsaDer.data(), tsaDer.size(), &certHash);
        if (rc != kOk) {
            return rc;
        }
        Bytes essCertId = DerTlv(kTagSequence, DerOctets(certHash));
        Bytes certIds = DerTlv(kTagSequence, essCertId);
        Bytes signingCert = DerTlv(kTagSequence, certIds);
        parts.extraAttrs.push_back(Attribute(kOidSigningCertV2, signingCert));
    }
    Bytes signerInfo;
    Bytes unusedSig;
    rc = BuildSignerInfo(parts, signedTst, signedTst, Bytes(), &signerInfo, &unusedSig);
    if (rc != kOk) {
        return rc;
    }
    std::vector<std::string> certPaths = s.tsCerts;
    if (certPaths.empty() && !s.tsNoCerts) {
        certPaths.push_back(s.tsaCertPath);
    }
    Bytes certs;
    rc = CertsField(certPaths, &certs);
    if (rc != kOk) {
        return rc;
    }
    Bytes version = DerUint(3);
    Bytes digestAlgs = DerSetOf({AlgId(DigestOid(signMd), false)});
    Bytes eType = DerOid(kOidTstInfo);
    Bytes eContent = DerTlv(kTagCtx0, DerOctets(writtenTst));
    Bytes encap = DerTlv(kTagSequence, DerCat({&eType, &eContent}));
    Bytes signerInfos = DerTlv(kTagSet, signerInfo);
    *out = ContentInfo(DerCat({&version, &digestAlgs, &encap, &certs, &signerInfos}));
    return kOk;
}

} // namespace forge
