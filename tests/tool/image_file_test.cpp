// SPDX-License-Identifier: Apache-2.0
/* get_cms_file_info over image bytes: where the blocks are, and that no
 * length in the image can point a block outside the file. The faults of the
 * committed broken images are run through the tool by the scenarios. */
#include <gtest/gtest.h>

#include "checktool.h"
#include "image_layout.h"
#include "support/image_builder.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;

uint32_t Locate(Bytes &img, CmsFileInfo *info)
{
    InputFileSet files = {};
    files.image = img.data();
    files.imageSize = img.size();
    *info = {};
    return get_cms_file_info(&files, info);
}

/* The trailer sits on the second 16-byte boundary after the body; blocks may
 * fill their rooms exactly, and the CRL block ends the file. */
TEST(ImageLayout, BlocksSitBehindTheTrailerOfTheBodyLength)
{
    const struct { uint32_t bodyLen; uint64_t trailer; size_t sig, content, crl; } cases[] = {
        {0x1000, 0x11020, 2, 7, 5}, {0x1001, 0x11020, 2, 7, 5}, {0x100F, 0x11020, 2, 7, 5},
        {0x1010, 0x11030, 2, 7, 5}, {0, 0x10020, 2, 7, 5},      {0x1000, 0x11020, 8176, 2032, 0},
    };
    for (const auto &c : cases) {
        ImageSpec def;
        def.bodyLen = c.bodyLen;
        def.signature.assign(c.sig, 0x30);
        def.content.assign(c.content, 'c');
        def.crl.assign(c.crl, 0x30);
        Bytes img = BuildImage(def);
        CmsFileInfo info;
        ASSERT_EQ(Locate(img, &info), VEXA_OK) << c.bodyLen;
        EXPECT_EQ(info.signatureBlock - img.data(), static_cast<ptrdiff_t>(c.trailer));
        EXPECT_EQ(info.content - img.data(), static_cast<ptrdiff_t>(c.trailer + 0x2010));
        EXPECT_EQ(info.crl - img.data(), static_cast<ptrdiff_t>(c.trailer + 0x2810));
        EXPECT_EQ(info.signatureLen, c.sig);
        EXPECT_EQ(info.contentLen, c.content);
        EXPECT_EQ(info.crlLen, c.crl);
        EXPECT_EQ(info.crl + info.crlLen, img.data() + img.size());
    }
}

TEST(ImageLayout, RefusesImagesThatLieAboutTheirBlocks)
{
    const uint64_t t = image::TrailerOffset(0x1000);
    const struct {
        const char *fault;
        void (*mutate)(Bytes &img, uint64_t t);
    } cases[] = {
        {"one byte short of the magic", [](Bytes &img, uint64_t) { img.resize(0x497); }},
        {"trailer past the end", [](Bytes &img, uint64_t t) { img.resize(t + 0x280F); }},
        {"body length points the trailer out of the file", [](Bytes &img, uint64_t) { PutLe32(img, 0x460, 0xFFFFFFF0u); }},
        {"CRL length wraps", [](Bytes &img, uint64_t t) { PutLe32(img, t + 0x280C, 0xFFFFFFFFu); }},
        {"content longer than its room", [](Bytes &img, uint64_t t) { PutLe32(img, t + 0x200C, 2033); }},
    };
    for (const auto &c : cases) {
        Bytes img = BuildImage(ImageSpec{});
        c.mutate(img, t);
        CmsFileInfo info;
        EXPECT_EQ(Locate(img, &info), VEXA_ERR_PARAM) << c.fault;
        EXPECT_EQ(info.signature, nullptr) << c.fault << ": nothing may be handed on";
    }
}

} // namespace
