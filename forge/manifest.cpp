// SPDX-License-Identifier: Apache-2.0
/* forge manifest: the signed content that binds an image's body. checktool
 * authenticates the signed content only; an update procedure (such as
 * checktool-update-gate) checks the body against these two lines. */
#include <openssl/evp.h>

#include <stdio.h>

#include "forge.h"

namespace forge {

namespace {

const OptSpec kManifestOpts[] = {
    {"body", "FILE", "the image body the manifest names (what forge image --body takes)"},
    {"out", "FILE", "where to write the manifest, the content to sign"},
};

uint32_t RunManifest(const Args &args)
{
    const std::string *bodyPath = nullptr;
    const std::string *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "body", &bodyPath);
    if (rc == kOk) rc = RequireOpt(args, "out", &outPath);
    Bytes body;
    if (rc == kOk) rc = ReadFile(*bodyPath, &body);
    Bytes digest;
    if (rc == kOk) rc = Digest(EVP_sha256(), body.data(), body.size(), &digest);
    if (rc != kOk) {
        return rc;
    }
    std::string text = "body-length: " + std::to_string(body.size()) + "\nbody-sha256: ";
    char hex[3];
    for (uint8_t b : digest) {
        snprintf(hex, sizeof(hex), "%02x", b);
        text += hex;
    }
    text += "\n";
    return WriteFile(*outPath, Bytes(text.begin(), text.end()));
}

} // namespace

const Command kManifestCommand = {
    "manifest",
    "--body FILE --out FILE",
    "Writes the body manifest to sign as an image's content: \"body-length: <decimal>\" and\n"
    "\"body-sha256: <64 lowercase hex>\", one line each.",
    kManifestOpts,
    sizeof(kManifestOpts) / sizeof(kManifestOpts[0]),
    RunManifest,
};

} // namespace forge
