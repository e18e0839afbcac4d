// SPDX-License-Identifier: Apache-2.0
/* forge sign: a detached CMS SignedData over content, every signer carrying
 * an RFC 3161 time-stamp token as its unsigned attribute: from a TSA's key
 * (timestamp_token.cpp) or a TSA's URL (tsa_client.cpp). The DER is
 * assembled in cms_assembly.cpp. */
#include <string.h>

#include <algorithm>

#include <openssl/cms.h>
#include <openssl/err.h>

#include "cms.h"

namespace forge {

namespace {

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

} // namespace forge
