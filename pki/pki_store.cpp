// SPDX-License-Identifier: Apache-2.0
/* The store of one context: its certificates and CRLs in order of addition,
 * each held by one reference. Every search walks from the first entry, so
 * the first one added wins. */
#include "pki/pki.h"

#include "base/diagnostics.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

/* Same record for the store: identical signature value octets. */
bool HoldsSignature(const VexaList *list, const VexaAsnOcts *signature, const VexaAsnOcts *(*sigOf)(const void *))
{
    for (uint32_t i = 0; i < list->count; i++) {
        if (list->items[i] != nullptr && VexaAsnOctsCompare(sigOf(list->items[i]), signature) == 0) {
            return true;
        }
    }
    return false;
}

const VexaAsnOcts *CertSignature(const void *cert)
{
    return &static_cast<const VexaX509Cert *>(cert)->signatureValue;
}

const VexaAsnOcts *CrlSignature(const void *crl)
{
    return &static_cast<const VexaX509Crl *>(crl)->signatureValue;
}

void FreeCertEntry(void *cert)
{
    VexaX509FreeCert(static_cast<VexaX509Cert *>(cert));
}

void FreeCrlEntry(void *crl)
{
    VexaX509FreeCrl(static_cast<VexaX509Crl *>(crl));
}

} // namespace

uint32_t VexaPkiCreateStore(VexaVerifyCtx *ctx)
{
    if (ctx == nullptr) {
        return VEXA_ERR_PARAM;
    }
    VexaPkiStore *store = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&store), sizeof(VexaPkiStore));
    if (ret != VEXA_OK) {
        return ret;
    }
    ctx->store = store;
    return VEXA_OK;
}

void VexaPkiFreeStore(VexaVerifyCtx *ctx)
{
    if (ctx == nullptr || ctx->store == nullptr) {
        return;
    }
    VexaListFreeAll(&ctx->store->certs, FreeCertEntry);
    VexaListFreeAll(&ctx->store->crls, FreeCrlEntry);
    VexaFree(ctx->store);
    ctx->store = nullptr;
}

uint32_t VexaPkiAddCert(VexaVerifyCtx *ctx, VexaX509Cert *cert)
{
    if (ctx == nullptr || cert == nullptr || ctx->store == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (HoldsSignature(&ctx->store->certs, &cert->signatureValue, CertSignature)) {
        return VEXA_ERR_CERT_EXISTS;
    }
    uint32_t ret = VexaListAppend(&ctx->store->certs, cert);
    if (ret != VEXA_OK) {
        return ret;
    }
    cert->refCount++;
    return VEXA_OK;
}

uint32_t VexaPkiAddCrl(VexaVerifyCtx *ctx, VexaX509Crl *crl)
{
    if (ctx == nullptr || crl == nullptr || ctx->store == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (HoldsSignature(&ctx->store->crls, &crl->signatureValue, CrlSignature)) {
        return VEXA_ERR_CRL_EXISTS;
    }
    uint32_t ret = VexaListAppend(&ctx->store->crls, crl);
    if (ret != VEXA_OK) {
        return ret;
    }
    crl->refCount++;
    return VEXA_OK;
}

/* Names are equal when they have as many RDNs and each RDN's first
 * attribute has the same type and value octets and the value the same
 * string type: no case folding and no normalisation, so a re-encoded name
 * is a different name. */
int32_t VexaX509NameCompare(const VexaX509Name *a, const VexaX509Name *b)
{
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(VEXA_ERR_PARAM);
    }
    if (a->count != b->count || a->count > VEXA_X509_NAME_MAX_RDNS) {
        return -1;
    }
    for (uint32_t i = 0; i < a->count; i++) {
        const VexaX509AttrTypeAndValue *x = &a->rdns[i].attrs[0];
        const VexaX509AttrTypeAndValue *y = &b->rdns[i].attrs[0];
        if (VexaAsnOctsCompare(&x->type, &y->type) != 0 || x->value.tagNumber != y->value.tagNumber ||
            VexaAsnOctsCompare(&x->value, &y->value) != 0) {
            return -1;
        }
    }
    return 0;
}

VexaX509Cert *VexaPkiFindCertByIssuerSerial(const VexaVerifyCtx *ctx, const VexaX509Name *issuer,
                                            const VexaAsnOcts *serial)
{
    if (ctx == nullptr || issuer == nullptr || serial == nullptr || issuer->count == 0 || serial->len == 0 ||
        ctx->store == nullptr) {
        return nullptr;
    }
    const VexaList *certs = &ctx->store->certs;
    for (uint32_t i = 0; i < certs->count; i++) {
        VexaX509Cert *cert = static_cast<VexaX509Cert *>(certs->items[i]);
        if (cert != nullptr && VexaX509NameCompare(&cert->tbsCertificate.issuer, issuer) == 0 &&
            VexaAsnOctsCompare(&cert->tbsCertificate.serialNumber, serial) == 0) {
            return cert;
        }
    }
    return nullptr;
}

bool InternalHasKeyUsage(const VexaX509Cert *cert, uint32_t bit)
{
    /* By position, not by the packed number: in a two-octet string the
     * second octet's bits (decipherOnly) must not stand in for the first's. */
    const VexaAsnOcts *bits = &cert->tbsCertificate.extensions.keyUsageBits;
    const uint32_t octet = bit / 8;
    if (bits->data == nullptr || octet >= bits->len) {
        return false;
    }
    return (bits->data[octet] & (0x80u >> (bit % 8))) != 0;
}

/* The check itself; VexaPkiFindCrlSigner remembers its outcome per pair of
 * stored records. */
int32_t InternalIsCrlSigner(const VexaX509Crl *crl, const VexaX509Cert *cert)
{
    int32_t cmp = VexaX509NameCompare(&crl->tbsCertList.issuer, &cert->tbsCertificate.subject);
    if (cmp != 0) {
        return cmp;
    }
    if (!InternalHasKeyUsage(cert, VEXA_KU_BIT_CRL_SIGN)) {
        return static_cast<int32_t>(VEXA_ERR_KEY_USAGE);
    }
    uint32_t verdict = 0;
    uint32_t ret = VexaX509PubKeyVerify(crl->tbsCertListRaw.data, crl->tbsCertListRaw.len, crl->signatureValue.data,
                                        crl->signatureValue.len,
                                        &cert->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey,
                                        &crl->signatureAlgorithm, &verdict);
    if (ret != VEXA_OK || verdict != 1) {
        return static_cast<int32_t>(VEXA_ERR_CRL_SIGNATURE);
    }
    return 0;
}

VexaX509Cert *VexaPkiFindCrlSigner(const VexaVerifyCtx *ctx, const VexaX509Crl *crl)
{
    if (ctx == nullptr || ctx->store == nullptr || crl == nullptr) {
        return nullptr;
    }
    VexaPkiMemo *memo = &ctx->store->memo;
    const int32_t crlIndex = InternalStoreIndexOf(&ctx->store->crls, crl);
    const VexaList *certs = &ctx->store->certs;
    for (uint32_t i = 0; i < certs->count && i < VEXA_LIST_CAPACITY; i++) {
        VexaX509Cert *cert = static_cast<VexaX509Cert *>(certs->items[i]);
        if (cert == nullptr) {
            continue;
        }
        int32_t ret;
        if (crlIndex < 0) {
            ret = InternalIsCrlSigner(crl, cert);
        } else if (memo->crlSignerKnown[crlIndex][i] != 0) {
            ret = memo->crlSigner[crlIndex][i];
        } else {
            ret = InternalIsCrlSigner(crl, cert);
            memo->crlSigner[crlIndex][i] = ret;
            memo->crlSignerKnown[crlIndex][i] = 1;
        }
        if (ret == 0) {
            return cert;
        }
    }
    return nullptr;
}
