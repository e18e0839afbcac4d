// SPDX-License-Identifier: Apache-2.0
/* What forge inspect hands to the in-process verification of checktool 3
 * (inspect_verify.cpp, built where the vexa library is). */
#ifndef FORGE_INSPECT_H
#define FORGE_INSPECT_H

#include <nlohmann/json.hpp>

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

/* A name as RFC 2253 text, the form every part of the report uses. */
std::string NameText(const X509_NAME *name);

/* For 0x88200019 and 0x8820001A: the certificates of `path` that break the
 * rule, in words (inspect_rules.cpp). */
std::vector<std::string> PathRuleFindings(uint32_t code, const std::vector<X509 *> &path);

/* Why `crl` cannot speak for `cert` (a delta, an unprocessed critical
 * extension, a scope that leaves it out), or empty. */
std::string CrlScopeProblem(X509_CRL *crl, X509 *cert);

/* Runs checktool 3's verification with the given root; adds the
 * "verification" section; returns the result code checktool 3 ends with,
 * or a forge code for a root that cannot be read. */
uint32_t VerifyLikeChecktool(const VerifyInputs &in, nlohmann::ordered_json *report);

} // namespace forge

#endif
