// SPDX-License-Identifier: Apache-2.0
/* The check tool as a real process: identity check, dispatch, and for each
 * operation's main roads the exit status, the output file and the exact lines
 * of the operation log, levels included. */
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>

#include "support/image_builder.h"
#include "support/test_env.h"

namespace {

using namespace testenv;

class Cli : public TempDirTest {};

/* An unknown operation gives -1; a wrong argument count gives -1 without a
 * result line. Root gets the private log directory and no notice. */
TEST_F(Cli, RefusesUnknownOperationsAndWrongArgumentCounts)
{
    const struct {
        std::vector<std::string> args;
        Lines log;
    } cases[] = {
        {{"5", "a", "b"}, {"MAJOR input op_type(5) invalid.", "SUGGESTION return result: -1."}},
        {{"-1", "a", "b"}, {"MAJOR input op_type(-1) invalid.", "SUGGESTION return result: -1."}},
        {{"99"}, {"MAJOR input op_type(99) invalid.", "SUGGESTION return result: -1."}},
        {{"2", "a", "b"}, {"MAJOR parameter num not right, op_type 2, argc 4"}},
        {{"4", "1", "img"}, {"MAJOR parameter num not right, op_type 4, argc 4"}},
        {{"3", "crl"}, {"MAJOR parameter num not right, op_type 3, argc 3"}},
        {{"abc"}, {"MAJOR parameter num not right, op_type 0, argc 2"}},
        {{}, {"MAJOR parameter num not right, op_type 0, argc 1"}},
    };
    for (const auto &c : cases) {
        remove(kLogPath);
        RunResult r = RunTool(c.args);
        EXPECT_EQ(r.status, 255) << c.log[0];
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(LogMessages(kLogPath, true), c.log);
    }
    struct stat st;
    ASSERT_EQ(stat(kLogDir, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
}

/* Anyone but the account named root is turned away before the log
 * directory is touched, by the test build and the real one alike. */
TEST_F(Cli, RefusesEveryoneButRoot)
{
    const struct {
        const char *uid;
        const char *notice;
    } cases[] = {
        {"65534", "Operating upgrade, but user invalid(nobody).\n"},
        {"54321", "Operating upgrade, but user invalid(null)\n"}, /* an id without an account */
    };
    for (const char *bin : {CHECKTOOL_TEST_BIN, CHECKTOOL_BIN}) {
        for (const auto &c : cases) {
            struct stat before = {};
            const bool hadLogDir = stat("/var/log/upgradetool", &before) == 0;
            RunResult r = RunProcess({"/usr/bin/setpriv", std::string("--reuid=") + c.uid,
                                      std::string("--regid=") + c.uid, "--clear-groups", bin, "4", "1", "img", "out"});
            EXPECT_EQ(r.status, 255) << bin << " as " << c.uid;
            EXPECT_EQ(r.out, std::string(c.notice) + "Only root has the authentication to upgrade.\n");
            EXPECT_FALSE(FileExists(kLogDir));
            struct stat after = {};
            ASSERT_EQ(stat("/var/log/upgradetool", &after) == 0, hadLogDir);
            EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
            EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
        }
    }
}

/* The request line each operation writes first; operation 3 takes the CRL
 * path first on its command line but logs the image path first. */
std::string Request(const std::vector<std::string> &a)
{
    switch (atoi(a[0].c_str())) {
    case 0: return "get image crl file, image path: " + a[1] + ", crl out path:" + a[2] + ".";
    case 1: return "compare crl file's timestamp, crl path 1: " + a[1] + ", crl path 2:" + a[2] + ".";
    case 2: return "check crl file's integrity, crl path: " + a[1] + ".";
    case 3: return "verify image file with input crl file, image path: " + a[2] + ", crl path:" + a[1] + ".";
    default: return "get image nvcnt, image_type: " + a[1] + ", image path: " + a[2] + ", out nvcnt :" + a[3] + ".";
    }
}

Bytes Image(uint32_t bodyLen, bool magic, Bytes crl, const char *sig = nullptr)
{
    ImageSpec def;
    def.bodyLen = bodyLen;
    def.magic = magic;
    def.crl = std::move(crl);
    if (sig != nullptr) {
        def.signature = Fixture(sig);
        def.content = Fixture("content/content.bin");
    }
    return BuildImage(def);
}

/* A SoC image ends with its NV counter record. */
Bytes SocImage(size_t size, uint32_t flag, uint32_t counter)
{
    Bytes b(size, 0xEE);
    if (size >= 8) {
        PutLe32(b, size - 8, flag);
        PutLe32(b, size - 4, counter);
    }
    return b;
}

/* A CMS image cut at `fileSize`, with counter 41 where its body ends. */
Bytes CmsImage(uint32_t bodyLen, uint64_t fileSize)
{
    Bytes b(fileSize + 0x10000, 0);
    PutLe32(b, 0x460, bodyLen);
    const uint64_t rec = 0x10000ull + bodyLen - 8;
    if (rec + 8 <= fileSize) {
        PutLe32(b, rec, 0x5A5AA5A5u);
        PutLe32(b, rec + 4, 41);
    }
    b.resize(fileSize);
    return b;
}

/* "out" before each run */
const std::string kKeep(1000, 'o');

struct OpRun {
    const char *name;
    std::vector<std::string> args;
    Bytes image;             /* written to "img" first, unless empty */
    uint32_t result;         /* the exit status is its low byte */
    Lines lines;             /* between the request line and the result line */
    std::string out = kKeep; /* "out" afterwards */
};

TEST_F(Cli, OperationsEndWithTheirStatusOutputAndLogLines)
{
    const std::string good = Data("crlfiles/good.der");
    const std::string garbage = Data("crlfiles/garbage.bin");
    Bytes truncated = BuildImage(ImageSpec{});
    truncated.pop_back();
    const std::string nvFailed = "MAJOR get_image_nvcnt failed, ret=2.";
    const std::string undecodable[] = {"MINOR update crl decode fail!\r", "MINOR pub crl decode fail!\r",
                                       "MINOR crl_exec_compare input parameter not valid !\r"};
    WriteFile("empty", std::string());
    const OpRun runs[] = {
        {"extract: the CRL block replaces a longer output", {"0", "img", "out"}, Image(0x1000, true, Bytes(300, 'C')),
         0, {}, std::string(300, 'C')},
        {"extract: a CRL block of length 0 empties the output", {"0", "img", "out"}, Image(0x1000, true, {}), 0, {}, ""},
        {"extract: letters select operation 0", {"abc", "missing.img", "out"}, {}, 0x88000101u,
         {"MAJOR realpath fail", "MAJOR open crl file failed missing.img.",
          "MAJOR read crl file failed, ret=-2013265663.", "MINOR parse image file failed, ret=-2013265663.", "MINOR get_image_crl_file failed, ret=-2013265663."}},
        {"extract: no trailer magic, the output is not opened", {"0", "img", "out"}, Image(0x1000, false, {}),
         0x88100001u,
         {"MINOR this image file not has cms crl", "MINOR img get_cms_file_info fail.",
          "MINOR parse image file failed, ret=-2012217343.", "MINOR get_image_crl_file failed, ret=-2012217343."}},
        {"extract: the output must exist", {"0", "img", "missing-out"}, Image(0x1000, true, {}), 0x88000101u,
         {"MAJOR realpath fail", "MAJOR missing-out fopen fail.", "MINOR get_image_crl_file failed, ret=-2013265663."}},
        {"extract: a truncated image is refused before any block is used", {"0", "img", "out"}, truncated,
         0x88100001u,
         {"MAJOR image file layout invalid, file size " + std::to_string(truncated.size()) + ".",
          "MINOR img get_cms_file_info fail.", "MINOR parse image file failed, ret=-2012217343.",
          "MINOR get_image_crl_file failed, ret=-2012217343."}},
        {"check: garbage", {"2", garbage}, {}, 3, {undecodable[0], undecodable[1], undecodable[2], "MAJOR both crl error!\r"}},
        {"check: an unverified CRL decodes but is invalid", {"2", Data("crlfiles/cmp_unverified.der")}, {}, 3,
         {"MAJOR both crl error!\r"}},
        {"compare: mixed dates give 3 without a line", {"1", Data("crlfiles/cmp_mixed.der"), good}, {}, 3, {}},
        {"compare: the comparison fails", {"1", Data("crlfiles/cmp_int_crl_dropped.der"), good}, {}, 3,
         {"MAJOR compare crl file fail!\r"}},
        {"compare: only the device file is valid", {"1", garbage, good}, {}, 4,
         {undecodable[0], undecodable[2], "MINOR device crl is valid , update crl has destroyed!\r"}},
        {"compare: only the update file is valid", {"1", good, garbage}, {}, 5,
         {undecodable[1], undecodable[2], "MINOR device crl has destroyed, update crl is valid!\r"}},
        {"compare: the second file is missing", {"1", good, "missing"}, {}, 0x88000101u,
         {"MAJOR realpath fail", "MAJOR open crl file failed missing.", "MAJOR read crl file failed, ret=-2013265663."}},
        {"verify: the image's own CRL block is not read", {"3", good, "img"},
         Image(0x1000, true, Fixture("crlfiles/garbage.bin"), "sig/valid.der"), 0, {}},
        {"verify: the image's own CRL block is not used", {"3", good, "img"},
         Image(0x1000, true, Fixture("crlfiles/signer_revoked.der"), "sig/valid.der"), 0, {}},
        {"verify: content changed, the library's code is replaced", {"3", good, Data("images/content_changed.img")},
         {}, 0x88200309u, {"MAJOR cms final failed ", "MAJOR image cms data verify fail, ret=-2011167991."}},
        {"verify: a CRL file the library refuses stops before the signature", {"3", garbage, Data("images/no_token.img")},
         {}, 0x88200102u, {"MAJOR add crl fail ret = 0x88200102", "MAJOR image cms data verify fail, ret=-2011168510."}},
        {"verify: Begin refuses the signature", {"3", good, Data("images/no_token.img")}, {}, 0x88100001u,
         {"MAJOR verify fail ret = 0x88100001", "MAJOR image cms data verify fail, ret=-2012217343."}},
        {"verify: no trailer magic, the CRL file is not read", {"3", "missing", "img"}, Image(0x1000, false, {}),
         0x88100001u,
         {"MINOR this image file not has cms crl", "MINOR img get_cms_file_info fail.",
          "MAJOR get_image_crl_file failed, ret=-2012217343."}},
        {"verify: an empty CRL file", {"3", "empty", Data("images/valid.img")}, {}, 0x88000104u,
         {"MAJOR VexaFileGetSize zero.", "MAJOR read crl file failed, ret=-2013265660."}},
        {"nvcnt: a SoC image of exactly 8 bytes is its own record", {"4", "1", "img", "out"},
         SocImage(8, 0x5A5AA5A5u, 7), 0, {}, "IMAGE_NVCNT=7\n"},
        {"nvcnt: a SoC image of 5 bytes fails at the seek", {"4", "1", "img", "out"}, SocImage(5, 0, 0), 2,
         {"MAJOR fseek fail, ret=-1.", "MAJOR get_soc_image_nvcnt failed, ret=2281701634.", nvFailed}},
        {"nvcnt: no SoC record flag", {"4", "1", "img", "out"}, SocImage(100, 0, 9), 1,
         {"MAJOR image flag[0x0] not valid, image nvcnt not exist.", "MAJOR get_image_nvcnt failed, ret=1."}},
        {"nvcnt: CMS body length 0 reads the end of the header region", {"4", "0", "img", "out"},
         CmsImage(0, 0x10000), 0, {}, "IMAGE_NVCNT=41\n"},
        {"nvcnt: CMS body length 0 needs the whole header region", {"4", "0", "img", "out"}, CmsImage(0, 0xFFFF), 2,
         {"MAJOR file_size [65535] or offset[65528] invalid.", "MAJOR get_cms_image_nvcnt failed, ret=2281701636.",
          nvFailed}},
        {"nvcnt: a CMS image shorter than its header fields", {"4", "0", "img", "out"}, Bytes(1135, 0), 2,
         {"MAJOR VexaFileRead failed, read_count=1135.", "MAJOR get_cms_image_nvcnt failed, ret=2281701634.",
          nvFailed}},
        {"nvcnt: a CMS body length that wraps the offset before the file", {"4", "0", "img", "out"},
         CmsImage(0xFFFF0000u, 0x1000), 2,
         {"MAJOR fseek fail, ret=-1.", "MAJOR get_cms_image_nvcnt failed, ret=2281701634.", nvFailed}},
        {"nvcnt: an unknown image type is not opened", {"4", "2", "missing", "out"}, {}, 2,
         {"MAJOR image type[2] not support.", nvFailed}},
        {"nvcnt: the output must exist", {"4", "1", "img", "missing-out"}, SocImage(16, 0x5A5AA5A5u, 3), 2,
         {"MAJOR realpath fail", "MAJOR missing-out fopen fail.", "MAJOR write_nvcnt_to_file failed, ret = 2281701633", nvFailed}},
    };
    for (const OpRun &c : runs) {
        SCOPED_TRACE(c.name);
        if (!c.image.empty()) {
            WriteFile("img", c.image);
        }
        WriteFile("out", kKeep);
        remove(kLogPath);
        EXPECT_EQ(RunTool(c.args).status, static_cast<int>(c.result & 0xFF));
        EXPECT_EQ(ReadFile("out"), c.out);
        Lines want = c.lines;
        want.insert(want.begin(), "MAJOR " + Request(c.args));
        want.push_back("SUGGESTION return result: " + std::to_string(static_cast<int32_t>(c.result)) + ".");
        EXPECT_EQ(LogMessages(kLogPath, true), want);
    }
}

} // namespace
