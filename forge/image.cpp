// SPDX-License-Identifier: Apache-2.0
/* forge body and forge image: image bodies with an NV counter record, and
 * CMS images (64 KiB header region, body, trailer of signature, content and
 * CRL blocks), well formed or broken on purpose. */
#include <string.h>

#include <algorithm>

#include "forge.h"
#include "image_layout.h"

namespace forge {

namespace {

/* The layout checktool reads (little-endian throughout). */
using namespace image;

const OptSpec kBodyOpts[] = {
    {"in", "FILE", "payload bytes"},
    {"size", "N", "payload of N pattern bytes instead of --in"},
    {"nvcnt", "N", "append the 8-byte NV counter record with counter N"},
    {"nvcnt-flag", "X", "flag of the record (default 0x5A5AA5A5; anything else means "
                        "\"no counter\")"},
    {"flip-byte", "N", "change payload byte N (xor 0x01), e.g. to make altered content"},
    {"out", "FILE", "where to write the body (also a valid SoC image when it ends in a record)"},
};

const OptSpec kImageOpts[] = {
    {"body", "FILE", "the body, taken as it is (see forge body)"},
    {"body-size", "N", "or: a pattern body of N bytes ..."},
    {"nvcnt", "N", "... followed by an NV counter record with counter N"},
    {"nvcnt-flag", "X", "... whose flag is X (default 0x5A5AA5A5)"},
    {"signature", "FILE", "signature block data (DER or PEM CMS); empty when absent"},
    {"content", "FILE", "signed-content block data; empty when absent"},
    {"crl", "FILE", "CRL block data (a CRL file); empty when absent"},
    {"body-len", "N", "write N as the body length instead of the real one"},
    {"magic", "normal|none|reversed", "trailer magic as it should be, zeros, or byte-reversed"},
    {"sig-len", "N", "write N as the signature length instead of the real one"},
    {"content-len", "N", "write N as the content length instead of the real one"},
    {"crl-len", "N", "write N as the CRL length instead of the real one"},
    {"flip-content-byte", "N", "change content byte N (xor 0x01) after placing it"},
    {"truncate-to", "N", "cut the file to N bytes"},
    {"truncate-by", "N", "drop the last N bytes"},
    {"out", "FILE", "where to write the image"},
};

void PutLe32(Bytes &b, size_t at, uint32_t v)
{
    for (size_t i = 0; i < 4; ++i) {
        b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

void PutLe64(Bytes &b, size_t at, uint64_t v)
{
    for (size_t i = 0; i < 8; ++i) {
        b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

/* Payload from a file or a pattern, then the optional NV counter record. */
uint32_t MakeBody(const Args &args, const char *fileOpt, const char *sizeOpt, Bytes *body)
{
    const std::string *file = FindOpt(args, fileOpt);
    const std::string *size = FindOpt(args, sizeOpt);
    if ((file == nullptr) == (size == nullptr)) {
        Fail("give either --%s or --%s", fileOpt, sizeOpt);
        return kErrUsage;
    }
    uint32_t rc = kOk;
    if (file != nullptr) {
        rc = ReadFile(*file, body);
    } else {
        uint32_t n = 0;
        rc = ParseU32(*size, &n);
        if (rc == kOk && n > (64u << 20)) {
            Fail("--%s above 64 MiB", sizeOpt);
            rc = kErrUsage;
        }
        body->resize(n);
        for (uint32_t i = 0; i < n && rc == kOk; ++i) {
            (*body)[i] = static_cast<uint8_t>(i * 167u + 13u);
        }
    }
    if (rc != kOk) {
        return rc;
    }
    if (const std::string *flip = FindOpt(args, "flip-byte")) {
        uint32_t at = 0;
        if (ParseU32(*flip, &at) != kOk || at >= body->size()) {
            Fail("--flip-byte must name a byte of the payload");
            return kErrUsage;
        }
        (*body)[at] ^= 0x01;
    }
    const std::string *nvcnt = FindOpt(args, "nvcnt");
    const std::string *flagText = FindOpt(args, "nvcnt-flag");
    if (nvcnt == nullptr) {
        if (flagText != nullptr) {
            Fail("--nvcnt-flag needs --nvcnt");
            return kErrUsage;
        }
        return kOk;
    }
    uint32_t counter = 0;
    uint32_t flag = kNvcntFlag;
    rc = ParseU32(*nvcnt, &counter);
    if (rc == kOk && flagText != nullptr) rc = ParseU32(*flagText, &flag);
    if (rc != kOk) {
        return rc;
    }
    size_t at = body->size();
    body->resize(at + 8);
    PutLe32(*body, at, flag);
    PutLe32(*body, at + 4, counter);
    return kOk;
}

uint32_t OptionalFile(const Args &args, const char *name, Bytes *out)
{
    out->clear();
    const std::string *path = FindOpt(args, name);
    return path != nullptr ? ReadFile(*path, out) : kOk;
}

/* A length field: the real length unless an option overrides it. */
uint32_t LengthField(const Args &args, const char *name, size_t real, uint32_t *out)
{
    const std::string *text = FindOpt(args, name);
    if (text != nullptr) {
        return ParseU32(*text, out);
    }
    *out = static_cast<uint32_t>(real);
    return kOk;
}

} // namespace

uint32_t RunBody(const Args &args)
{
    const std::string *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "out", &outPath);
    Bytes body;
    if (rc == kOk) rc = MakeBody(args, "in", "size", &body);
    if (rc != kOk) {
        return rc;
    }
    return WriteFile(*outPath, body);
}

uint32_t RunImage(const Args &args)
{
    const std::string *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "out", &outPath);
    Bytes body, sig, content, crl;
    if (rc == kOk) rc = MakeBody(args, "body", "body-size", &body);
    if (rc == kOk) rc = OptionalFile(args, "signature", &sig);
    if (rc == kOk) rc = OptionalFile(args, "content", &content);
    if (rc == kOk) rc = OptionalFile(args, "crl", &crl);
    if (rc != kOk) {
        return rc;
    }
    if (body.size() > 0xFFFFFFF0u - kHeaderRegion) {
        Fail("body too large");
        return kErrLayout;
    }
    if (sig.size() > kSignatureRoom || content.size() > kContentRoom) {
        Fail("signature (%zu bytes, room %u) or content (%zu bytes, room %u) too large",
             sig.size(), kSignatureRoom, content.size(), kContentRoom);
        return kErrLayout;
    }
    uint32_t bodyLen = 0, sigLen = 0, contentLen = 0, crlLen = 0;
    rc = LengthField(args, "body-len", body.size(), &bodyLen);
    if (rc == kOk) rc = LengthField(args, "sig-len", sig.size(), &sigLen);
    if (rc == kOk) rc = LengthField(args, "content-len", content.size(), &contentLen);
    if (rc == kOk) rc = LengthField(args, "crl-len", crl.size(), &crlLen);
    if (rc != kOk) {
        return rc;
    }
    /* The trailer sits where the real body puts it; an overridden body
     * length only changes the header field. */
    const size_t t = static_cast<size_t>(TrailerOffset(static_cast<uint32_t>(body.size())));
    Bytes image(t + kCrlBlock + kBlockHeader + crl.size(), 0);
    PutLe32(image, kBodyLenOffset, bodyLen);
    const std::string *magic = FindOpt(args, "magic");
    if (magic == nullptr || *magic == "normal") {
        PutLe64(image, kMagicOffset, kMagic);
    } else if (*magic == "reversed") {
        for (size_t i = 0; i < 8; ++i) {
            image[kMagicOffset + i] = static_cast<uint8_t>(kMagic >> (56 - 8 * i));
        }
    } else if (*magic != "none") {
        Fail("--magic must be normal, none or reversed");
        return kErrUsage;
    }
    std::copy(body.begin(), body.end(), image.begin() + kHeaderRegion);
    struct Block {
        size_t offset;
        const Bytes *data;
        uint32_t len;
    };
    const Block blocks[] = {
        {kSignatureBlock, &sig, sigLen},
        {kContentBlock, &content, contentLen},
        {kCrlBlock, &crl, crlLen},
    };
    for (const Block &b : blocks) {
        PutLe32(image, t + b.offset + kBlockLenField, b.len);
        std::copy(b.data->begin(), b.data->end(), image.begin() + t + b.offset + kBlockHeader);
    }
    if (const std::string *flip = FindOpt(args, "flip-content-byte")) {
        uint32_t at = 0;
        rc = ParseU32(*flip, &at);
        if (rc != kOk || at >= content.size()) {
            Fail("--flip-content-byte must name a byte of the content");
            return kErrUsage;
        }
        image[t + kContentBlock + kBlockHeader + at] ^= 0x01;
    }
    const std::string *truncTo = FindOpt(args, "truncate-to");
    const std::string *truncBy = FindOpt(args, "truncate-by");
    if (truncTo != nullptr || truncBy != nullptr) {
        uint32_t n = 0;
        rc = ParseU32(truncTo != nullptr ? *truncTo : *truncBy, &n);
        if (rc != kOk || (truncTo != nullptr && truncBy != nullptr) || n > image.size()) {
            Fail("give one of --truncate-to and --truncate-by, within the image size %zu",
                 image.size());
            return kErrUsage;
        }
        image.resize(truncTo != nullptr ? n : image.size() - n);
    }
    return WriteFile(*outPath, image);
}

const Command kBodyCommand = {
    "body",
    "(--in FILE | --size N) [--flip-byte N] [--nvcnt N [--nvcnt-flag X]] --out FILE",
    "Makes an image body: the payload, then optionally the 8-byte NV counter record\n"
    "(flag, counter; little-endian) that ends the body.",
    kBodyOpts,
    sizeof(kBodyOpts) / sizeof(kBodyOpts[0]),
    RunBody,
};

const Command kImageCommand = {
    "image",
    "(--body FILE | --body-size N [--nvcnt N]) --signature FILE --content FILE --crl FILE\n"
    "             [fault options] --out FILE",
    "Assembles a CMS image: 64 KiB header region (body length L at 0x460, magic at 0x490),\n"
    "the body at 0x10000, and at T = 0x10000 + L + 32 - L mod 16 the signature, content and\n"
    "CRL blocks at T, T + 0x2000 and T + 0x2800, each behind a 16-byte header whose last\n"
    "four bytes hold its length.",
    kImageOpts,
    sizeof(kImageOpts) / sizeof(kImageOpts[0]),
    RunImage,
};

} // namespace forge
