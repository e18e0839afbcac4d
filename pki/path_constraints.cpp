// SPDX-License-Identifier: Apache-2.0
/* What a verified path must also honour: constraints the library cannot
 * process are refused rather than ignored, and a CA's pathLenConstraint
 * bounds the CAs below it. Checked once a walk has verified, along the
 * issuer links that path building proved. */
#include "pki/pki.h"

#include "base/diagnostics.h"
#include "vexa/vexa_result.h"

namespace {

/* 11 certificates, the root included, as the root search allows */
constexpr uint32_t kMaxPathCerts = 11;

/* A pathLenConstraint: absent is no limit; a negative value (malformed)
 * allows nothing below. */
bool PathLenExceeded(const VexaX509Extensions &ext, uint32_t intermediates)
{
    if (ext.pathLenConstraint.data == nullptr) {
        return false;
    }
    const uint32_t limit = ext.pathLenValue >= 0x80000000u ? 0 : ext.pathLenValue;
    return intermediates > limit;
}

bool SelfIssued(const VexaX509Cert *cert)
{
    return VexaX509NameCompare(&cert->tbsCertificate.subject, &cert->tbsCertificate.issuer) == 0;
}

} // namespace

uint32_t InternalCheckPathConstraints(const VexaX509Cert *first)
{
    uint32_t intermediates = 0; /* non-self-issued certificates between `first` and the current one */
    const VexaX509Cert *cert = first;
    for (uint32_t depth = 0; depth < kMaxPathCerts; depth++) {
        if (cert == nullptr) {
            break;
        }
        if (cert->verifiedIssuer == cert) {
            return VEXA_OK; /* the self-signed root: its extensions bind nothing here */
        }
        const VexaX509Extensions &ext = cert->tbsCertificate.extensions;
        if (ext.unprocessedCritical == 1) {
            VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_UNPROCESSED_CRITICAL,
                     "Certificate has a critical extension that is not processed.");
            return VEXA_ERR_UNPROCESSED_CRITICAL;
        }
        if (ext.basicConstraintsCa == 1 && PathLenExceeded(ext, intermediates)) {
            VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_PATH_LENGTH, "Certificate path exceeds a pathLenConstraint.");
            return VEXA_ERR_PATH_LENGTH;
        }
        if (depth > 0 && !SelfIssued(cert)) {
            intermediates++;
        }
        cert = cert->verifiedIssuer;
    }
    /* a verified walk always reaches its root; anything else is refused */
    VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_NO_ROOT, "Certificate path has no proven root.");
    return VEXA_ERR_NO_ROOT;
}
