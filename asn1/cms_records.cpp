// SPDX-License-Identifier: Apache-2.0
/* CMS ContentInfo with SignedData, and the certificates it carries. */
#include "base/diagnostics.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_services.h"

namespace {

void InternalFreeCertEntry(void *entry)
{
    VexaX509FreeCert(static_cast<VexaX509Cert *>(entry));
}

/* One embedded certificate into decodedCerts. */
uint32_t InternalDecodeCert(VexaPkcs7SignedData *signedData, const VexaAsnOcts *view)
{
    VexaX509Cert *cert = nullptr;
    uint32_t used = 0;
    if (VexaX509DecodeCertFromOcts(view, &cert, &used) != VEXA_OK) {
        return VEXA_FAIL(VEXA_ERR_CMS_DECODE);
    }
    if (VexaListAppend(&signedData->decodedCerts, cert) != VEXA_OK) {
        VexaX509FreeCert(cert);
        return VEXA_FAIL(VEXA_ERR_CMS_DECODE);
    }
    return VEXA_OK;
}

} // namespace

extern "C" uint32_t VexaPkcs7DecodeContent(const uint8_t *buffer, uint32_t length, VexaPkcs7Content **content,
                                           uint32_t *consumed)
{
    VEXA_ENSURE(buffer != nullptr && length != 0 && content != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    void *record = nullptr;
    VEXA_ENSURE(VexaAsnDecodeItem(buffer, length, &g_itemVexaPkcs7Content, 0, &record, consumed) == VEXA_OK,
                VEXA_ERR_CMS_DECODE);
    VexaPkcs7Content *decoded = static_cast<VexaPkcs7Content *>(record);
    VexaPkcs7SignedData *signedData = &decoded->content;
    /* the list decoder never fills more slots than the array holds */
    const uint32_t count = signedData->certificates.count;
    for (uint32_t i = 0; i < count && i < VEXA_PKCS7_CERT_SLOTS; i++) {
        if (InternalDecodeCert(signedData, &signedData->certificates.certs[i]) != VEXA_OK) {
            VexaPkcs7FreeContent(decoded);
            return VEXA_FAIL(VEXA_ERR_CMS_DECODE);
        }
    }
    *content = decoded;
    return VEXA_OK;
}

extern "C" void VexaPkcs7FreeContent(VexaPkcs7Content *content)
{
    if (content == nullptr) {
        return;
    }
    VexaListFreeAll(&content->content.decodedCerts, InternalFreeCertEntry);
    VexaFree(content);
}
