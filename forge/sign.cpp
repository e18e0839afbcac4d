// SPDX-License-Identifier: Apache-2.0
/* forge sign: a detached CMS SignedData over content, every signer carrying
 * an RFC 3161 time-stamp token as its unsigned attribute.
 *
 * The structures are assembled as DER here rather than through the CMS and
 * TS builders, because the fixtures need shapes those builders refuse to
 * make (two signers with separate tokens, a token without signed
 * attributes, an imprint over the wrong bytes, a genTime altered after
 * signing) and because the output must be the same bytes on every run. */
#include <string.h>

#include <algorithm>

#include <openssl/cms.h>
#include <openssl/err.h>

#include "forge.h"

namespace forge {

namespace {

constexpr const char *kOidData = "1.2.840.113549.1.7.1";
constexpr const char *kOidSignedData = "1.2.840.113549.1.7.2";
constexpr const char *kOidTstInfo = "1.2.840.113549.1.9.16.1.4";
constexpr const char *kOidContentType = "1.2.840.113549.1.9.3";
constexpr const char *kOidMessageDigest = "1.2.840.113549.1.9.4";
constexpr const char *kOidSigningTime = "1.2.840.113549.1.9.5";
constexpr const char *kOidSigningCertV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char *kOidTimeStampToken = "1.2.840.113549.1.9.16.2.14";
constexpr const char *kOidRsaEncryption = "1.2.840.113549.1.1.1";
constexpr const char *kDefaultPolicy = "2.999.5.1";

const OptSpec kSignOpts[] = {
    {"pkcs11-module", "FILE", "PKCS#11 module for keys given as pkcs11: URIs without module-path"},
    {"content", "FILE", "the bytes to sign (they stay outside the signature)"},
    {"cert", "FILE", "certificate to embed in the SignedData (repeatable, kept in order; none "
                     "by default)"},
    {"form", "der|cms|pkcs7", "DER (default), or PEM under \"CMS\" or \"PKCS7\""},
    {"out", "FILE", "where to write the signature"},
    {"signer-cert", "FILE", "starts a signer: its certificate; the options below apply to the "
                            "latest signer"},
    {"signer-key", "FILE", "the signer's private key"},
    {"digest", "NAME", "signer digest: sha256 (default), sha384, sha512 or sha1"},
    {"no-signed-attrs", nullptr, "sign the content itself, without signed attributes"},
    {"signing-time", "TIME", "add a signing-time signed attribute"},
    {"no-token", nullptr, "give this signer no time-stamp token"},
    {"tsa-url", "URL", "ask this RFC 3161 service (http or https) for the token instead of making it"},
    {"tsa-timeout", "SECONDS", "give up on the service after this long (default 30)"},
    {"tsa-ca-file", "FILE", "CA certificates (PEM) that the service's HTTPS certificate must chain to"},
    {"tsa-cert", "FILE", "time-stamping authority certificate"},
    {"tsa-key", "FILE", "its private key"},
    {"gen-time", "TIME", "genTime of the token (YYYYMMDDHHMMSSZ)"},
    {"ts-digest", "NAME", "imprint hash algorithm (default sha256)"},
    {"ts-sign-digest", "NAME", "digest of the token's own signature (default sha256)"},
    {"ts-imprint-over", "signature|content", "what the imprint hashes (default: the signer's "
                                             "signature value, as RFC 3161 wants)"},
    {"ts-imprint-file", "FILE", "hash these bytes for the imprint instead"},
    {"ts-no-signed-attrs", nullptr, "sign the TSTInfo itself, without signed attributes"},
    {"ts-cert", "FILE", "certificate to embed in the token (repeatable; default: the TSA "
                        "certificate)"},
    {"ts-no-certs", nullptr, "embed no certificate in the token"},
    {"ts-serial", "N", "TSTInfo serial number (default 1)"},
    {"ts-policy", "OID", "TSTInfo policy (default 2.999.5.1)"},
    {"ts-tamper-gen-time", "TIME", "write this genTime into the TSTInfo after signing it"},
};

const OptSpec kTokenOpts[] = {
    {"in", "FILE", "a signature made by forge sign (DER or PEM)"},
    {"signer", "N", "which signer, from 1 (default 1)"},
    {"out", "FILE", "where to write the signer's time-stamp token (DER ContentInfo)"},
    {"signature-out", "FILE", "where to write the signer's signature value (the bytes the "
                              "imprint should cover)"},
};

/* Everything one signer needs, gathered from its group of options. */
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

bool IsSignerOption(const std::string &name)
{
    return name != "content" && name != "cert" && name != "form" && name != "out";
}

uint32_t CollectSigners(const Args &args, std::vector<SignerSpec> *signers)
{
    for (const OptValue &o : args.opts) {
        if (o.name == "signer-cert") {
            signers->push_back(SignerSpec{});
            signers->back().certPath = o.value;
            continue;
        }
        if (!IsSignerOption(o.name)) {
            continue;
        }
        if (signers->empty()) {
            Fail("sign: --%s must follow a --signer-cert", o.name.c_str());
            return kErrUsage;
        }
        SignerSpec &s = signers->back();
        if (o.name == "signer-key") s.keyPath = o.value;
        else if (o.name == "digest") s.digest = o.value;
        else if (o.name == "no-signed-attrs") s.signedAttrs = false;
        else if (o.name == "signing-time") s.signingTime = o.value;
        else if (o.name == "no-token") s.token = false;
        else if (o.name == "tsa-url") s.tsa.url = o.value;
        else if (o.name == "tsa-ca-file") s.tsa.caFile = o.value;
        else if (o.name == "tsa-timeout") s.tsaTimeout = o.value;
        else if (o.name == "tsa-cert") s.tsaCertPath = o.value;
        else if (o.name == "tsa-key") s.tsaKeyPath = o.value;
        else if (o.name == "gen-time") s.genTime = o.value;
        else if (o.name == "ts-digest") s.tsDigest = o.value;
        else if (o.name == "ts-sign-digest") s.tsSignDigest = o.value;
        else if (o.name == "ts-imprint-over") s.imprintOver = o.value;
        else if (o.name == "ts-imprint-file") s.imprintFile = o.value;
        else if (o.name == "ts-no-signed-attrs") s.tsSignedAttrs = false;
        else if (o.name == "ts-cert") s.tsCerts.push_back(o.value);
        else if (o.name == "ts-no-certs") s.tsNoCerts = true;
        else if (o.name == "ts-serial") s.tsSerial = o.value;
        else if (o.name == "ts-policy") s.tsPolicy = o.value;
        else if (o.name == "ts-tamper-gen-time") s.tamperGenTime = o.value;
    }
    if (signers->empty()) {
        Fail("sign: at least one --signer-cert is needed");
        return kErrUsage;
    }
    for (SignerSpec &s : *signers) {
        if (s.keyPath.empty()) {
            Fail("sign: signer %s has no --signer-key", s.certPath.c_str());
            return kErrUsage;
        }
        const bool fromService = !s.tsa.url.empty();
        if (fromService && (!s.tsaCertPath.empty() || !s.tsaKeyPath.empty() || !s.genTime.empty())) {
            Fail("sign: signer %s: --tsa-url replaces --tsa-cert, --tsa-key and --gen-time", s.certPath.c_str());
            return kErrUsage;
        }
        uint32_t timeout = 0;
        if (!s.tsaTimeout.empty() && (ParseU32(s.tsaTimeout, &timeout) != kOk || timeout == 0)) {
            Fail("sign: --tsa-timeout takes a number of seconds");
            return kErrUsage;
        }
        if (timeout != 0) {
            s.tsa.timeoutSeconds = static_cast<long>(timeout);
        }
        if (s.token && !fromService && (s.tsaCertPath.empty() || s.tsaKeyPath.empty() || s.genTime.empty())) {
            Fail("sign: signer %s needs --tsa-url, or --tsa-cert, --tsa-key and --gen-time (or --no-token)",
                 s.certPath.c_str());
            return kErrUsage;
        }
        if (s.token && !fromService && (!IsTimeText(s.genTime) ||
                        (!s.tamperGenTime.empty() && !IsTimeText(s.tamperGenTime)))) {
            Fail("sign: bad --gen-time or --ts-tamper-gen-time");
            return kErrUsage;
        }
        if (!s.signingTime.empty() && !IsTimeText(s.signingTime)) {
            Fail("sign: bad --signing-time");
            return kErrUsage;
        }
        if (s.imprintOver != "signature" && s.imprintOver != "content") {
            Fail("sign: --ts-imprint-over must be signature or content");
            return kErrUsage;
        }
        if (s.tsNoCerts && !s.tsCerts.empty()) {
            Fail("sign: --ts-no-certs and --ts-cert exclude each other");
            return kErrUsage;
        }
    }
    return kOk;
}

Bytes Attribute(const char *oid, const Bytes &value)
{
    Bytes o = DerOid(oid);
    Bytes values = DerSetOf({value});
    return DerTlv(kTagSequence, DerCat({&o, &values}));
}

/* IssuerAndSerialNumber of a certificate, byte for byte from it. */
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

/* The RFC 3161 token over `imprintSource`, as a ContentInfo. */
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

uint32_t BuildSigner(const SignerSpec &s, const Bytes &content, Bytes *signerInfo,
                     Bytes *digestAlg)
{
    const EVP_MD *md = DigestByName(s.digest);
    if (md == nullptr) {
        return kErrUsage;
    }
    X509Ptr cert;
    PkeyPtr key;
    uint32_t rc = LoadCert(s.certPath, &cert);
    if (rc == kOk) rc = LoadPrivateKey(s.keyPath, &key);
    if (rc != kOk) {
        return rc;
    }
    SignerInfoParts parts{cert.get(), key.get(), md, s.signedAttrs, kOidData, {}};
    if (!s.signingTime.empty()) {
        parts.extraAttrs.push_back(Attribute(kOidSigningTime, DerTime(s.signingTime)));
    }
    /* The token hashes the signature value, which exists only once the
     * SignerInfo is signed; PKCS#1 v1.5 signatures are deterministic, so
     * the SignerInfo is built twice: once for its signature, once with the
     * token attached. */
    Bytes bare;
    Bytes sigValue;
    rc = BuildSignerInfo(parts, content, content, Bytes(), &bare, &sigValue);
    if (rc != kOk) {
        return rc;
    }
    *digestAlg = AlgId(DigestOid(md), false);
    if (!s.token) {
        *signerInfo = bare;
        return kOk;
    }
    Bytes imprintSource = sigValue;
    if (!s.imprintFile.empty()) {
        rc = ReadFile(s.imprintFile, &imprintSource);
    } else if (s.imprintOver == "content") {
        imprintSource = content;
    }
    Bytes token;
    if (rc == kOk && !s.tsa.url.empty()) {
        const EVP_MD *imprintMd = DigestByName(s.tsDigest);
        rc = imprintMd == nullptr ? kErrUsage : RequestToken(s.tsa, imprintMd, imprintSource, &token);
    } else if (rc == kOk) {
        rc = BuildToken(s, imprintSource, &token);
    }
    if (rc != kOk) {
        return rc;
    }
    Bytes unsignedAttrs = DerSetOf({Attribute(kOidTimeStampToken, token)});
    unsignedAttrs[0] = kTagCtx1;
    Bytes again;
    rc = BuildSignerInfo(parts, content, content, unsignedAttrs, signerInfo, &again);
    if (rc == kOk && again != sigValue) {
        Fail("sign: the signature changed between two runs over the same bytes");
        return kErrCrypto;
    }
    return rc;
}

} // namespace

uint32_t RunSign(const Args &args)
{
    UsePkcs11Module(args);
    const std::string *contentPath = nullptr, *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "content", &contentPath);
    if (rc == kOk) rc = RequireOpt(args, "out", &outPath);
    if (rc != kOk) {
        return rc;
    }
    const std::string *form = FindOpt(args, "form");
    const char *pemLabel = nullptr;
    if (form != nullptr && *form == "cms") {
        pemLabel = "CMS";
    } else if (form != nullptr && *form == "pkcs7") {
        pemLabel = "PKCS7";
    } else if (form != nullptr && *form != "der") {
        Fail("--form must be der, cms or pkcs7");
        return kErrUsage;
    }
    std::vector<SignerSpec> signers;
    rc = CollectSigners(args, &signers);
    Bytes content;
    if (rc == kOk) rc = ReadFile(*contentPath, &content);
    if (rc != kOk) {
        return rc;
    }
    std::vector<Bytes> digestAlgs;
    Bytes signerInfos;
    for (const SignerSpec &s : signers) {
        Bytes info;
        Bytes alg;
        rc = BuildSigner(s, content, &info, &alg);
        if (rc != kOk) {
            ERR_clear_error();
            return rc;
        }
        signerInfos.insert(signerInfos.end(), info.begin(), info.end());
        if (std::find(digestAlgs.begin(), digestAlgs.end(), alg) == digestAlgs.end()) {
            digestAlgs.push_back(alg);
        }
    }
    Bytes certs;
    rc = CertsField(FindAllOpts(args, "cert"), &certs);
    if (rc != kOk) {
        return rc;
    }
    Bytes version = DerUint(1);
    Bytes algs = DerSetOf(digestAlgs);
    Bytes eType = DerOid(kOidData);
    Bytes encap = DerTlv(kTagSequence, eType); /* detached: no eContent */
    /* Signers in the order given (a SET in DER terms, but the order is
     * what a test of several signers wants to control). */
    Bytes infos = DerTlv(kTagSet, signerInfos);
    Bytes der = ContentInfo(DerCat({&version, &algs, &encap, &certs, &infos}));
    return WriteFile(*outPath, pemLabel != nullptr ? PemArmour(pemLabel, der) : der);
}

/* ---- token: take a signer's token back out, for checking it alone ------- */

uint32_t RunToken(const Args &args)
{
    const std::string *inPath = nullptr;
    uint32_t rc = RequireOpt(args, "in", &inPath);
    if (rc != kOk) {
        return rc;
    }
    uint32_t index = 1;
    if (const std::string *n = FindOpt(args, "signer")) {
        rc = ParseU32(*n, &index);
        if (rc != kOk || index == 0) {
            Fail("--signer counts from 1");
            return kErrUsage;
        }
    }
    Bytes data;
    rc = ReadFile(*inPath, &data);
    if (rc != kOk) {
        return rc;
    }
    if (LooksLikePem(data)) {
        std::vector<PemBlock> blocks;
        rc = PemBlocks(data, &blocks);
        if (rc != kOk || blocks.empty()) {
            Fail("%s has no PEM block", inPath->c_str());
            return kErrInput;
        }
        data = blocks[0].der;
    }
    const unsigned char *p = data.data();
    CMS_ContentInfo *cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(data.size()));
    STACK_OF(CMS_SignerInfo) *infos = cms != nullptr ? CMS_get0_SignerInfos(cms) : nullptr;
    if (infos == nullptr || static_cast<int>(index) > sk_CMS_SignerInfo_num(infos)) {
        CMS_ContentInfo_free(cms);
        ERR_clear_error();
        Fail("%s has no signer %u", inPath->c_str(), index);
        return kErrInput;
    }
    CMS_SignerInfo *si = sk_CMS_SignerInfo_value(infos, static_cast<int>(index) - 1);
    ASN1_OCTET_STRING *sig = CMS_SignerInfo_get0_signature(si);
    Bytes sigValue(sig->data, sig->data + sig->length);
    ASN1_OBJECT *tokenOid = OBJ_txt2obj(kOidTimeStampToken, 1);
    int at = CMS_unsigned_get_attr_by_OBJ(si, tokenOid, -1);
    ASN1_OBJECT_free(tokenOid);
    X509_ATTRIBUTE *attr = at >= 0 ? CMS_unsigned_get_attr(si, at) : nullptr;
    ASN1_TYPE *value = attr != nullptr ? X509_ATTRIBUTE_get0_type(attr, 0) : nullptr;
    Bytes token;
    if (value != nullptr && value->type == V_ASN1_SEQUENCE) {
        token.assign(value->value.sequence->data,
                     value->value.sequence->data + value->value.sequence->length);
    }
    CMS_ContentInfo_free(cms);
    if (const std::string *sigOut = FindOpt(args, "signature-out")) {
        rc = WriteFile(*sigOut, sigValue);
        if (rc != kOk) {
            return rc;
        }
    }
    if (const std::string *tokenOut = FindOpt(args, "out")) {
        if (token.empty()) {
            Fail("signer %u of %s carries no time-stamp token", index, inPath->c_str());
            return kErrInput;
        }
        rc = WriteFile(*tokenOut, token);
    }
    return rc;
}

const Command kSignCommand = {
    "sign",
    "--content FILE [--cert FILE]... --out FILE [--form der|cms|pkcs7]\n"
    "             --signer-cert FILE --signer-key FILE [signer options]\n"
    "             (--tsa-url URL [--tsa-timeout S] [--tsa-ca-file FILE] [--ts-digest NAME]\n"
    "              | --tsa-cert FILE --tsa-key FILE --gen-time TIME [token options] | --no-token)\n"
    "             [--signer-cert FILE ... for a second signer]",
    "Makes a detached CMS SignedData (RSA PKCS#1 v1.5) over the content. Each signer gets an\n"
    "RFC 3161 time-stamp token (id-aa-timeStampToken) whose imprint covers its signature value.\n"
    "Signer and token options apply to the signer opened by the latest --signer-cert.\n"
    "The same keys and options always give the same bytes.",
    kSignOpts,
    sizeof(kSignOpts) / sizeof(kSignOpts[0]),
    RunSign,
};

const Command kTokenCommand = {
    "token",
    "--in FILE [--signer N] [--out TOKEN] [--signature-out FILE]",
    "Writes a signer's time-stamp token and signature value from a signature, so that they can\n"
    "be checked on their own (openssl ts -verify -in TOKEN -token_in -data FILE ...).",
    kTokenOpts,
    sizeof(kTokenOpts) / sizeof(kTokenOpts[0]),
    RunToken,
};

} // namespace forge
