// SPDX-License-Identifier: Apache-2.0
#include "verify/input_decode.h"

#include <string.h>

#include <kestrel/kestrel.h>

#include "verify/base64.h"
#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

constexpr char kBegin[] = "-----BEGIN";
constexpr char kEnd[] = "-----END";
constexpr char kDashes[] = "-----";
constexpr char kCertBegin[] = "-----BEGIN CERTIFICATE-----";
constexpr char kCertEnd[] = "-----END CERTIFICATE-----";
constexpr char kCrlBegin[] = "-----BEGIN X509 CRL-----";
constexpr char kCrlEnd[] = "-----END X509 CRL-----";
constexpr char kCmsBegin[] = "-----BEGIN CMS-----";
constexpr char kCmsEnd[] = "-----END CMS-----";
constexpr char kPkcs7Begin[] = "-----BEGIN PKCS7-----";
constexpr char kPkcs7End[] = "-----END PKCS7-----";
/* Trailing bytes after the last DER record that are too few to be a record
 * (padding of a fixed-size block) are not an error. */
constexpr uint32_t kIgnoredTail = 32;

constexpr size_t Len(const char *s)
{
    return __builtin_strlen(s);
}

bool StartsWith(const char *text, const char *prefix)
{
    return strncmp(text, prefix, Len(prefix)) == 0;
}

/* strstr over [from, end), where end is the text's first NUL: the same
 * answer, without measuring the whole rest of the text at every call. */
const char *FindText(const char *from, const char *end, const char *needle)
{
    const size_t n = Len(needle);
    while (from < end && static_cast<size_t>(end - from) >= n) {
        const void *hit = memchr(from, needle[0], static_cast<size_t>(end - from) - n + 1);
        if (hit == nullptr) {
            return nullptr;
        }
        const char *at = static_cast<const char *>(hit);
        if (memcmp(at, needle, n) == 0) {
            return at;
        }
        from = at + 1;
    }
    return nullptr;
}

/* Where the next closing marker of one kind lies. The blocks of one input
 * are visited front to back, so a search from a later block can reuse an
 * earlier answer that is not behind it: each byte is searched once, and
 * thousands of unterminated blocks cost one pass, not one pass each. */
struct PemEndMemo {
    const char *textEnd; /* the text's first NUL: no search goes past it */
    const char *at;      /* first marker at or after the last search start; null: none */
    bool searched;
};

const char *FindEndMarker(const char *text, const char *endMarker, PemEndMemo *memo)
{
    if (memo == nullptr) {
        return strstr(text, endMarker);
    }
    if (!memo->searched || (memo->at != nullptr && memo->at < text)) {
        memo->at = FindText(text, memo->textEnd, endMarker);
        memo->searched = true;
    }
    return memo->at;
}

/* Finds the body between an opening marker and its closing marker. The text
 * is NUL-terminated; the body is refused when it would start past the
 * closing marker or be longer than the input it came from. */
uint32_t LocateBody(const char *text, uint32_t length, size_t bodyOffset, const char *endMarker,
                    uint32_t missingCode, const char **begin, const char **end, PemEndMemo *memo = nullptr)
{
    const char *close = FindEndMarker(text, endMarker, memo);
    if (close == nullptr) {
        (void)VEXA_FAIL(missingCode);
        return missingCode;
    }
    if (strnlen(text, bodyOffset) < bodyOffset || text + bodyOffset > close ||
        static_cast<uint64_t>(close - (text + bodyOffset)) > length) {
        (void)VEXA_FAIL(VEXA_ERR_INPUT_FORMAT);
        return VEXA_ERR_INPUT_FORMAT;
    }
    *begin = text + bodyOffset;
    *end = close;
    return VEXA_OK;
}

/* The context keeps every DER buffer its records point into. */
uint32_t KeepBuffer(VexaVerifyCtx *ctx, uint8_t *der)
{
    return VexaListAppend(&ctx->decodedBuffers, der);
}

uint32_t PemDecodeCert(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Cert **out, PemEndMemo *memo);
uint32_t PemDecodeCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Crl **out, PemEndMemo *memo);

void InternalPemAddCert(VexaVerifyCtx *ctx, const char *start, const char *end, VexaList *list, PemEndMemo *memo)
{
    VexaX509Cert *cert = nullptr;
    if (PemDecodeCert(ctx, start, static_cast<uint32_t>(end - start), &cert, memo) != VEXA_OK) {
        return; /* a damaged block is skipped; the others still count */
    }
    if (list == nullptr || VexaListAppend(list, cert) != VEXA_OK) {
        VexaX509FreeCert(cert);
    }
}

void InternalPemAddCrl(VexaVerifyCtx *ctx, const char *start, const char *end, VexaList *list, PemEndMemo *memo)
{
    VexaX509Crl *crl = nullptr;
    if (PemDecodeCrl(ctx, start, static_cast<uint32_t>(end - start), &crl, memo) != VEXA_OK) {
        return;
    }
    if (list == nullptr || VexaListAppend(list, crl) != VEXA_OK) {
        VexaX509FreeCrl(crl);
    }
}

} // namespace

uint32_t InternalBase64Decode(const char *begin, const char *end, uint8_t **out, uint32_t *outLen)
{
    const uint32_t textLen = static_cast<uint32_t>(end - begin);
    uint32_t size = 0;
    uint32_t ret = VexaBase64Decode(begin, textLen, nullptr, &size);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    if (size == 0) {
        (void)VEXA_FAIL(VEXA_ERR_INPUT_FORMAT);
        return VEXA_ERR_INPUT_FORMAT;
    }
    uint8_t *der = nullptr;
    ret = VexaMalloc(reinterpret_cast<void **>(&der), size);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    uint32_t written = size;
    ret = VexaBase64Decode(begin, textLen, der, &written);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        VexaFree(der);
        return ret;
    }
    *out = der;
    *outLen = written;
    return VEXA_OK;
}

namespace {

/* One armoured certificate or CRL: where its body starts, how it ends, and
 * the decoder and release of its record. */
template <typename Record>
struct PemKind {
    const char *begin;
    size_t bodyOffset;
    const char *end;
    uint32_t (*decode)(const uint8_t *, uint32_t, Record **, uint32_t *);
    void (*release)(Record *);
};

/* Failures are recorded under the caller's name (`function`). */
template <typename Record>
uint32_t PemDecodeRecord(VexaVerifyCtx *ctx, const char *text, uint32_t length, const PemKind<Record> &kind,
                         Record **out, const char *function, PemEndMemo *memo)
{
    if (!StartsWith(text, kind.begin)) {
        return VEXA_ERR_INPUT_FORMAT;
    }
    const char *begin = nullptr;
    const char *end = nullptr;
    uint32_t ret = LocateBody(text, length, kind.bodyOffset, kind.end, VEXA_ERR_INPUT_FORMAT, &begin, &end, memo);
    if (ret != VEXA_OK) {
        return ret;
    }
    uint8_t *der = nullptr;
    uint32_t derLen = 0;
    if (InternalBase64Decode(begin, end, &der, &derLen) != VEXA_OK) {
        return VexaLogFailure(VEXA_ERR_INPUT_FORMAT, static_cast<uint32_t>(__LINE__), function);
    }
    Record *record = nullptr;
    uint32_t consumed = 0;
    ret = kind.decode(der, derLen, &record, &consumed);
    if (ret == VEXA_OK) {
        ret = KeepBuffer(ctx, der);
    }
    if (ret != VEXA_OK) {
        (void)VexaLogFailure(ret, static_cast<uint32_t>(__LINE__), function);
        kind.release(record);
        VexaFree(der);
        *out = nullptr;
        return ret;
    }
    *out = record;
    return VEXA_OK;
}

/* The certificate body starts after the marker and its one line-break
 * character, the CRL body directly after its marker. */
constexpr PemKind<VexaX509Cert> kPemCert = {kCertBegin, Len(kCertBegin) + 1, kCertEnd, VexaX509DecodeCert,
                                            VexaX509FreeCert};
constexpr PemKind<VexaX509Crl> kPemCrl = {kCrlBegin, Len(kCrlBegin), kCrlEnd, VexaX509DecodeCrl, VexaX509FreeCrl};

uint32_t PemDecodeCert(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Cert **out, PemEndMemo *memo)
{
    return PemDecodeRecord(ctx, text, length, kPemCert, out, "InternalPemDecodeCert", memo);
}

uint32_t PemDecodeCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Crl **out, PemEndMemo *memo)
{
    return PemDecodeRecord(ctx, text, length, kPemCrl, out, "InternalPemDecodeCrl", memo);
}

} // namespace

uint32_t InternalPemDecodeCert(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Cert **out)
{
    return PemDecodeCert(ctx, text, length, out, nullptr);
}

uint32_t InternalPemDecodeCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaX509Crl **out)
{
    return PemDecodeCrl(ctx, text, length, out, nullptr);
}

uint32_t InternalPemDecodeCms(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaPkcs7Content **out)
{
    const char *begin = nullptr;
    const char *end = nullptr;
    uint32_t ret;
    if (StartsWith(text, kCmsBegin)) {
        ret = LocateBody(text, length, Len(kCmsBegin), kCmsEnd, VEXA_ERR_INPUT_FORMAT, &begin,
                         &end);
    } else if (StartsWith(text, kPkcs7Begin)) {
        ret = LocateBody(text, length, Len(kPkcs7Begin), kPkcs7End, VEXA_ERR_GENERIC, &begin,
                         &end);
    } else {
        return VEXA_ERR_INPUT_FORMAT;
    }
    if (ret != VEXA_OK) {
        return ret;
    }
    uint8_t *der = nullptr;
    uint32_t derLen = 0;
    ret = InternalBase64Decode(begin, end, &der, &derLen);
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        return ret;
    }
    VexaPkcs7Content *content = nullptr;
    uint32_t consumed = 0;
    ret = VexaPkcs7DecodeContent(der, derLen, &content, &consumed);
    if (ret == VEXA_OK) {
        ret = KeepBuffer(ctx, der);
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        VexaPkcs7FreeContent(content);
        VexaFree(der);
        *out = nullptr;
        return ret;
    }
    *out = content;
    return VEXA_OK;
}

uint32_t InternalDecodePemCertCrl(VexaVerifyCtx *ctx, const char *text, uint32_t length, VexaList *certs,
                                  VexaList *crls)
{
    if (text == nullptr || length == 0) {
        (void)VEXA_FAIL(VEXA_ERR_PARAM);
        return VEXA_ERR_PARAM;
    }
    /* Every search below starts before the first NUL and stops there. */
    const char *textEnd = text + strnlen(text, length);
    PemEndMemo certEnd{textEnd, nullptr, false};
    PemEndMemo crlEnd{textEnd, nullptr, false};
    const char *p = FindText(text, textEnd, kBegin);
    while (p != nullptr) {
        const char *label = p + Len(kBegin);
        if (*label != '\0') {
            label++; /* one separator */
        }
        const char *e = FindText(p, textEnd, kEnd);
        if (e == nullptr) {
            (void)VEXA_FAIL(VEXA_ERR_INPUT_FORMAT);
            return VEXA_ERR_INPUT_FORMAT;
        }
        const char *t = FindText(e + Len(kEnd), textEnd, kDashes);
        if (t == nullptr) {
            (void)VEXA_FAIL(VEXA_ERR_INPUT_FORMAT);
            return VEXA_ERR_INPUT_FORMAT;
        }
        const char *blockEnd = t + Len(kDashes);
        if (StartsWith(label, "CERTIFICATE")) {
            InternalPemAddCert(ctx, p, blockEnd, certs, &certEnd);
        } else if (StartsWith(label, "X509 CRL")) {
            InternalPemAddCrl(ctx, p, blockEnd, crls, &crlEnd);
        }
        p = FindText(blockEnd, textEnd, kBegin);
    }
    return VEXA_OK;
}

uint32_t InternalDecodeStreamCertCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaList *certs,
                                     VexaList *crls)
{
    uint8_t *copy = nullptr;
    uint32_t ret = VexaMalloc(reinterpret_cast<void **>(&copy), length);
    if (ret != VEXA_OK) {
        return ret;
    }
    int copied = memcpy_s(copy, length, data, length);
    if (copied != 0) {
        (void)VEXA_FAIL(static_cast<uint32_t>(copied));
        VexaFree(copy);
        return static_cast<uint32_t>(copied);
    }
    ret = KeepBuffer(ctx, copy);
    if (ret != VEXA_OK) {
        VexaFree(copy);
        return ret;
    }
    uint32_t pos = 0;
    while (pos < length) {
        const uint32_t left = length - pos;
        uint32_t consumed = 0;
        VexaX509Cert *cert = nullptr;
        if (VexaX509DecodeCert(copy + pos, left, &cert, &consumed) == VEXA_OK) {
            if (certs == nullptr) {
                VexaX509FreeCert(cert);
            } else if ((ret = VexaListAppend(certs, cert)) != VEXA_OK) {
                (void)VEXA_FAIL(ret);
                VexaX509FreeCert(cert);
                return ret;
            }
        } else {
            VexaX509Crl *crl = nullptr;
            ret = VexaX509DecodeCrl(copy + pos, left, &crl, &consumed);
            if (ret != VEXA_OK) {
                return left <= kIgnoredTail ? VEXA_OK : ret;
            }
            if (crls == nullptr) {
                VexaX509FreeCrl(crl);
            } else if ((ret = VexaListAppend(crls, crl)) != VEXA_OK) {
                (void)VEXA_FAIL(ret);
                VexaX509FreeCrl(crl);
                return ret;
            }
        }
        if (consumed == 0 || consumed > left) {
            return VEXA_OK; /* never loop in place or step past the end */
        }
        pos += consumed;
    }
    return VEXA_OK;
}

uint32_t InternalDecodeCertCrl(VexaVerifyCtx *ctx, const uint8_t *data, uint32_t length, VexaList *certs,
                               VexaList *crls)
{
    if (length < VEXA_MIN_INPUT_LEN) {
        return VEXA_ERR_INPUT_FORMAT;
    }
    if (memcmp(data, kBegin, Len(kBegin)) != 0) {
        return InternalDecodeStreamCertCrl(ctx, data, length, certs, crls);
    }
    /* PEM markers are searched as strings: work on a terminated copy */
    char *text = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&text), length + 1);
    if (ret != VEXA_OK) {
        return ret;
    }
    int copied = memcpy_s(text, length + 1, data, length);
    if (copied != 0) {
        VexaFree(text);
        return static_cast<uint32_t>(copied);
    }
    ret = InternalDecodePemCertCrl(ctx, text, length, certs, crls);
    VexaFree(text);
    return ret;
}
