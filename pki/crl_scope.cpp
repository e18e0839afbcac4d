// SPDX-License-Identifier: Apache-2.0
/* Whether a CRL can prove that a certificate is not revoked. A CRL that
 * carries a critical extension the library does not process, a delta CRL
 * (it lists only changes since its base), or one whose issuingDistribution-
 * Point scope leaves the certificate out says nothing about it, and must
 * never be taken as proof. */
#include "pki/pki.h"

#include "asn1/distribution_points.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

/* Only the first 32 names of a list and the first 32 points of a
 * certificate are compared: a real certificate names a handful, and a
 * crafted pair of long lists must not cost the product of their lengths.
 * A name further down is not found, so the CRL is no candidate. */
constexpr uint32_t kMaxNames = 32;
constexpr uint32_t kFullName = 0;
constexpr uint32_t kRelativeName = 1;
constexpr uint32_t kDirectoryName = 4;

bool Present(const VexaAsnOcts &v)
{
    return v.data != nullptr || v.tagClass != 0 || v.tagNumber != 0;
}

/* A view of an element's content, read with the DER cursor; the element
 * must fill `whole` exactly. */
bool ContentOf(const VexaAsnOcts &whole, VexaAsnTag *tag, VexaAsnOcts *content)
{
    VexaAsnStream s{};
    if (whole.data == nullptr || VexaAsnStreamInit(&s, whole.data, whole.len) != VEXA_OK) {
        return false;
    }
    VexaAsnStream peek = s;
    uint32_t len = 0;
    VexaAsnTag got{};
    if (VexaAsnReadTag(&peek, tag) != VEXA_OK || VexaAsnReadHeader(&s, tag, &len, &got) != VEXA_OK ||
        len != s.length - s.pos) {
        return false;
    }
    *content = VexaAsnOcts{len, tag->tagClass, tag->constructed, tag->tagNumber, whole.data + s.pos};
    return true;
}

/* A distribution point name as one GeneralName list (fullName) or as a
 * relative name to be put after an issuer (nameRelativeToCRLIssuer). */
struct PointName {
    uint32_t form;
    VexaAsnOcts names;  /* fullName: the GeneralName elements; relative: the RDN's content */
    VexaAsnOcts issuer; /* relative: the issuer Name element it extends */
};

bool Equal(const uint8_t *a, uint32_t aLen, const uint8_t *b, uint32_t bLen)
{
    return aLen == bLen && (aLen == 0 || VexaMemCmp(a, b, aLen) == 0);
}

/* Reads the next whole element of `s` into `out`. */
bool NextElement(VexaAsnStream *s, VexaAsnOcts *out)
{
    const uint32_t start = s->pos;
    VexaAsnStream peek = *s;
    VexaAsnTag tag{};
    uint32_t len = 0;
    VexaAsnTag got{};
    if (VexaAsnReadTag(&peek, &tag) != VEXA_OK || VexaAsnReadHeader(s, &tag, &len, &got) != VEXA_OK ||
        len > 0x7FFFFFFFu || VexaAsnSkip(s, static_cast<int32_t>(len), VEXA_ASN_SEEK_CUR) != VEXA_OK) {
        return false;
    }
    *out = VexaAsnOcts{s->pos - start, tag.tagClass, tag.constructed, tag.tagNumber, s->data + start};
    return true;
}

/* A GeneralName equal to the directoryName issuer + RDN: [4] holding a Name
 * whose RDNs are the issuer's followed by the relative one. */
bool MatchesResolved(const VexaAsnOcts &generalName, const PointName &rel)
{
    VexaAsnTag tag{};
    VexaAsnOcts inner{};
    if (!ContentOf(generalName, &tag, &inner) || tag.tagClass != kAsnClassContext ||
        tag.tagNumber != kDirectoryName || tag.constructed != 1) {
        return false;
    }
    VexaAsnOcts nameContent{};
    VexaAsnOcts issuerContent{};
    VexaAsnTag nameTag{};
    VexaAsnTag issuerTag{};
    if (!ContentOf(inner, &nameTag, &nameContent) || !ContentOf(rel.issuer, &issuerTag, &issuerContent) ||
        nameTag.tagNumber != VEXA_ASN_TAG_SEQUENCE || nameContent.len < issuerContent.len ||
        !Equal(nameContent.data, issuerContent.len, issuerContent.data, issuerContent.len)) {
        return false;
    }
    /* what follows the issuer's RDNs must be exactly one SET: the relative RDN */
    const VexaAsnOcts last{nameContent.len - issuerContent.len, 0, 0, 0, nameContent.data + issuerContent.len};
    VexaAsnOcts rdn{};
    VexaAsnTag rdnTag{};
    return ContentOf(last, &rdnTag, &rdn) && rdnTag.tagClass == kAsnClassUniversal && rdnTag.constructed == 1 &&
           rdnTag.tagNumber == VEXA_ASN_TAG_SET && Equal(rdn.data, rdn.len, rel.names.data, rel.names.len);
}

/* Whether one of the first kMaxNames GeneralName elements of `names`
 * satisfies `match`. */
template <class Match>
bool AnyName(const VexaAsnOcts &names, Match match)
{
    VexaAsnStream s{};
    if (names.data == nullptr || VexaAsnStreamInit(&s, names.data, names.len) != VEXA_OK) {
        return false;
    }
    for (uint32_t n = 0; s.pos < s.length && n < kMaxNames; n++) {
        VexaAsnOcts name{};
        if (!NextElement(&s, &name)) {
            return false;
        }
        if (match(name)) {
            return true;
        }
    }
    return false;
}

bool SameEncoding(const VexaAsnOcts &a, const VexaAsnOcts &b)
{
    return Equal(a.data, a.len, b.data, b.len);
}

/* Two distribution point names name the same point when one GeneralName of
 * each is equal as encoded, a relative name standing for its issuer's Name
 * with the RDN added. */
bool SamePoint(const PointName &a, const PointName &b)
{
    if (a.form == kFullName && b.form == kFullName) {
        return AnyName(a.names, [&b](const VexaAsnOcts &x) {
            return AnyName(b.names, [&x](const VexaAsnOcts &y) { return SameEncoding(x, y); });
        });
    }
    if (a.form == kRelativeName && b.form == kRelativeName) {
        return SameEncoding(a.issuer, b.issuer) && SameEncoding(a.names, b.names);
    }
    const PointName &full = a.form == kFullName ? a : b;
    const PointName &relative = a.form == kFullName ? b : a;
    return AnyName(full.names, [&relative](const VexaAsnOcts &x) { return MatchesResolved(x, relative); });
}

/* `name` is a DistributionPointName element's content view (tag [0] or [1]). */
bool ToPointName(const VexaAsnOcts &name, const VexaAsnOcts &issuer, PointName *out)
{
    if (name.tagClass != kAsnClassContext || name.constructed != 1 ||
        (name.tagNumber != kFullName && name.tagNumber != kRelativeName)) {
        return false;
    }
    *out = PointName{name.tagNumber, name, issuer};
    return true;
}

/* The IDP keeps the [0] content: the DistributionPointName element whole. */
bool IdpPointName(const VexaX509Crl *crl, PointName *out)
{
    VexaAsnTag tag{};
    VexaAsnOcts content{};
    return ContentOf(crl->tbsCertList.crlExtensions.issuingDistributionPoint.distributionPoint, &tag, &content) &&
           ToPointName(content, crl->tbsCertList.issuerRaw, out);
}

/* The certificate names the CRL's point among its own distribution points
 * (one without a cRLIssuer: those name another CRL issuer's CRLs). */
bool CertNamesPoint(const VexaX509Cert *cert, const PointName &idp)
{
    VexaAsnTag tag{};
    VexaAsnOcts points{};
    if (!ContentOf(cert->tbsCertificate.extensions.cRLDistributionPoints, &tag, &points)) {
        return false;
    }
    VexaAsnStream s{};
    if (points.data == nullptr || VexaAsnStreamInit(&s, points.data, points.len) != VEXA_OK) {
        return false;
    }
    for (uint32_t n = 0; s.pos < s.length && n < kMaxNames; n++) {
        VexaX509DistributionPoint point{};
        if (VexaX509NextDistributionPoint(&s, &point) != VEXA_OK) {
            return false;
        }
        PointName own{};
        if (!Present(point.cRLIssuer) && ToPointName(point.distributionPoint, cert->tbsCertificate.issuerRaw, &own) &&
            SamePoint(idp, own)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool InternalCrlCovers(const VexaX509Crl *crl, const VexaX509Cert *cert)
{
    const VexaX509TbsCrl &tbs = crl->tbsCertList;
    if (tbs.crlExtensions.unprocessedCritical == 1 || Present(tbs.crlExtensions.deltaCrlIndicator)) {
        return false;
    }
    const uint32_t n = tbs.revokedCertificates.count < VEXA_X509_MAX_REVOKED ? tbs.revokedCertificates.count
                                                                             : VEXA_X509_MAX_REVOKED;
    for (uint32_t i = 0; i < n; i++) {
        if (tbs.revokedCertificates.entries[i].unprocessedCritical == 1) {
            return false;
        }
    }
    const VexaX509Idp &idp = tbs.crlExtensions.issuingDistributionPoint;
    const bool ca = cert->tbsCertificate.extensions.basicConstraintsCa == 1;
    if ((idp.onlyContainsUserCerts == 1 && ca) || (idp.onlyContainsCACerts == 1 && !ca) ||
        idp.onlyContainsAttributeCerts == 1 || Present(idp.onlySomeReasons)) {
        return false;
    }
    if (!Present(idp.distributionPoint)) {
        return true;
    }
    PointName point{};
    return IdpPointName(crl, &point) && CertNamesPoint(cert, point);
}
