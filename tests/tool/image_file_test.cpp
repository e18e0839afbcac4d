#include <gtest/gtest.h>

#include <sys/stat.h>

#include "checktool.h"
#include "support/image_builder.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;
using testenv::BuildImage;
using testenv::ImageSpec;
using testenv::PutLe32;
using testenv::TrailerOf;

/* Runs get_cms_file_info over bytes held like read_input_file holds them. */
uint32_t Locate(Bytes &img, CmsFileInfo *info)
{
    InputFileSet files = {};
    files.image = img.data();
    files.imageSize = img.size();
    *info = {};
    return get_cms_file_info(&files, info);
}

TEST(ImageLayout, TrailerSitsOnTheSecondSixteenByteBoundaryAfterTheBody)
{
    const struct {
        uint32_t bodyLen;
        uint64_t trailer;
    } cases[] = {{0x1000, 0x11020}, {0x1001, 0x11020}, {0x100F, 0x11020}, {0x1010, 0x11030}, {0, 0x10020}};
    for (const auto &c : cases) {
        ImageSpec def;
        def.bodyLen = c.bodyLen;
        Bytes img = BuildImage(def);
        CmsFileInfo info;
        ASSERT_EQ(Locate(img, &info), VEXA_OK) << c.bodyLen;
        EXPECT_EQ(info.signatureBlock - img.data(), static_cast<ptrdiff_t>(c.trailer));
        EXPECT_EQ(info.content - img.data(), static_cast<ptrdiff_t>(c.trailer + 0x2010));
        EXPECT_EQ(info.crl - img.data(), static_cast<ptrdiff_t>(c.trailer + 0x2810));
        EXPECT_EQ(info.contentLen, def.content.size());
        EXPECT_EQ(info.crlLen, def.crl.size());
    }
}

TEST(ImageLayout, RefusesImagesThatLieAboutTheirBlocks)
{
    const uint64_t t = TrailerOf(0x1000);
    struct Case {
        const char *fault;
        void (*mutate)(Bytes &img, uint64_t t);
    };
    const Case cases[] = {
        {"no magic", [](Bytes &img, uint64_t) { img[0x490] = 0; }},
        {"magic in reversed byte order",
         [](Bytes &img, uint64_t) {
             const unsigned char rev[8] = {0xAB, 0xCD, 0x12, 0x34, 0xAA, 0x55, 0xAA, 0x55};
             std::copy(rev, rev + 8, img.begin() + 0x490);
         }},
        {"shorter than the magic", [](Bytes &img, uint64_t) { img.resize(0x497); }},
        {"trailer past the end", [](Bytes &img, uint64_t t) { img.resize(t + 0x280F); }},
        {"body length points the trailer out of the file", [](Bytes &img, uint64_t) { PutLe32(img, 0x460, 0xFFFFFFF0u); }},
        {"CRL length one past the end",
         [](Bytes &img, uint64_t t) { PutLe32(img, t + 0x280C, static_cast<uint32_t>(img.size() - (t + 0x2810) + 1)); }},
        {"CRL length wraps", [](Bytes &img, uint64_t t) { PutLe32(img, t + 0x280C, 0xFFFFFFFFu); }},
        {"signature longer than its room", [](Bytes &img, uint64_t t) { PutLe32(img, t + 12, 8177); }},
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

TEST(ImageLayout, BlocksFillingTheirRoomExactlyAreAccepted)
{
    ImageSpec def;
    def.signature.assign(8176, 0x30);
    def.content.assign(2032, 'c');
    def.crl.clear();
    Bytes img = BuildImage(def);
    CmsFileInfo info;
    ASSERT_EQ(Locate(img, &info), VEXA_OK);
    EXPECT_EQ(info.signatureLen, 8176u);
    EXPECT_EQ(info.contentLen, 2032u);
    EXPECT_EQ(info.crlLen, 0u);
    EXPECT_EQ(info.crl, img.data() + img.size()) << "an empty CRL ends exactly at the end of the file";
}

} // namespace
