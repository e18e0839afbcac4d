// SPDX-License-Identifier: Apache-2.0
/* forge inspect: what an image holds, as a device maker needs to see it
 * when checktool refuses the image: the layout and NV counter, the
 * SignedData with its signers, certificates and time-stamp tokens, the
 * image's CRL block, and every encoding that checktool does not take, with
 * its byte offset in the image. Text, or one JSON document with --json. */
#include <stdio.h>
#include <string.h>

#include <nlohmann/json.hpp>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509v3.h>

#include "forge.h"
#include "image_layout.h"
#include "inspect.h"

namespace forge {

namespace {

using Json = nlohmann::ordered_json;

/* The layout exactly as checktool reads it. */
using namespace image;
constexpr uint64_t kMaxCrlBlockRead = 16 * 1024 * 1024; /* inspected CRLs are small; the rest is reported */
constexpr size_t kGenTimeWholeSeconds = 15;

struct ImageFile {
    FILE *file = nullptr;
    uint64_t size = 0;
};

bool ReadAt(const ImageFile &img, uint64_t offset, uint64_t len, Bytes *out)
{
    out->assign(static_cast<size_t>(len), 0);
    return offset <= img.size && len <= img.size - offset && fseeko(img.file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           fread(out->data(), 1, out->size(), img.file) == out->size();
}

std::string BioText(void (*print)(BIO *, const void *), const void *what)
{
    BIO *bio = BIO_new(BIO_s_mem());
    if (bio == nullptr) {
        return "";
    }
    print(bio, what);
    char *data = nullptr;
    const long len = BIO_get_mem_data(bio, &data);
    std::string text(data != nullptr && len > 0 ? std::string(data, static_cast<size_t>(len)) : "");
    BIO_free(bio);
    return text;
}

} // namespace

std::string NameText(const X509_NAME *name)
{
    return BioText([](BIO *b, const void *n) {
        X509_NAME_print_ex(b, static_cast<const X509_NAME *>(n), 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    }, name);
}

namespace {

std::string TimeText(const ASN1_TIME *t)
{
    if (t == nullptr) {
        return "";
    }
    return BioText([](BIO *b, const void *v) { ASN1_TIME_print(b, static_cast<const ASN1_TIME *>(v)); }, t);
}

std::string IntegerHex(const ASN1_INTEGER *i)
{
    BIGNUM *bn = i != nullptr ? ASN1_INTEGER_to_BN(i, nullptr) : nullptr;
    char *hex = bn != nullptr ? BN_bn2hex(bn) : nullptr;
    std::string text = hex != nullptr ? std::string("0x") + hex : "";
    OPENSSL_free(hex);
    BN_free(bn);
    return text;
}

std::string ObjName(const ASN1_OBJECT *obj)
{
    char buf[128];
    OBJ_obj2txt(buf, sizeof(buf), obj, 0);
    return buf;
}

void AddFinding(Json *report, uint64_t offset, const std::string &what, const std::string &advice = "")
{
    Json f = {{"offset", offset}, {"encoding", what}};
    if (!advice.empty()) {
        f["advice"] = advice;
    }
    (*report)["refusedEncodings"].push_back(f);
}

/* Where `needle` lies in `haystack`, to give a finding its offset. */
size_t Find(const Bytes &haystack, const Bytes &needle)
{
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end());
    return it == haystack.end() ? 0 : static_cast<size_t>(it - haystack.begin());
}

Json CertReport(X509 *cert, uint64_t offset, Json *report)
{
    static const struct {
        uint32_t bit;
        const char *name;
    } kUsages[] = {{KU_DIGITAL_SIGNATURE, "digitalSignature"}, {KU_NON_REPUDIATION, "nonRepudiation"},
                   {KU_KEY_ENCIPHERMENT, "keyEncipherment"},   {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
                   {KU_KEY_AGREEMENT, "keyAgreement"},         {KU_KEY_CERT_SIGN, "keyCertSign"},
                   {KU_CRL_SIGN, "cRLSign"},                   {KU_ENCIPHER_ONLY, "encipherOnly"},
                   {KU_DECIPHER_ONLY, "decipherOnly"}};
    Json c = {{"offset", offset},
              {"subject", NameText(X509_get_subject_name(cert))},
              {"issuer", NameText(X509_get_issuer_name(cert))},
              {"serial", IntegerHex(X509_get0_serialNumber(cert))},
              {"notBefore", TimeText(X509_get0_notBefore(cert))},
              {"notAfter", TimeText(X509_get0_notAfter(cert))},
              {"ca", (X509_get_extension_flags(cert) & EXFLAG_CA) != 0},
              {"keyBits", EVP_PKEY_get_bits(X509_get0_pubkey(cert))}};
    const long pathLen = X509_get_pathlen(cert);
    if (pathLen >= 0) {
        c["pathLen"] = pathLen;
    }
    Json usages = Json::array();
    const uint32_t ku = X509_get_key_usage(cert);
    if (ku != UINT32_MAX) {
        for (const auto &u : kUsages) {
            if ((ku & u.bit) != 0) {
                usages.push_back(u.name);
            }
        }
    }
    c["keyUsage"] = usages;
    Json ekus = Json::array();
    EXTENDED_KEY_USAGE *eku = static_cast<EXTENDED_KEY_USAGE *>(X509_get_ext_d2i(cert, NID_ext_key_usage, nullptr, nullptr));
    bool codeSigningLater = false;
    for (int i = 0; i < sk_ASN1_OBJECT_num(eku); i++) {
        const ASN1_OBJECT *purpose = sk_ASN1_OBJECT_value(eku, i);
        const char *sn = OBJ_nid2sn(OBJ_obj2nid(purpose));
        ekus.push_back(OBJ_obj2nid(purpose) != NID_undef ? sn : ObjName(purpose));
        codeSigningLater = codeSigningLater || (i > 0 && OBJ_obj2nid(purpose) == NID_code_sign);
    }
    sk_ASN1_OBJECT_pop_free(eku, ASN1_OBJECT_free);
    c["extendedKeyUsage"] = ekus;
    if (codeSigningLater) {
        AddFinding(report, offset, "codeSigning is not the first extended key usage of '" + c["subject"].get<std::string>() +
                                       "'; checktool reads the first only");
    }
    return c;
}

/* Each certificate, at the offset where its encoding lies in `sig`. */
/* Certificates kept for the verification's explanation (released at exit
 * of RunInspect through KeptCerts). */
std::vector<X509 *> &KeptCerts()
{
    static std::vector<X509 *> certs;
    return certs;
}

Json CertsReport(STACK_OF(X509) *certs, const Bytes &sig, uint64_t base, Json *report)
{
    Json list = Json::array();
    for (int i = 0; i < sk_X509_num(certs); i++) {
        X509 *cert = sk_X509_value(certs, i);
        if (X509_up_ref(cert) == 1) {
            KeptCerts().push_back(cert);
        }
        unsigned char *der = nullptr;
        const int len = i2d_X509(cert, &der);
        const size_t at = len > 0 ? Find(sig, Bytes(der, der + len)) : 0;
        OPENSSL_free(der);
        list.push_back(CertReport(cert, base + at, report));
    }
    return list;
}

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

Json TokenReport(const Bytes &sig, uint64_t base, const ASN1_OCTET_STRING *sigValue, PKCS7 *token, Json *report)
{
    Json t = Json::object();
    TS_TST_INFO *tst = PKCS7_to_TS_TST_INFO(token);
    if (tst == nullptr) {
        t["error"] = "the token holds no TSTInfo";
        return t;
    }
    const ASN1_GENERALIZEDTIME *genTime = TS_TST_INFO_get_time(tst);
    const std::string raw(reinterpret_cast<const char *>(ASN1_STRING_get0_data(genTime)),
                          static_cast<size_t>(ASN1_STRING_length(genTime)));
    t["genTime"] = TimeText(genTime);
    t["genTimeEncoded"] = raw;
    if (raw.size() != kGenTimeWholeSeconds) {
        AddFinding(report, base + Find(sig, Bytes(raw.begin(), raw.end())),
                   "genTime '" + raw + "' is not in whole seconds (YYYYMMDDHHMMSSZ)");
    }
    TS_MSG_IMPRINT *imprint = TS_TST_INFO_get_msg_imprint(tst);
    const X509_ALGOR *alg = TS_MSG_IMPRINT_get_algo(imprint);
    const ASN1_OCTET_STRING *msg = TS_MSG_IMPRINT_get_msg(imprint);
    const EVP_MD *md = EVP_get_digestbyobj(alg->algorithm);
    t["imprintAlgorithm"] = ObjName(alg->algorithm);
    Bytes hash;
    bool matches = md != nullptr &&
                   Digest(md, ASN1_STRING_get0_data(sigValue), static_cast<size_t>(ASN1_STRING_length(sigValue)), &hash) == kOk &&
                   hash.size() == static_cast<size_t>(ASN1_STRING_length(msg)) &&
                   memcmp(hash.data(), ASN1_STRING_get0_data(msg), hash.size()) == 0;
    t["imprintMatchesSignatureValue"] = matches;
    t["serial"] = IntegerHex(TS_TST_INFO_get_serial(tst));
    t["policy"] = ObjName(TS_TST_INFO_get_policy_id(tst));
    t["certificates"] = CertsReport(token->d.sign != nullptr ? token->d.sign->cert : nullptr, sig, base, report);
    TS_TST_INFO_free(tst);
    return t;
}

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

void CrlBlockReport(const Bytes &block, uint64_t base, Json *report)
{
    Json crls = Json::array();
    Json certs = Json::array();
    std::vector<std::pair<Bytes, uint64_t>> items;
    if (LooksLikePem(block)) {
        std::vector<PemBlock> pem;
        (void)PemBlocks(block, &pem);
        for (const PemBlock &b : pem) {
            items.push_back({b.der, base + Find(block, Bytes(b.label.begin(), b.label.end()))});
        }
    } else {
        BerParser parser{block, {}, 0, false};
        for (size_t pos = 0; pos < block.size();) {
            BerNode node;
            if (!ParseBer(&parser, pos, block.size(), 0, &node)) {
                if (block.size() - pos > 32) {
                    (*report)["crlBlockError"] = "not DER from offset " + std::to_string(base + pos);
                }
                break;
            }
            items.push_back({Bytes(block.begin() + static_cast<long>(pos), block.begin() + static_cast<long>(node.end)),
                             base + pos});
            pos = node.end;
        }
    }
    for (const auto &item : items) {
        const unsigned char *p = item.first.data();
        X509_CRL *crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(item.first.size()));
        if (crl == nullptr) {
            p = item.first.data();
            X509 *cert = d2i_X509(nullptr, &p, static_cast<long>(item.first.size()));
            if (cert != nullptr) {
                certs.push_back(CertReport(cert, item.second, report));
                X509_free(cert);
            }
            continue;
        }
        Json c = {{"offset", item.second},
                  {"issuer", NameText(X509_CRL_get_issuer(crl))},
                  {"version", X509_CRL_get_version(crl) + 1},
                  {"thisUpdate", TimeText(X509_CRL_get0_lastUpdate(crl))},
                  {"nextUpdate", TimeText(X509_CRL_get0_nextUpdate(crl))}};
        if (X509_CRL_get_version(crl) == 0) {
            AddFinding(report, item.second, "a v1 CRL of '" + c["issuer"].get<std::string>() + "'; checktool reads v2 only");
        }
        if (X509_CRL_get0_nextUpdate(crl) == nullptr) {
            AddFinding(report, item.second, "a CRL of '" + c["issuer"].get<std::string>() + "' without nextUpdate");
        }
        Json entries = Json::array();
        STACK_OF(X509_REVOKED) *revoked = X509_CRL_get_REVOKED(crl);
        for (int i = 0; i < sk_X509_REVOKED_num(revoked); i++) {
            X509_REVOKED *r = sk_X509_REVOKED_value(revoked, i);
            Json e = {{"serial", IntegerHex(X509_REVOKED_get0_serialNumber(r))},
                      {"revocationDate", TimeText(X509_REVOKED_get0_revocationDate(r))}};
            ASN1_ENUMERATED *reason = static_cast<ASN1_ENUMERATED *>(X509_REVOKED_get_ext_d2i(r, NID_crl_reason, nullptr, nullptr));
            if (reason != nullptr) {
                e["reason"] = ASN1_ENUMERATED_get(reason);
                ASN1_ENUMERATED_free(reason);
            }
            entries.push_back(e);
        }
        c["entries"] = entries;
        crls.push_back(c);
        X509_CRL_free(crl);
    }
    (*report)["crlBlock"] = {{"crls", crls}, {"certificates", certs}};
}

Json BlockReport(const Bytes &header, uint64_t at, uint32_t room, uint64_t size)
{
    const uint32_t len = LoadLe32(header.data() + kBlockLenField);
    return {{"offset", at}, {"length", len}, {"room", room}, {"fitsRoom", room == 0 || len <= room},
            {"insideFile", at + kBlockHeader <= size && len <= size - at - kBlockHeader}};
}

/* Text for people: the JSON document, one line per value. */
void PrintText(const Json &j, const std::string &indent, const std::string &key)
{
    if (j.is_object()) {
        if (!key.empty()) {
            printf("%s%s:\n", indent.c_str(), key.c_str());
        }
        for (auto it = j.begin(); it != j.end(); ++it) {
            PrintText(it.value(), key.empty() ? indent : indent + "  ", it.key());
        }
    } else if (j.is_array()) {
        printf("%s%s: %s\n", indent.c_str(), key.c_str(), j.empty() ? "none" : "");
        size_t n = 0;
        for (const Json &item : j) {
            if (item.is_primitive()) {
                printf("%s  - %s\n", indent.c_str(), item.is_string() ? item.get<std::string>().c_str() : item.dump().c_str());
            } else {
                printf("%s  [%zu]\n", indent.c_str(), ++n);
                PrintText(item, indent + "    ", "");
            }
        }
    } else {
        printf("%s%s: %s\n", indent.c_str(), key.c_str(), j.is_string() ? j.get<std::string>().c_str() : j.dump().c_str());
    }
}

const OptSpec kInspectOpts[] = {
    {"json", nullptr, "print one JSON document instead of text"},
    {"crl", "FILE", "also verify as checktool 3 does, against this CRL file (needs --root)"},
    {"root", "FILE", "the root certificate (DER) to verify with, in place of checktool's built-in one"},
};

} // namespace

uint32_t RunInspect(const Args &args)
{
    if (args.positional.size() != 1) {
        Fail("inspect: give one image");
        return kErrUsage;
    }
    const std::string &path = args.positional[0];
    const std::string *crlPath = FindOpt(args, "crl");
    const std::string *rootPath = FindOpt(args, "root");
    if ((crlPath == nullptr) != (rootPath == nullptr)) {
        Fail("inspect: --crl and --root go together");
        return kErrUsage;
    }
    VerifyInputs vin;
    vin.layoutCode = 0x88100001u; /* checktool's code for an image it cannot lay out */
    ImageFile img;
    img.file = fopen(path.c_str(), "rb");
    if (img.file == nullptr || fseeko(img.file, 0, SEEK_END) != 0) {
        Fail("inspect: cannot read %s", path.c_str());
        if (img.file != nullptr) {
            fclose(img.file);
        }
        return kErrIo;
    }
    img.size = static_cast<uint64_t>(ftello(img.file));
    Json report = {{"image", {{"path", path}, {"size", img.size}}}, {"refusedEncodings", Json::array()}};
    Bytes header;
    if (!ReadAt(img, 0, kMinImageSize, &header)) {
        report["layout"] = {{"error", "shorter than the header (0x498 bytes)"}};
    } else {
        const uint32_t bodyLen = LoadLe32(header.data() + kBodyLenOffset);
        const uint64_t trailer = TrailerOffset(bodyLen);
        const bool magic = LoadLe64(header.data() + kMagicOffset) == kMagic;
        Json layout = {{"bodyLength", bodyLen}, {"trailerOffset", trailer}, {"magic", magic}};
        Bytes record;
        if (ReadAt(img, kHeaderRegion + bodyLen - kNvcntRecordSize, kNvcntRecordSize, &record)) {
            report["nvCounter"] = {{"present", LoadLe32(record.data()) == kNvcntFlag},
                                   {"value", LoadLe32(record.data() + 4)}};
        }
        Bytes blocks;
        if (!magic || !ReadAt(img, trailer, kTrailerRead, &blocks)) {
            layout["error"] = magic ? "the trailer's block headers lie past the end of the file" : "no trailer magic";
            report["layout"] = layout;
        } else {
            const Bytes sigHeader(blocks.begin(), blocks.begin() + kBlockHeader);
            const Bytes contentHeader(blocks.begin() + kContentBlock, blocks.begin() + kContentBlock + kBlockHeader);
            const Bytes crlHeader(blocks.begin() + kCrlBlock, blocks.begin() + kCrlBlock + kBlockHeader);
            layout["signature"] = BlockReport(sigHeader, trailer, kSignatureRoom, img.size);
            layout["content"] = BlockReport(contentHeader, trailer + kContentBlock, kContentRoom, img.size);
            layout["crl"] = BlockReport(crlHeader, trailer + kCrlBlock, 0, img.size);
            report["layout"] = layout;
            const uint32_t sigLen = LoadLe32(sigHeader.data() + kBlockLenField);
            const uint32_t contentLen = LoadLe32(contentHeader.data() + kBlockLenField);
            if (sigLen <= kSignatureRoom && contentLen <= kContentRoom &&
                layout["crl"]["insideFile"].get<bool>()) {
                vin.layoutCode = 0;
                vin.signature.assign(blocks.begin() + kBlockHeader, blocks.begin() + kBlockHeader + sigLen);
                vin.content.assign(blocks.begin() + kContentBlock + kBlockHeader,
                                   blocks.begin() + kContentBlock + kBlockHeader + contentLen);
            }
            if (sigLen <= kSignatureRoom) {
                SignatureReport(Bytes(blocks.begin() + kBlockHeader, blocks.begin() + kBlockHeader + sigLen),
                                trailer + kBlockHeader, &report);
            }
            const uint32_t crlLen = LoadLe32(crlHeader.data() + kBlockLenField);
            Bytes crl;
            if (crlLen <= kMaxCrlBlockRead && ReadAt(img, trailer + kCrlBlock + kBlockHeader, crlLen, &crl)) {
                CrlBlockReport(crl, trailer + kCrlBlock + kBlockHeader, &report);
            }
        }
    }
    fclose(img.file);
    uint32_t rc = kOk;
    if (img.size == 0) {
        vin.layoutCode = 0x88000104u; /* an empty file */
    }
    if (crlPath != nullptr) {
#ifdef FORGE_WITH_VEXA
        vin.crlPath = *crlPath;
        vin.rootPath = *rootPath;
        vin.pathCerts = KeptCerts();
        const Json *token = nullptr;
        if (report.contains("signature") && report["signature"].contains("signers") &&
            !report["signature"]["signers"].empty()) {
            token = &report["signature"]["signers"][0]["timeStampToken"];
        }
        if (token != nullptr && token->is_object() && token->contains("genTimeEncoded")) {
            vin.genTimeRaw = (*token)["genTimeEncoded"].get<std::string>();
            vin.genTime = (*token)["genTime"].get<std::string>();
        }
        const uint32_t code = VerifyLikeChecktool(vin, &report);
        rc = code == kErrIo ? kErrIo : (code & 0xFF); /* checktool 3's exit status */
#else
        Fail("inspect: this forge was built without the vexa library, so it cannot verify (--crl)");
        rc = kErrUsage;
#endif
    }
    for (X509 *cert : KeptCerts()) {
        X509_free(cert);
    }
    KeptCerts().clear();
    const Json findings = report["refusedEncodings"]; /* last, where a reader looks for the verdict */
    report.erase("refusedEncodings");
    report["refusedEncodings"] = findings;
    if (HasFlag(args, "json")) {
        printf("%s\n", report.dump(2).c_str());
    } else {
        PrintText(report, "", "");
    }
    return rc;
}

const Command kInspectCommand = {
    "inspect",
    "IMAGE [--crl FILE --root FILE] [--json]",
    "Shows what an image holds: layout and NV counter, the SignedData (signers, certificates,\n"
    "time-stamp tokens), the image's CRL block, and every encoding checktool does not take,\n"
    "with its byte offset in the image. With --crl and --root, also runs checktool 3's verification\n"
    "in process with that root and explains the verdict; forge then exits with checktool 3's status.",
    kInspectOpts,
    sizeof(kInspectOpts) / sizeof(kInspectOpts[0]),
    RunInspect,
};

} // namespace forge
