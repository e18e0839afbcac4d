// SPDX-License-Identifier: Apache-2.0
/* The path and CRL rules forge inspect explains beside the verdict: which
 * certificate carries a critical extension checktool does not process,
 * which CA's pathLenConstraint a path exceeds, and why a CRL of the issuer
 * cannot speak for a certificate (a delta, a critical extension, or a
 * scope that leaves it out). Read with libcrypto, independently of the
 * library's own decoding. */
#include <algorithm>

#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "inspect.h"

namespace forge {

namespace {

bool ProcessedCertExtension(int nid)
{
    switch (nid) {
        case NID_basic_constraints:
        case NID_key_usage:
        case NID_ext_key_usage:
        case NID_subject_key_identifier:
        case NID_authority_key_identifier:
        case NID_subject_alt_name:
        case NID_issuer_alt_name:
        case NID_crl_distribution_points:
            return true;
        default:
            return false;
    }
}

bool ProcessedCrlExtension(int nid)
{
    return nid == NID_issuing_distribution_point || nid == NID_crl_number || nid == NID_authority_key_identifier ||
           nid == NID_delta_crl;
}

bool ProcessedEntryExtension(int nid)
{
    return nid == NID_crl_reason || nid == NID_invalidity_date || nid == NID_certificate_issuer;
}

std::string ExtensionName(const X509_EXTENSION *ext)
{
    const ASN1_OBJECT *obj = X509_EXTENSION_get_object(const_cast<X509_EXTENSION *>(ext));
    const int nid = OBJ_obj2nid(obj);
    if (nid != NID_undef) {
        return OBJ_nid2ln(nid);
    }
    char dotted[128];
    OBJ_obj2txt(dotted, sizeof(dotted), obj, 1);
    return dotted;
}

/* The critical extensions of a list that `processed` does not take. */
std::string UnprocessedCritical(const STACK_OF(X509_EXTENSION) *exts, bool (*processed)(int))
{
    std::string names;
    for (int i = 0; i < sk_X509_EXTENSION_num(exts); i++) {
        const X509_EXTENSION *ext = sk_X509_EXTENSION_value(exts, i);
        if (X509_EXTENSION_get_critical(ext) == 1 &&
            !processed(OBJ_obj2nid(X509_EXTENSION_get_object(const_cast<X509_EXTENSION *>(ext))))) {
            names += (names.empty() ? "" : ", ") + ExtensionName(ext);
        }
    }
    return names;
}

bool SelfSigned(X509 *cert)
{
    return X509_check_issued(cert, cert) == X509_V_OK;
}

bool IsCa(X509 *cert)
{
    return (X509_get_extension_flags(cert) & EXFLAG_CA) != 0;
}

/* The names a distribution point stands for: its fullName, or its relative
 * name put after `issuer`. */
GENERAL_NAMES *PointNames(DIST_POINT_NAME *name, const X509_NAME *issuer)
{
    if (name == nullptr) {
        return nullptr;
    }
    if (name->type == 0) {
        return sk_GENERAL_NAME_deep_copy(name->name.fullname, GENERAL_NAME_dup, GENERAL_NAME_free);
    }
    if (DIST_POINT_set_dpname(name, issuer) != 1 || name->dpname == nullptr) {
        return nullptr;
    }
    GENERAL_NAMES *names = sk_GENERAL_NAME_new_null();
    GENERAL_NAME *dir = GENERAL_NAME_new();
    dir->type = GEN_DIRNAME;
    dir->d.directoryName = X509_NAME_dup(name->dpname);
    sk_GENERAL_NAME_push(names, dir);
    return names;
}

bool AnyEqual(const GENERAL_NAMES *a, const GENERAL_NAMES *b)
{
    for (int i = 0; i < sk_GENERAL_NAME_num(a); i++) {
        for (int j = 0; j < sk_GENERAL_NAME_num(b); j++) {
            if (GENERAL_NAME_cmp(sk_GENERAL_NAME_value(a, i), sk_GENERAL_NAME_value(b, j)) == 0) {
                return true;
            }
        }
    }
    return false;
}

bool CertNamesPoint(X509 *cert, DIST_POINT_NAME *idpName, const X509_NAME *crlIssuer)
{
    GENERAL_NAMES *wanted = PointNames(idpName, crlIssuer);
    CRL_DIST_POINTS *points =
        static_cast<CRL_DIST_POINTS *>(X509_get_ext_d2i(cert, NID_crl_distribution_points, nullptr, nullptr));
    bool named = false;
    for (int i = 0; wanted != nullptr && !named && i < sk_DIST_POINT_num(points); i++) {
        DIST_POINT *point = sk_DIST_POINT_value(points, i);
        if (point->CRLissuer != nullptr) {
            continue;
        }
        GENERAL_NAMES *own = PointNames(point->distpoint, X509_get_issuer_name(cert));
        named = own != nullptr && AnyEqual(wanted, own);
        GENERAL_NAMES_free(own);
    }
    CRL_DIST_POINTS_free(points);
    GENERAL_NAMES_free(wanted);
    return named;
}

const char *ReasonName(long reason)
{
    static const char *const kNames[] = {"unspecified",          "keyCompromise",   "cACompromise",
                                         "affiliationChanged",   "superseded",      "cessationOfOperation",
                                         "certificateHold",      "(7)",             "removeFromCRL",
                                         "privilegeWithdrawn",   "aACompromise"};
    return reason >= 0 && reason <= 10 ? kNames[reason] : "(other)";
}

} // namespace

std::vector<std::string> PathRuleFindings(uint32_t code, const std::vector<X509 *> &path)
{
    std::vector<std::string> found;
    for (X509 *cert : path) {
        if (SelfSigned(cert)) {
            continue; /* a root's own extensions bind nothing */
        }
        const std::string subject = "'" + NameText(X509_get_subject_name(cert)) + "'";
        if (code == VEXA_ERR_UNPROCESSED_CRITICAL) {
            const std::string names = UnprocessedCritical(X509_get0_extensions(cert), ProcessedCertExtension);
            if (!names.empty()) {
                found.push_back(subject + " carries the critical extension " + names + ", which is not processed");
            }
        } else if (code == VEXA_ERR_PATH_LENGTH && IsCa(cert) && X509_get_pathlen(cert) >= 0) {
            /* the CA certificates below it on the paths of this report */
            std::string below;
            long count = 0;
            for (X509 *other : path) {
                if (other == cert || !IsCa(other) || SelfSigned(other) || X509_cmp(other, cert) == 0 ||
                    X509_NAME_cmp(X509_get_subject_name(other), X509_get_issuer_name(other)) == 0) {
                    continue;
                }
                for (X509 *up = other; up != nullptr;) {
                    X509 *next = nullptr;
                    for (X509 *c : path) {
                        if (c != up && X509_cmp(c, up) != 0 && X509_check_issued(c, up) == X509_V_OK) {
                            next = c;
                        }
                    }
                    if (next != nullptr && X509_cmp(next, cert) == 0) {
                        below += (below.empty() ? "'" : ", '") + NameText(X509_get_subject_name(other)) + "'";
                        count++;
                        break;
                    }
                    up = next != nullptr && !SelfSigned(next) ? next : nullptr;
                }
            }
            if (count > X509_get_pathlen(cert)) {
                found.push_back(subject + " has pathLenConstraint " + std::to_string(X509_get_pathlen(cert)) +
                                " but " + std::to_string(count) + " CA certificate(s) below it: " + below);
            }
        }
    }
    return found;
}

std::string CrlScopeProblem(X509_CRL *crl, X509 *cert)
{
    std::string problem;
    if (void *delta = X509_CRL_get_ext_d2i(crl, NID_delta_crl, nullptr, nullptr)) {
        ASN1_INTEGER_free(static_cast<ASN1_INTEGER *>(delta));
        return "it is a delta CRL (deltaCRLIndicator), which lists only changes since its base";
    }
    const std::string crlExts = UnprocessedCritical(X509_CRL_get0_extensions(crl), ProcessedCrlExtension);
    if (!crlExts.empty()) {
        return "it carries the critical extension " + crlExts + ", which is not processed";
    }
    STACK_OF(X509_REVOKED) *entries = X509_CRL_get_REVOKED(crl);
    for (int i = 0; i < sk_X509_REVOKED_num(entries); i++) {
        const std::string entryExts =
            UnprocessedCritical(X509_REVOKED_get0_extensions(sk_X509_REVOKED_value(entries, i)), ProcessedEntryExtension);
        if (!entryExts.empty()) {
            return "an entry carries the critical extension " + entryExts + ", which is not processed";
        }
    }
    ISSUING_DIST_POINT *idp =
        static_cast<ISSUING_DIST_POINT *>(X509_CRL_get_ext_d2i(crl, NID_issuing_distribution_point, nullptr, nullptr));
    if (idp == nullptr) {
        return "";
    }
    const bool ca = IsCa(cert);
    if (idp->onlyuser != 0 && ca) {
        problem = "its issuing distribution point covers only end-entity certificates";
    } else if (idp->onlyCA != 0 && !ca) {
        problem = "its issuing distribution point covers only CA certificates";
    } else if (idp->onlyattr != 0) {
        problem = "its issuing distribution point covers only attribute certificates";
    } else if (idp->onlysomereasons != nullptr) {
        problem = "its issuing distribution point covers only some revocation reasons";
    } else if (idp->distpoint != nullptr && !CertNamesPoint(cert, idp->distpoint, X509_CRL_get_issuer(crl))) {
        problem = "it covers one distribution point, which the certificate's cRLDistributionPoints do not name";
    }
    ISSUING_DIST_POINT_free(idp);
    return problem;
}

/* The certificate concerned, found the way the rule reads: entries of the
 * CRL file that list a path certificate, or validity periods that exclude
 * genTime. */
std::vector<std::string> Concerned(uint32_t code, const std::vector<X509 *> &path, const std::vector<X509_CRL *> &crls,
                                   const ASN1_TIME *genTime)
{
    std::vector<std::string> found = PathRuleFindings(code, path);
    std::vector<X509 *> seen;
    for (X509 *cert : path) {
        /* a CA certificate comes with the signature and with the CRL file */
        if (std::any_of(seen.begin(), seen.end(), [cert](X509 *s) { return X509_cmp(s, cert) == 0; })) {
            continue;
        }
        seen.push_back(cert);
        const std::string subject = NameText(X509_get_subject_name(cert));
        if (code == VEXA_ERR_REVOKED) {
            for (X509_CRL *crl : crls) {
                ISSUING_DIST_POINT *idp = static_cast<ISSUING_DIST_POINT *>(
                    X509_CRL_get_ext_d2i(crl, NID_issuing_distribution_point, nullptr, nullptr));
                const bool indirect = idp != nullptr && idp->indirectCRL != 0;
                ISSUING_DIST_POINT_free(idp);
                const bool sameIssuer = X509_NAME_cmp(X509_CRL_get_issuer(crl), X509_get_issuer_name(cert)) == 0;
                if (!sameIssuer && !indirect) {
                    continue;
                }
                X509_REVOKED *entry = nullptr;
                if (X509_CRL_get0_by_serial(crl, &entry, X509_get0_serialNumber(cert)) != 1 || entry == nullptr) {
                    continue;
                }
                ASN1_ENUMERATED *reason =
                    static_cast<ASN1_ENUMERATED *>(X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, nullptr, nullptr));
                const std::string why = reason != nullptr ? ReasonName(ASN1_ENUMERATED_get(reason)) : "no reason given";
                ASN1_ENUMERATED_free(reason);
                /* the candidate score CRL selection gave it: listed 0x80,
                 * current 0x40, same issuer 0x20, indirect 0x10 */
                const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl);
                const unsigned score = 0x80u | (next != nullptr && genTime != nullptr && ASN1_TIME_compare(genTime, next) <= 0 ? 0x40u : 0u) |
                                       (sameIssuer ? 0x20u : 0u) | (indirect ? 0x10u : 0u);
                char scoreText[8];
                snprintf(scoreText, sizeof(scoreText), "0x%02X", score);
                found.push_back("'" + subject + "' revoked at " + IsoTime(X509_REVOKED_get0_revocationDate(entry)) + " (" +
                                why + ") by the CRL of '" + NameText(X509_CRL_get_issuer(crl)) + "' (thisUpdate " +
                                IsoTime(X509_CRL_get0_lastUpdate(crl)) + ", score " + scoreText + ")");
            }
        } else if (code == VEXA_ERR_EXPIRED && genTime != nullptr && ASN1_TIME_compare(X509_get0_notAfter(cert), genTime) < 0) {
            found.push_back("'" + subject + "' expired at " + IsoTime(X509_get0_notAfter(cert)));
        } else if (code == VEXA_ERR_NOT_YET_VALID && genTime != nullptr &&
                   ASN1_TIME_compare(X509_get0_notBefore(cert), genTime) > 0) {
            found.push_back("'" + subject + "' valid only from " + IsoTime(X509_get0_notBefore(cert)));
        } else if (code == VEXA_ERR_KEY_USAGE && (X509_get_extension_flags(cert) & EXFLAG_CA) == 0) {
            /* the signer needs digitalSignature and codeSigning first, the
             * TSA digitalSignature and timeStamping first: each end entity's
             * usages side by side show which one lacks its own */
            EXTENDED_KEY_USAGE *eku =
                static_cast<EXTENDED_KEY_USAGE *>(X509_get_ext_d2i(cert, NID_ext_key_usage, nullptr, nullptr));
            const int first = sk_ASN1_OBJECT_num(eku) > 0 ? OBJ_obj2nid(sk_ASN1_OBJECT_value(eku, 0)) : NID_undef;
            sk_ASN1_OBJECT_pop_free(eku, ASN1_OBJECT_free);
            const uint32_t ku = X509_get_key_usage(cert);
            const bool digital = ku != UINT32_MAX && (ku & KU_DIGITAL_SIGNATURE) != 0;
            found.push_back("'" + subject + "' has " + (digital ? "" : "no ") + "digitalSignature, first extended key usage " +
                            (first == NID_undef ? "none" : OBJ_nid2sn(first)));
        } else if (code == VEXA_ERR_NO_CRL && X509_NAME_cmp(X509_get_subject_name(cert), X509_get_issuer_name(cert)) != 0) {
            /* why each CRL of the issuer is no candidate, or that it has none */
            std::string why;
            bool covered = false;
            for (X509_CRL *crl : crls) {
                if (X509_NAME_cmp(X509_CRL_get_issuer(crl), X509_get_issuer_name(cert)) != 0) {
                    continue;
                }
                const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl);
                X509 *issuer = nullptr;
                for (X509 *c : path) {
                    issuer = issuer == nullptr && X509_check_issued(c, cert) == X509_V_OK ? c : issuer;
                }
                std::string problem = CrlScopeProblem(crl, cert);
                if (!problem.empty()) {
                    /* skipped whatever its dates and signature */
                } else if (issuer != nullptr && X509_CRL_verify(crl, X509_get0_pubkey(issuer)) != 1) {
                    problem = "its signature does not verify with the issuer's key";
                } else if (next == nullptr || genTime == nullptr || ASN1_TIME_compare(next, genTime) < 0) {
                    problem = "it expired at " + IsoTime(next) + ", before genTime, and does not list the certificate";
                } else {
                    covered = true;
                }
                if (!problem.empty()) {
                    why += (why.empty() ? "" : "; ") + std::string("the CRL with thisUpdate ") +
                           IsoTime(X509_CRL_get0_lastUpdate(crl)) + " does not qualify: " + problem;
                }
            }
            if (!covered) {
                found.push_back("no CRL of '" + NameText(X509_get_issuer_name(cert)) + "' qualifies for '" + subject +
                                "'" + (why.empty() ? std::string(": the file has none") : ": " + why));
            }
        }
    }
    return found;
}

} // namespace forge
