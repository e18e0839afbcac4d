// SPDX-License-Identifier: Apache-2.0
/* Certificates and CRLs as reference-counted decoded records. */
#include "base/diagnostics.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kUniversalClass = 0;

} // namespace

extern "C" uint32_t VexaX509DecodeCert(const uint8_t *buffer, uint32_t length, VexaX509Cert **cert,
                                       uint32_t *consumed)
{
    VEXA_ENSURE(buffer != nullptr && length != 0 && cert != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    void *record = nullptr;
    VEXA_GUARD(VexaAsnDecodeItem(buffer, length, &g_itemVexaX509Cert, 0, &record, consumed));
    VexaX509Cert *decoded = static_cast<VexaX509Cert *>(record);
    decoded->refCount = 1;
    *cert = decoded;
    return VEXA_OK;
}

extern "C" uint32_t VexaX509DecodeCrl(const uint8_t *buffer, uint32_t length, VexaX509Crl **crl, uint32_t *consumed)
{
    VEXA_ENSURE(buffer != nullptr && length != 0 && crl != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    void *record = nullptr;
    VEXA_GUARD(VexaAsnDecodeItem(buffer, length, &g_itemVexaX509Crl, 0, &record, consumed));
    VexaX509Crl *decoded = static_cast<VexaX509Crl *>(record);
    decoded->refCount = 1;
    *crl = decoded;
    return VEXA_OK;
}

/* A count of 0 can only be a record that was never handed out properly;
 * releasing it beats wrapping the count round. */
extern "C" void VexaX509FreeCert(VexaX509Cert *cert)
{
    if (cert == nullptr) {
        return;
    }
    if (cert->refCount > 1) {
        cert->refCount--;
        return;
    }
    VexaFree(cert);
}

extern "C" void VexaX509FreeCrl(VexaX509Crl *crl)
{
    if (crl == nullptr) {
        return;
    }
    if (crl->refCount > 1) {
        crl->refCount--;
        return;
    }
    VexaFree(crl);
}

extern "C" uint32_t VexaX509DecodeCertFromOcts(const VexaAsnOcts *view, VexaX509Cert **cert, uint32_t *consumed)
{
    VEXA_ENSURE(view != nullptr && cert != nullptr && consumed != nullptr, VEXA_ERR_PARAM);
    VEXA_ENSURE(view->tagClass == kUniversalClass &&
                    view->constructed == static_cast<uint32_t>(g_itemVexaX509Cert.constructed) &&
                    view->tagNumber == g_itemVexaX509Cert.tagNumber,
                VEXA_ERR_CERT_FORMAT);
    VEXA_GUARD(VexaX509DecodeCert(view->data, view->len, cert, consumed));
    return VEXA_OK;
}
