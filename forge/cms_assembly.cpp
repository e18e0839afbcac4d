// SPDX-License-Identifier: Apache-2.0
/* DER assembly of the CMS structures forge signs: attributes, the signer's
 * identifier, the certificates field, SignerInfo and ContentInfo. */
#include <openssl/x509.h>

#include "cms.h"

namespace forge {

Bytes Attribute(const char *oid, const Bytes &value)
{
    Bytes o = DerOid(oid);
    Bytes values = DerSetOf({value});
    return DerTlv(kTagSequence, DerCat({&o, &values}));
}

uint32_t IssuerAndSerial(X509 *cert, Bytes *out)
{
    unsigned char *name = nullptr;
    int nameLen = i2d_X509_NAME(X509_get_issuer_name(cert), &name);
    unsigned char *serial = nullptr;
    int serialLen = i2d_ASN1_INTEGER(X509_get0_serialNumber(cert), &serial);
    uint32_t rc = kErrCrypto;
    if (nameLen > 0 && serialLen > 0) {
        Bytes n(name, name + nameLen);
        Bytes s(serial, serial + serialLen);
        *out = DerTlv(kTagSequence, DerCat({&n, &s}));
        rc = kOk;
    }
    OPENSSL_free(name);
    OPENSSL_free(serial);
    return rc;
}

uint32_t CertsField(const std::vector<std::string> &paths, Bytes *out)
{
    Bytes all;
    for (const std::string &path : paths) {
        X509Ptr cert;
        Bytes der;
        uint32_t rc = LoadCert(path, &cert);
        if (rc == kOk) rc = CertDer(cert.get(), &der);
        if (rc != kOk) {
            return rc;
        }
        all.insert(all.end(), der.begin(), der.end());
    }
    /* [0] IMPLICIT SET OF Certificate, in the order given: the verifier's
     * store keeps that order, so the fixtures choose it. */
    out->clear();
    if (!paths.empty()) {
        *out = DerTlv(kTagCtx0, all);
    }
    return kOk;
}

uint32_t BuildSignerInfo(const SignerInfoParts &parts, const Bytes &data, const Bytes &signedData,
                         const Bytes &unsignedAttrs, Bytes *out, Bytes *signatureValue)
{
    /* `data` is what the message digest covers; `signedData` is what an
     * attribute-less signature covers (they differ only for a tampered
     * token). */
    Bytes sid;
    uint32_t rc = IssuerAndSerial(parts.cert, &sid);
    if (rc != kOk) {
        return rc;
    }
    const char *digestOid = DigestOid(parts.md);
    Bytes version = DerUint(1);
    Bytes digestAlg = AlgId(digestOid, false);
    Bytes attrsField;
    Bytes toSign;
    if (parts.signedAttrs) {
        Bytes md;
        rc = Digest(parts.md, data.data(), data.size(), &md);
        if (rc != kOk) {
            return rc;
        }
        std::vector<Bytes> attrs = parts.extraAttrs;
        attrs.push_back(Attribute(kOidContentType, DerOid(parts.contentTypeOid)));
        attrs.push_back(Attribute(kOidMessageDigest, DerOctets(md)));
        /* The signature covers the attributes under the SET tag; they are
         * stored under [0] IMPLICIT. */
        toSign = DerSetOf(attrs);
        attrsField = toSign;
        attrsField[0] = kTagCtx0;
    } else {
        toSign = signedData;
    }
    Bytes sig;
    rc = RsaSign(parts.key, parts.md, toSign, &sig);
    if (rc != kOk) {
        return rc;
    }
    Bytes sigAlg = AlgId(kOidRsaEncryption, true);
    Bytes sigField = DerOctets(sig);
    Bytes content = DerCat({&version, &sid, &digestAlg, &attrsField, &sigAlg, &sigField,
                            &unsignedAttrs});
    *out = DerTlv(kTagSequence, content);
    *signatureValue = sig;
    return kOk;
}

Bytes ContentInfo(const Bytes &signedDataContent)
{
    Bytes type = DerOid(kOidSignedData);
    Bytes sd = DerTlv(kTagSequence, signedDataContent);
    Bytes explicitSd = DerTlv(kTagCtx0, sd);
    return DerTlv(kTagSequence, DerCat({&type, &explicitSd}));
}

} // namespace forge
