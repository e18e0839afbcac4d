// SPDX-License-Identifier: Apache-2.0
/* forge token: a signer's time-stamp token taken back out of a signature,
 * to check it alone (openssl ts -verify). */
#include <openssl/cms.h>
#include <openssl/err.h>

#include "cms.h"

namespace forge {

namespace {

const OptSpec kTokenOpts[] = {
    {"in", "FILE", "a signature made by forge sign (DER or PEM)"},
    {"signer", "N", "which signer, from 1 (default 1)"},
    {"out", "FILE", "where to write the signer's time-stamp token (DER ContentInfo)"},
    {"signature-out", "FILE", "where to write the signer's signature value (the bytes the "
                              "imprint should cover)"},
};

/* Everything one signer needs, gathered from its group of options. */
} // namespace

uint32_t RunToken(const Args &args)
{
    const std::string *inPath = nullptr;
    uint32_t rc = RequireOpt(args, "in", &inPath);
    if (rc != kOk) {
        return rc;
    }
    uint32_t index = 1;
    if (const std::string *n = FindOpt(args, "signer")) {
        rc = ParseU32(*n, &index);
        if (rc != kOk || index == 0) {
            Fail("--signer counts from 1");
            return kErrUsage;
        }
    }
    Bytes data;
    rc = ReadFile(*inPath, &data);
    if (rc != kOk) {
        return rc;
    }
    if (LooksLikePem(data)) {
        std::vector<PemBlock> blocks;
        rc = PemBlocks(data, &blocks);
        if (rc != kOk || blocks.empty()) {
            Fail("%s has no PEM block", inPath->c_str());
            return kErrInput;
        }
        data = blocks[0].der;
    }
    const unsigned char *p = data.data();
    CMS_ContentInfo *cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(data.size()));
    STACK_OF(CMS_SignerInfo) *infos = cms != nullptr ? CMS_get0_SignerInfos(cms) : nullptr;
    if (infos == nullptr || static_cast<int>(index) > sk_CMS_SignerInfo_num(infos)) {
        CMS_ContentInfo_free(cms);
        ERR_clear_error();
        Fail("%s has no signer %u", inPath->c_str(), index);
        return kErrInput;
    }
    CMS_SignerInfo *si = sk_CMS_SignerInfo_value(infos, static_cast<int>(index) - 1);
    ASN1_OCTET_STRING *sig = CMS_SignerInfo_get0_signature(si);
    Bytes sigValue(sig->data, sig->data + sig->length);
    ASN1_OBJECT *tokenOid = OBJ_txt2obj(kOidTimeStampToken, 1);
    int at = CMS_unsigned_get_attr_by_OBJ(si, tokenOid, -1);
    ASN1_OBJECT_free(tokenOid);
    X509_ATTRIBUTE *attr = at >= 0 ? CMS_unsigned_get_attr(si, at) : nullptr;
    ASN1_TYPE *value = attr != nullptr ? X509_ATTRIBUTE_get0_type(attr, 0) : nullptr;
    Bytes token;
    if (value != nullptr && value->type == V_ASN1_SEQUENCE) {
        token.assign(value->value.sequence->data,
                     value->value.sequence->data + value->value.sequence->length);
    }
    CMS_ContentInfo_free(cms);
    if (const std::string *sigOut = FindOpt(args, "signature-out")) {
        rc = WriteFile(*sigOut, sigValue);
        if (rc != kOk) {
            return rc;
        }
    }
    if (const std::string *tokenOut = FindOpt(args, "out")) {
        if (token.empty()) {
            Fail("signer %u of %s carries no time-stamp token", index, inPath->c_str());
            return kErrInput;
        }
        rc = WriteFile(*tokenOut, token);
    }
    return rc;
}

const Command kTokenCommand = {
    "token",
    "--in FILE [--signer N] [--out TOKEN] [--signature-out FILE]",
    "Writes a signer's time-stamp token and signature value from a signature, so that they can\n"
    "be checked on their own (openssl ts -verify -in TOKEN -token_in -data FILE ...).",
    kTokenOpts,
    sizeof(kTokenOpts) / sizeof(kTokenOpts[0]),
    RunToken,
};

} // namespace forge
