// SPDX-License-Identifier: Apache-2.0
/* forge inspect's reading of the signature block: BER or PEM as found, the
 * SignedData's signers with their certificates and tokens, and where its
 * encoding leaves what checktool reads. */
#include <string.h>

#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include "inspect.h"

namespace forge {

namespace {

/* The first indefinite length: one finding says what normalize fixes. */
void IndefiniteLengths(const BerNode &node, uint64_t base, Json *report, bool *any)
{
    if (node.indefinite && !*any) {
        AddFinding(report, base + node.start, "indefinite length (BER); checktool reads DER only",
                   "forge normalize --in SIG --out SIG.der re-encodes the signature as DER");
        *any = true;
    }
    for (const BerNode &c : node.children) {
        IndefiniteLengths(c, base, report, any);
    }
}

const BerNode *SignedDataNode(const BerNode &root)
{
    return root.children.size() == 2 && root.children[1].children.size() == 1 ? &root.children[1].children[0] : nullptr;
}

} // namespace

void SignatureReport(const Bytes &block, uint64_t base, Json *report)
{
    Bytes sig = block;
    Json s = Json::object();
    if (LooksLikePem(block)) {
        std::vector<PemBlock> pem;
        if (PemBlocks(block, &pem) != kOk || pem.empty()) {
            s["error"] = "PEM without a block";
            (*report)["signature"] = s;
            return;
        }
        s["armour"] = pem[0].label;
        sig = pem[0].der;
        base = 0; /* offsets below are in the decoded DER */
        s["offsetsIn"] = "the DER under the PEM armour";
    }
    BerParser parser{sig, {}, 0, false};
    BerNode root;
    if (!ParseBer(&parser, 0, sig.size(), 0, &root)) {
        s["error"] = "not BER: " + parser.why + " at offset " + std::to_string(base + parser.whyAt);
        (*report)["signature"] = s;
        return;
    }
    bool anyIndefinite = false;
    IndefiniteLengths(root, base, report, &anyIndefinite);
    const unsigned char *p = sig.data();
    CMS_ContentInfo *cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(sig.size()));
    if (cms == nullptr || OBJ_obj2nid(CMS_get0_type(cms)) != NID_pkcs7_signed) {
        s["error"] = "not a CMS SignedData";
        CMS_ContentInfo_free(cms);
        (*report)["signature"] = s;
        return;
    }
    const BerNode *signedData = SignedDataNode(root);
    STACK_OF(X509) *certs = CMS_get1_certs(cms);
    const Json certList = CertsReport(certs, sig, base, report);
    if (sk_X509_num(certs) > 2) {
        const BerNode *field = nullptr;
        for (const BerNode &c : signedData != nullptr ? signedData->children : root.children) {
            field = field == nullptr && c.tag.size() == 1 && c.tag[0] == 0xA0 ? &c : field;
        }
        AddFinding(report, base + (field != nullptr ? field->start : 0),
                   std::to_string(sk_X509_num(certs)) + " certificates in the SignedData; checktool decodes at most 2");
    }
    sk_X509_pop_free(certs, X509_free);
    STACK_OF(CMS_SignerInfo) *signers = CMS_get0_SignerInfos(cms);
    if (sk_CMS_SignerInfo_num(signers) > 1) {
        size_t at = 0;
        for (const BerNode &c : signedData != nullptr ? signedData->children : root.children) {
            at = c.tag.size() == 1 && c.tag[0] == 0x31 ? c.start : at; /* the last SET: signerInfos */
        }
        AddFinding(report, base + at,
                   std::to_string(sk_CMS_SignerInfo_num(signers)) + " signers in the SignedData; checktool decodes 1");
    }
    Json signerList = Json::array();
    for (int i = 0; i < sk_CMS_SignerInfo_num(signers); i++) {
        CMS_SignerInfo *si = sk_CMS_SignerInfo_value(signers, i);
        Json j = Json::object();
        ASN1_OCTET_STRING *keyId = nullptr;
        X509_NAME *issuer = nullptr;
        ASN1_INTEGER *serial = nullptr;
        CMS_SignerInfo_get0_signer_id(si, &keyId, &issuer, &serial);
        if (keyId != nullptr) {
            j["sid"] = {{"subjectKeyIdentifier", IntegerHex(reinterpret_cast<ASN1_INTEGER *>(keyId))}};
            AddFinding(report, base + Find(sig, Bytes(keyId->data, keyId->data + keyId->length)),
                       "the signer is identified by subjectKeyIdentifier; checktool needs issuerAndSerialNumber");
        } else {
            j["sid"] = {{"issuer", NameText(issuer)}, {"serial", IntegerHex(serial)}};
        }
        X509_ALGOR *digest = nullptr;
        X509_ALGOR *signature = nullptr;
        CMS_SignerInfo_get0_algs(si, nullptr, nullptr, &digest, &signature);
        j["digestAlgorithm"] = digest != nullptr ? ObjName(digest->algorithm) : "";
        j["signatureAlgorithm"] = signature != nullptr ? ObjName(signature->algorithm) : "";
        Json attrs = Json::array();
        for (int a = 0; a < CMS_signed_get_attr_count(si); a++) {
            const ASN1_OBJECT *obj = X509_ATTRIBUTE_get0_object(CMS_signed_get_attr(si, a));
            const int nid = OBJ_obj2nid(obj);
            attrs.push_back(nid != NID_undef ? OBJ_nid2ln(nid) : ObjName(obj));
        }
        j["signedAttributes"] = attrs;
        ASN1_OCTET_STRING *sigValue = CMS_SignerInfo_get0_signature(si);
        const int at = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, -1);
        X509_ATTRIBUTE *attr = at >= 0 ? CMS_unsigned_get_attr(si, at) : nullptr;
        ASN1_TYPE *value = attr != nullptr ? X509_ATTRIBUTE_get0_type(attr, 0) : nullptr;
        if (value == nullptr || value->type != V_ASN1_SEQUENCE) {
            j["timeStampToken"] = nullptr;
        } else {
            const unsigned char *tp = value->value.sequence->data;
            PKCS7 *token = d2i_PKCS7(nullptr, &tp, value->value.sequence->length);
            j["timeStampToken"] = token != nullptr ? TokenReport(sig, base, sigValue, token, report)
                                                   : Json{{"error", "not a PKCS#7 ContentInfo"}};
            PKCS7_free(token);
        }
        signerList.push_back(j);
    }
    s["signers"] = signerList;
    s["certificates"] = certList;
    CMS_ContentInfo_free(cms);
    (*report)["signature"] = s;
}

} // namespace forge
