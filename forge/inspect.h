// SPDX-License-Identifier: Apache-2.0
/* What forge inspect hands to the in-process verification of checktool 3
 * (inspect_verify.cpp, built where the vexa library is). */
#ifndef FORGE_INSPECT_H
#define FORGE_INSPECT_H

#include <nlohmann/json.hpp>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include "forge.h"
#include "vexa/vexa_result.h"

namespace forge {

struct VerifyInputs {
    uint32_t layoutCode = 0;    /* checktool's code for the image itself: 0, or why it is refused */
    Bytes signature;
    Bytes content;
    std::string crlPath;
    std::string rootPath;
    std::string genTime;        /* for people */
    std::string genTimeRaw;     /* as encoded */
    std::vector<X509 *> pathCerts; /* the signature's and the token's certificates (not owned) */
};

using Json = nlohmann::ordered_json;

/* A name as RFC 2253 text, the form every part of the report uses. */
std::string NameText(const X509_NAME *name);
/* A time as ISO 8601 UTC, 2026-03-15T12:00:00Z, the form every part of the
 * report uses; empty for none. */
std::string IsoTime(const ASN1_TIME *t);
std::string IntegerHex(const ASN1_INTEGER *i);
std::string ObjName(const ASN1_OBJECT *obj);

/* A finding on an encoding checktool does not take, at its image offset. */
void AddFinding(Json *report, uint64_t offset, const std::string &what, const std::string &advice = "");
/* Where `needle` lies in `haystack`, to give a finding its offset. */
size_t Find(const Bytes &haystack, const Bytes &needle);

/* Descriptions (inspect_describe.cpp, inspect_signature.cpp). */
Json CertReport(X509 *cert, uint64_t offset, Json *report);
/* Each certificate, at the offset where its encoding lies in `sig`; they
 * are kept for the verification's explanation (KeptCerts, released by
 * RunInspect). */
Json CertsReport(STACK_OF(X509) *certs, const Bytes &sig, uint64_t base, Json *report);
std::vector<X509 *> &KeptCerts();
Json TokenReport(const Bytes &sig, uint64_t base, const ASN1_OCTET_STRING *sigValue, PKCS7 *token, Json *report);
void SignatureReport(const Bytes &block, uint64_t base, Json *report);
void CrlBlockReport(const Bytes &block, uint64_t base, Json *report);

/* For 0x88200019 and 0x8820001A: the certificates of `path` that break the
 * rule, in words (inspect_rules.cpp). */
std::vector<std::string> PathRuleFindings(uint32_t code, const std::vector<X509 *> &path);

/* Why `crl` cannot speak for `cert` (a delta, an unprocessed critical
 * extension, a scope that leaves it out), or empty. */
std::string CrlScopeProblem(X509_CRL *crl, X509 *cert);

/* The certificates and CRLs a refusal with `code` concerns, in words: who
 * is revoked, expired, without a CRL that can speak for it, with the wrong
 * usages or past a path rule (inspect_rules.cpp). */
std::vector<std::string> Concerned(uint32_t code, const std::vector<X509 *> &path, const std::vector<X509_CRL *> &crls,
                                   const ASN1_TIME *genTime);

/* Runs checktool 3's verification with the given root; adds the
 * "verification" section; returns the result code checktool 3 ends with,
 * or a forge code for a root that cannot be read. */
uint32_t VerifyLikeChecktool(const VerifyInputs &in, nlohmann::ordered_json *report);

} // namespace forge

#endif
