// SPDX-License-Identifier: Apache-2.0
/* Images larger than a device's memory: sparse copies of the signed fixture
 * image, 4 GiB - 1 bytes long, run under a 32 MiB address-space limit, and
 * outputs that must reach the storage. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "image_layout.h"
#include "support/image_builder.h"

namespace {

using namespace testenv;

constexpr uint64_t kMaxImage = 0xFFFFFFFFull; /* 4 GiB - 1 */
constexpr uint64_t kMiB = 1024 * 1024;

/* Operations 0 and 4 write to "out", which must exist. */
class LargeImageTest : public TempDirTest {
    void SetUp() override { TempDirTest::SetUp(); WriteFile("out", ""); }
};

/* The fixture image's header, NV counter record and trailer placed for a
 * body of `bodyLen` bytes in a sparse file of `size` bytes, the CRL block's
 * length field set to `crlLen` (0: as signed). False when the file system
 * cannot hold such a file. */
bool MakeSparseImage(const std::string &path, uint32_t bodyLen, uint64_t size, uint32_t crlLen = 0)
{
    const Bytes img = Fixture("images/valid.img");
    const uint32_t fixtureBody = image::LoadLe32(img.data() + image::kBodyLenOffset);
    const uint64_t fixtureTrailer = image::TrailerOffset(fixtureBody);
    Bytes header(img.begin(), img.begin() + image::kMinImageSize);
    PutLe32(header, image::kBodyLenOffset, bodyLen);
    const uint64_t record = image::kHeaderRegion + fixtureBody - image::kNvcntRecordSize;
    const Bytes nvcnt(img.begin() + static_cast<long>(record), img.begin() + static_cast<long>(record + 8));
    Bytes trailer(img.begin() + static_cast<long>(fixtureTrailer), img.end());
    if (crlLen != 0) {
        PutLe32(trailer, image::kCrlBlock + image::kBlockLenField, crlLen);
    }
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    bool ok = fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0;
    const uint64_t trailerAt = image::TrailerOffset(bodyLen);
    ok = ok && pwrite(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size()) &&
         pwrite(fd, nvcnt.data(), 8, static_cast<off_t>(image::kHeaderRegion + bodyLen - 8)) == 8 &&
         pwrite(fd, trailer.data(), trailer.size(), static_cast<off_t>(trailerAt)) ==
             static_cast<ssize_t>(trailer.size());
    if (fd >= 0) {
        close(fd);
    }
    return ok;
}

/* Runs the test build's tool with the address space limited to 32 MiB.
 * Neither a sanitizer's shadow memory nor an emulator running a cross-built
 * tool (qemu-user reserves 128 MiB for its own code) fits in that: those
 * builds run without the limit, so their 64-bit offsets are still used. */
int RunLimited(const std::vector<std::string> &args)
{
    const bool unlimited = kSanitized || CHECKTOOL_TESTS_EMULATED;
    std::vector<std::string> argv = {"/bin/sh", "-c",
                                     unlimited ? "exec \"$0\" \"$@\"" : "ulimit -v 32768 && exec \"$0\" \"$@\"",
                                     CHECKTOOL_TEST_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProcess(argv).status;
}

/* Each operation on a 4 GiB - 1 image gives what it gives on the small
 * image, within 32 MiB of address space: nothing is sized by the image. */
TEST_F(LargeImageTest, OperationsOnA4GiBImageFitIn32MiB)
{
    const uint32_t bodyLen = static_cast<uint32_t>(kMaxImage - 0x20000) & ~0xFu;
    if (!MakeSparseImage("big.img", bodyLen, kMaxImage)) {
        GTEST_SKIP() << "this file system cannot hold a sparse 4 GiB file";
    }
    EXPECT_EQ(RunLimited({"3", Data("crlfiles/good.der"), "big.img"}), 0);
    EXPECT_EQ(RunLimited({"0", "big.img", "out"}), 0);
    EXPECT_EQ(ReadBytes("out"), Fixture("crlfiles/good.der"));
    EXPECT_EQ(RunLimited({"4", "0", "big.img", "out"}), 0);
    EXPECT_EQ(ReadFile("out"), "IMAGE_NVCNT=7\n");
    EXPECT_EQ(LogMessages().back(), "return result: 0.");
}

/* The image's own CRL block plays no part in operation 3, so its length
 * costs nothing; operation 0 copies a large one in pieces. */
TEST_F(LargeImageTest, LargeCrlBlocksAreSkippedOrCopiedInPieces)
{
    if (!MakeSparseImage("gib_crl.img", 0x1000000, kMaxImage, 1024 * kMiB) ||
        !MakeSparseImage("256mib_crl.img", 0x1000000, 0x1000000 + 300 * kMiB, 256 * kMiB)) {
        GTEST_SKIP() << "this file system cannot hold sparse files";
    }
    EXPECT_EQ(RunLimited({"3", Data("crlfiles/good.der"), "gib_crl.img"}), 0);
    EXPECT_EQ(RunLimited({"0", "256mib_crl.img", "out"}), 0);
    const Bytes good = Fixture("crlfiles/good.der");
    const Bytes start = ReadBytes("out");
    ASSERT_GE(start.size(), good.size());
    EXPECT_TRUE(std::equal(good.begin(), good.end(), start.begin()));
    EXPECT_EQ(start.size(), 256 * kMiB);
}

/* An output whose data cannot be made durable is a short write: a power
 * cut after a reported success must not leave an empty or truncated device
 * CRL or counter file. */
TEST_F(LargeImageTest, OutputThatCannotReachStorageIsAShortWrite)
{
    const std::string image = Data("images/valid.img");
    const struct {
        std::vector<std::string> args;
        int status;
    } cases[] = {{{"0", image, "out"}, 0x03}, {{"4", "0", image, "out"}, 2}};
    for (const auto &c : cases) {
        std::vector<std::string> argv = {"/usr/bin/env", "LD_PRELOAD=" FSYNC_FAIL_LIB,
                                         "ASAN_OPTIONS=verify_asan_link_order=0", CHECKTOOL_TEST_BIN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        EXPECT_EQ(RunProcess(argv).status, c.status) << c.args[0];
        bool reported = false;
        for (const std::string &line : LogMessages()) {
            reported = reported || line.rfind("write file fail out, errno = 5, ", 0) == 0;
        }
        EXPECT_TRUE(reported) << c.args[0];
    }
}

/* A CRL file never needs more than 2,000,000 bytes; a larger one is refused
 * before it is read. */
TEST_F(LargeImageTest, OversizedCrlFileIsRefusedUnread)
{
    WriteFile("big.crl", std::string(2000001, '\0'));
    EXPECT_EQ(RunProcess({CHECKTOOL_TEST_BIN, "2", "big.crl"}).status, 0x06);
    EXPECT_EQ(LogMessages()[1], "crl file big.crl too large, file size 2000001, limit 2000000.");
}

} // namespace
