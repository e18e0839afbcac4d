// SPDX-License-Identifier: Apache-2.0
/* Every single-bit change to the valid image's signature and content blocks
 * must be refused by operation 3, except in the few fields the verifier never
 * reads; those are listed below with the reason. The verification is the
 * library sequence operation 3 makes, run in-process once per flipped bit. */
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "checktool.h"
#include "root_cert.h"
#include "support/verify_env.h"
#include "vexa/vexa_result.h"

namespace {

/* What operation 3 does once the image is parsed: true when it verifies. */
bool Verifies(const CmsFileInfo &info, const testenv::Bytes &crl)
{
    testenv::Ctx ctx = testenv::NewCtx();
    uint32_t verdict = 0;
    return VexaVerifyAddCert(ctx.get(), get_root_cert_data(), get_root_cert_len()) == VEXA_OK &&
           VexaVerifyAddCrl(ctx.get(), crl.data(), testenv::Len(crl)) == VEXA_OK &&
           VexaVerifyDetachSignatureBegin(ctx.get(), info.signature, info.signatureLen) == VEXA_OK &&
           VexaVerifyDetachSignatureUpdate(ctx.get(), info.content, info.contentLen) == VEXA_OK &&
           VexaVerifyDetachSignatureFinal(ctx.get(), &verdict) == VEXA_OK && verdict == 1;
}

/* Byte ranges (inclusive) of sig/valid.der, the valid image's signature
 * block; the forge writes the same bytes every time. */
struct Range { uint32_t first, last; const char *what; };

/* The only fields whose flips are accepted, and why. Everything the signer's
 * signature or the token protects (signer certificate's tbsCertificate,
 * signed attributes, signature values, TSTInfo) lies outside them. */
constexpr Range kAccepted[] = {
    {4, 14, "ContentInfo contentType: the content is decoded as SignedData without looking at the OID"},
    {23, 53, "SignedData version, digestAlgorithms, eContentType: unread (digest from the SignerInfo, detached)"},
    {695, 714, "signer certificate: outer signatureAlgorithm (the tbs one counts), unused-bits octet"},
    {1099, 2374, "code-signing CA: the CRL file's copy is stored first; a copy with the same signature value is "
                 "dropped, one with another never verifies under the root"},
    {2383, 2477, "SignerInfo version, issuer name tag octets (values match by content), digestAlgorithm OID tag"},
    {2565, 2580, "SignerInfo signatureAlgorithm (every key is RSA) and the signature's OCTET STRING tag octet"},
    {2844, 2923, "token framing around the TSTInfo octets: OIDs, version, algorithms, SET, [0] and OCTET tags"},
    {3651, 3670, "TSA certificate: outer signatureAlgorithm and the unused-bits octet of its signature"},
    {4187, 4276, "token SignerInfo version, issuer name tag octets and the digestAlgorithm's OID tag octet"},
    {4424, 4439, "token SignerInfo signatureAlgorithm and the signature's OCTET STRING tag octet"},
};

/* Sanitizer builds run several times slower: there each byte gets one flip,
 * of a bit that moves along with the offset, so every byte is still tried. */
constexpr bool kOneBitPerByte = testenv::kSanitized;

TEST(TamperTest, EverySignedBitFlipIsRefused)
{
    testenv::Bytes img = testenv::Fixture("images/valid.img");
    const testenv::Bytes crl = testenv::Fixture("crlfiles/good.der");
    InputFileSet files = {};
    files.image = img.data();
    files.imageSize = img.size();
    CmsFileInfo info = {};
    ASSERT_EQ(get_cms_file_info(&files, &info), VEXA_OK);
    ASSERT_TRUE(Verifies(info, crl)) << "the untouched image must verify";

    uint8_t *sig = img.data() + (info.signature - img.data());
    uint8_t *content = img.data() + (info.content - img.data());
    std::vector<bool> used(sizeof(kAccepted) / sizeof(kAccepted[0]), false);
    for (uint32_t i = 0; i < info.signatureLen + info.contentLen; i++) {
        const bool inContent = i >= info.signatureLen;
        uint8_t *byte = inContent ? content + (i - info.signatureLen) : sig + i;
        for (uint32_t bit = 0; bit < 8; bit++) {
            if (kOneBitPerByte && bit != i % 8) {
                continue;
            }
            *byte ^= static_cast<uint8_t>(1u << bit);
            const bool accepted = Verifies(info, crl);
            *byte ^= static_cast<uint8_t>(1u << bit);
            if (!accepted) {
                continue;
            }
            const Range *why = std::find_if(std::begin(kAccepted), std::end(kAccepted),
                                            [&](const Range &r) { return !inContent && i >= r.first && i <= r.last; });
            if (why == std::end(kAccepted)) {
                ADD_FAILURE() << (inContent ? "content" : "signature") << " byte "
                              << (inContent ? i - info.signatureLen : i) << " bit " << bit
                              << " flipped and still verifies";
            } else {
                used[static_cast<size_t>(why - kAccepted)] = true;
            }
        }
    }
    for (size_t k = 0; k < used.size(); k++) {
        EXPECT_TRUE(used[k]) << "no flip accepted any more in: " << kAccepted[k].what << " (drop it from the list)";
    }
}

} // namespace
