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

/* The layout exactly as checktool reads it. */
using namespace image;
constexpr uint64_t kMaxCrlBlockRead = 16 * 1024 * 1024; /* inspected CRLs are small; the rest is reported */

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
