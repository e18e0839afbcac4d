// SPDX-License-Identifier: Apache-2.0
/* RSA public keys out of certificates, one signature check over a byte
 * range, and names as short text. */
#include <string.h>

#include <kestrel/kestrel.h>

#include "asn1/x509_signature.h"
#include "base/diagnostics.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

constexpr uint32_t kNameStringSize = 256;
constexpr uint32_t kAttrScratchSize = 128;

struct AttrPrefix {
    int32_t id;
    const char *prefix;
};

constexpr AttrPrefix kAttrPrefixes[] = {
    {AOID_AT_COMMONNAME, "CN="},        {AOID_AT_LOCALITYNAME, "L="},
    {AOID_AT_STATEORPROVINCENAME, "S="}, {AOID_AT_ORGANIZATIONNAME, "O="},
    {AOID_AT_ORGANIZATIONALUNITNAME, "OU="}, {AOID_AT_COUNTRYNAME, "C="},
    {AOID_PKCS9_AT_EMAILADDRESS, "E="},
};

const char *PrefixOf(int32_t id)
{
    for (const auto &p : kAttrPrefixes) {
        if (p.id == id) {
            return p.prefix;
        }
    }
    return "X=";
}

} // namespace

uint32_t InternalGetBigIntFromOcts(VexaBigInt *out, const VexaAsnOcts *view)
{
    if (out == nullptr || view == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (view->len > sizeof(out->bytes)) {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_GENERIC,
                        "Unsupported key length %d", static_cast<int>(view->len * 8));
        return VEXA_ERR_PARAM;
    }
    out->len = view->len;
    if (view->len == 0) {
        return VEXA_OK;
    }
    return static_cast<uint32_t>(memcpy_s(out->bytes, sizeof(out->bytes), view->data, view->len));
}

uint32_t VexaX509ExtractPublicKey(const VexaX509Cert *cert, VexaBigInt *exponent, VexaBigInt *modulus)
{
    if (cert == nullptr || exponent == nullptr || modulus == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const VexaRsaPubKey *key = &cert->tbsCertificate.subjectPublicKeyInfo.subjectPublicKey;
    const VexaAsnOcts *parts[2] = {&key->publicExponent, &key->modulus};
    VexaBigInt *outs[2] = {exponent, modulus};
    for (int i = 0; i < 2; i++) {
        outs[i]->len = parts[i]->len;
        if (parts[i]->len > sizeof(outs[i]->bytes)) {
            (void)VEXA_FAIL(VEXA_ERR_KEY_TOO_LONG);
            return VEXA_ERR_KEY_TOO_LONG;
        }
        if (parts[i]->len != 0) {
            int ret = memcpy_s(outs[i]->bytes, sizeof(outs[i]->bytes), parts[i]->data, parts[i]->len);
            if (ret != 0) {
                return static_cast<uint32_t>(ret);
            }
        }
    }
    return VEXA_OK;
}

uint32_t VexaX509PubKeyVerify(const uint8_t *data, uint32_t dataLen, const uint8_t *signature, uint32_t signatureLen,
                              const VexaRsaPubKey *key, const VexaX509AlgId *alg, uint32_t *result)
{
    if (data == nullptr || signature == nullptr || key == nullptr || alg == nullptr || result == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const uint32_t digest = VexaGetHashAlgFromOid(&alg->algorithm);
    if (digest == 0) {
        (void)VEXA_FAIL(VEXA_ERR_UNSUPPORTED_DIGEST);
        return VEXA_ERR_UNSUPPORTED_DIGEST;
    }
    VexaBigInt exponent = {};
    VexaBigInt modulus = {};
    uint32_t ret = InternalGetBigIntFromOcts(&exponent, &key->publicExponent);
    if (ret == VEXA_OK) {
        ret = InternalGetBigIntFromOcts(&modulus, &key->modulus);
    }
    if (ret != VEXA_OK) {
        return ret;
    }
    VexaCryptoCtx *ctx = nullptr;
    ret = VexaRsaVerifyCreate(&ctx);
    if (ret != VEXA_OK) {
        return ret;
    }
    uint32_t verdict = 0;
    ret = VexaRsaVerifyInit(ctx, &exponent, &modulus, digest);
    if (ret == VEXA_OK) {
        ret = VexaRsaVerifyUpdate(ctx, data, dataLen);
    }
    if (ret == VEXA_OK) {
        ret = VexaRsaVerifyFinal(ctx, signature, signatureLen, &verdict);
    }
    VexaRsaVerifyFree(ctx);
    if (ret != VEXA_OK) {
        return ret;
    }
    *result = verdict;
    return VEXA_OK;
}

uint32_t InternalGetMaxAttrLen(uint32_t bufSize, uint32_t used, uint32_t wanted)
{
    if (used >= bufSize) {
        return 0;
    }
    if (wanted < bufSize - used) {
        return wanted;
    }
    VEXA_LOG(VEXA_LOG_WARNING, VEXA_ERR_ATTR_TRUNCATED,
                    "attribute name too long, which is invalid.");
    return bufSize - used - 1;
}

uint32_t VexaX509FormatAttr(const VexaX509AttrTypeAndValue *attr, char *buf, uint32_t bufSize, const void *reserved)
{
    if (attr == nullptr || buf == nullptr || reserved == nullptr) {
        return VEXA_ERR_PARAM;
    }
    const int32_t id = VexaOidGetId(&attr->type);
    if (id == AOID_UNKNOWN) {
        return VEXA_ERR_CERT_FORMAT;
    }
    const char *prefix = PrefixOf(id);
    const uint32_t prefixLen = static_cast<uint32_t>(strlen(prefix));
    if (bufSize <= prefixLen || memcpy_s(buf, bufSize, prefix, prefixLen) != 0) {
        return VEXA_OK;
    }
    const uint32_t valueLen = InternalGetMaxAttrLen(bufSize, prefixLen, attr->value.len);
    if (valueLen != 0 && memcpy_s(buf + prefixLen, bufSize - prefixLen, attr->value.data, valueLen) != 0) {
        return VEXA_OK;
    }
    buf[prefixLen + valueLen] = '\0';
    return VEXA_OK;
}

uint32_t VexaX509NameToString(const VexaX509Name *name, char **out, uint32_t *outLen)
{
    if (name == nullptr || out == nullptr || outLen == nullptr) {
        return VEXA_ERR_PARAM;
    }
    char *str = nullptr;
    uint32_t ret = VexaMallocZero(reinterpret_cast<void **>(&str), kNameStringSize);
    if (ret != VEXA_OK) {
        return ret;
    }
    const uint32_t rdns = name->count < VEXA_X509_NAME_MAX_RDNS ? name->count : VEXA_X509_NAME_MAX_RDNS;
    for (uint32_t r = 0; r < rdns; r++) {
        const VexaX509Rdn *rdn = &name->rdns[r];
        const uint32_t attrs = rdn->count < VEXA_X509_RDN_MAX_ATTRS ? rdn->count : VEXA_X509_RDN_MAX_ATTRS;
        for (uint32_t a = 0; a < attrs; a++) {
            char scratch[kAttrScratchSize] = {0};
            const char marker = 0;
            ret = VexaX509FormatAttr(&rdn->attrs[a], scratch, sizeof(scratch), &marker);
            if (ret != VEXA_OK) {
                VexaFree(str);
                return ret;
            }
            const size_t have = strlen(str);
            const size_t add = strnlen(scratch, sizeof(scratch));
            if (have + add + 1 > kNameStringSize - 1) {
                break; /* the rest of this RDN is left out */
            }
            if ((have != 0 && strcat_s(str, kNameStringSize, ",") != 0) || strcat_s(str, kNameStringSize, scratch) != 0) {
                VexaFree(str);
                return VEXA_ERR_COPY;
            }
        }
    }
    *out = str;
    *outLen = static_cast<uint32_t>(strlen(str));
    return VEXA_OK;
}
