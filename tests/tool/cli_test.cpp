/* The check tool as a real process: identity check, dispatch, argument
 * counts, and the log lines of operations 0 and 4. */
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "support/image_builder.h"
#include "support/test_env.h"

namespace {

using testenv::Bytes;
using testenv::BuildImage;
using testenv::ImageSpec;
using testenv::LogMessages;
using testenv::ReadFile;
using testenv::RunProcess;
using testenv::RunResult;
using testenv::TempDirTest;
using testenv::WriteFile;

using Lines = std::vector<std::string>;

class CliTest : public TempDirTest {
protected:
    static RunResult Tool(const std::vector<std::string> &args)
    {
        std::vector<std::string> argv{CHECKTOOL_TEST_BIN};
        argv.insert(argv.end(), args.begin(), args.end());
        return RunProcess(argv);
    }
};

TEST_F(CliTest, OperationNumberOutOfRange)
{
    for (const char *op : {"5", "-1", "99"}) {
        RunResult r = Tool({op, "a", "b"});
        EXPECT_EQ(r.status, 255) << op;
    }
    EXPECT_EQ(LogMessages(), (Lines{"input op_type(5) invalid.", "return result: -1.", "input op_type(-1) invalid.",
                                    "return result: -1.", "input op_type(99) invalid.", "return result: -1."}));
}

TEST_F(CliTest, WrongArgumentCountLogsOneLineAndNoResult)
{
    const struct {
        std::vector<std::string> args;
        const char *line;
    } cases[] = {
        {{"2", "a", "b"}, "parameter num not right, op_type 2, argc 4"},
        {{"4", "1", "img"}, "parameter num not right, op_type 4, argc 4"},
        {{"abc"}, "parameter num not right, op_type 0, argc 2"},
        {{}, "parameter num not right, op_type 0, argc 1"},
        {{"3", "crl"}, "parameter num not right, op_type 3, argc 3"},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(remove(testenv::kLogPath) == 0 || errno == ENOENT, true);
        RunResult r = Tool(c.args);
        EXPECT_EQ(r.status, 255) << c.line;
        EXPECT_EQ(LogMessages(), (Lines{c.line})) << "no result line after a wrong count";
    }
}

TEST_F(CliTest, LettersSelectOperationZero)
{
    RunResult r = Tool({"abc", "missing.img", "out"});
    EXPECT_EQ(r.status, 1);
    Lines log = LogMessages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log[0], "get image crl file, image path: missing.img, crl out path:out.");
    EXPECT_EQ(log.back(), "return result: -2013265663.") << "codes print as signed decimals";
}

TEST_F(CliTest, VerifyTakesTheCrlPathFirst)
{
    Tool({"3", "the.crl", "the.img"});
    Lines log = LogMessages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log[0], "verify image file with input crl file, image path: the.img, crl path:the.crl.");
}

TEST_F(CliTest, ExtractsTheCrlBlockExactly)
{
    ImageSpec def;
    def.crl = Bytes(300, 0x5C);
    WriteFile("img", BuildImage(def));
    WriteFile("out", std::string(1000, 'o'));
    RunResult r = Tool({"0", "img", "out"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(testenv::ReadBytes("out"), def.crl) << "an existing output is overwritten with the CRL bytes only";

    def.crl.clear();
    WriteFile("img", BuildImage(def));
    EXPECT_EQ(Tool({"0", "img", "out"}).status, 0);
    EXPECT_EQ(ReadFile("out"), "") << "a CRL block of length 0 gives an empty file";
}

TEST_F(CliTest, ExtractFailuresStackFromTheInsideOut)
{
    ImageSpec def;
    def.magic = false;
    WriteFile("img", BuildImage(def));
    WriteFile("out", std::string("keep"));
    RunResult r = Tool({"0", "img", "out"});
    EXPECT_EQ(r.status, 1);
    Lines log = LogMessages();
    EXPECT_EQ(Lines(log.begin() + 1, log.end()),
              (Lines{"this image file not has cms crl", "img get_cms_file_info fail.",
                     "parse image file failed, ret=-2012217343.", "get_image_crl_file failed, ret=-2012217343.",
                     "return result: -2012217343."}));
    EXPECT_EQ(ReadFile("out"), "keep") << "the output is not opened before the image is understood";

    WriteFile("img", BuildImage(ImageSpec{}));
    ASSERT_EQ(remove(testenv::kLogPath), 0);
    r = Tool({"0", "img", "no-such-out"});
    EXPECT_EQ(r.status, 1);
    log = LogMessages();
    EXPECT_EQ(Lines(log.end() - 3, log.end()), (Lines{"no-such-out fopen fail.", "get_image_crl_file failed, ret=-2013265663.",
                                                     "return result: -2013265663."}));
}

TEST_F(CliTest, RefusesTruncatedImageBeforeUsingAnyBlock)
{
    Bytes img = BuildImage(ImageSpec{});
    img.resize(img.size() - 1);
    WriteFile("img", img);
    WriteFile("out", std::string("keep"));
    RunResult r = Tool({"0", "img", "out"});
    EXPECT_EQ(r.status, 1);
    Lines log = LogMessages();
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[1], "image file layout invalid, file size " + std::to_string(img.size()) + ".");
    EXPECT_EQ(ReadFile("out"), "keep");
}

struct NvCase {
    const char *name;
    const char *type;
    Bytes image;
    int status;
    const char *output;   /* expected output file, or null when it must stay untouched */
    Lines innerLines;     /* log lines between the request and the result lines */
};

Bytes SocImage(size_t size, uint32_t flag, uint32_t counter)
{
    Bytes b(size, 0xEE);
    if (size >= 8) {
        testenv::PutLe32(b, size - 8, flag);
        testenv::PutLe32(b, size - 4, counter);
    }
    return b;
}

Bytes CmsImage(uint32_t bodyLen, uint64_t fileSize)
{
    Bytes b(fileSize, 0);
    testenv::PutLe32(b, 0x460, bodyLen);
    uint64_t rec = 0x10000ull + bodyLen - 8;
    if (rec + 8 <= fileSize) {
        testenv::PutLe32(b, rec, 0x5A5AA5A5u);
        testenv::PutLe32(b, rec + 4, 41);
    }
    b.resize(fileSize);
    return b;
}

TEST_F(CliTest, NvCounterPositionsAndBoundaries)
{
    const NvCase cases[] = {
        {"SoC image of exactly 8 bytes is its own record", "1", SocImage(8, 0x5A5AA5A5u, 7), 0, "IMAGE_NVCNT=7\n", {}},
        {"SoC image of 5 bytes fails at the seek", "1", SocImage(5, 0, 0), 2, nullptr,
         {"fseek fail, ret=-1.", "get_soc_image_nvcnt failed, ret=2281701634.", "get_image_nvcnt failed, ret=2."}},
        {"SoC flag missing", "1", SocImage(100, 0, 9), 1, nullptr,
         {"image flag[0x0] not valid, image nvcnt not exist.", "get_image_nvcnt failed, ret=1."}},
        {"CMS body length 0 reads the end of the header region", "0", CmsImage(0, 0x10000), 0, "IMAGE_NVCNT=41\n", {}},
        {"CMS body length 0 needs the whole header region", "0", CmsImage(0, 0xFFFF), 2, nullptr,
         {"file_size [65535] or offset[65528] invalid.", "get_cms_image_nvcnt failed, ret=2281701636.",
          "get_image_nvcnt failed, ret=2."}},
        {"CMS image ending with its body", "0", CmsImage(0x20, 0x10020), 0, "IMAGE_NVCNT=41\n", {}},
        {"CMS image one byte short of its body", "0", CmsImage(0x20, 0x1001F), 2, nullptr,
         {"file_size [65567] or offset[65560] invalid.", "get_cms_image_nvcnt failed, ret=2281701636.",
          "get_image_nvcnt failed, ret=2."}},
        {"CMS image shorter than its header fields", "0", Bytes(1135, 0), 2, nullptr,
         {"VexaFileRead failed, read_count=1135.", "get_cms_image_nvcnt failed, ret=2281701634.",
          "get_image_nvcnt failed, ret=2."}},
        {"CMS body length wraps the offset below the header", "0", CmsImage(0xFFFF0000u, 0x1000), 0, nullptr, {}},
        {"unknown image type is not opened", "2", Bytes(16, 0), 2, nullptr,
         {"image type[2] not support.", "get_image_nvcnt failed, ret=2."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile("img", c.image);
        WriteFile("out", std::string("untouched"));
        ASSERT_EQ(remove(testenv::kLogPath) == 0 || errno == ENOENT, true);
        RunResult r = Tool({"4", c.type, "img", "out"});
        if (std::string(c.name).find("wraps") != std::string::npos) {
            /* (0xFFFF0000 + 0x10000) wraps to 0: the offset is -8, before the
             * file; the seek must fail cleanly. */
            EXPECT_EQ(r.status, 2);
            continue;
        }
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(ReadFile("out"), c.output ? c.output : "untouched");
        Lines log = LogMessages();
        ASSERT_GE(log.size(), 2u);
        EXPECT_EQ(log.front(), std::string("get image nvcnt, image_type: ") + c.type +
                                   ", image path: img, out nvcnt :out.");
        EXPECT_EQ(Lines(log.begin() + 1, log.end() - 1), c.innerLines);
        EXPECT_EQ(log.back(), "return result: " + std::to_string(c.status) + ".");
    }
}

TEST_F(CliTest, NvCounterOutputMustExist)
{
    WriteFile("img", SocImage(16, 0x5A5AA5A5u, 3));
    RunResult r = Tool({"4", "1", "img", "missing-out"});
    EXPECT_EQ(r.status, 2);
    Lines log = LogMessages();
    EXPECT_EQ(Lines(log.end() - 4, log.end()),
              (Lines{"missing-out fopen fail.", "write_nvcnt_to_file failed, ret = 2281701633",
                     "get_image_nvcnt failed, ret=2.", "return result: 2."}));
}

/* Identity: anyone but the account named root is turned away before the log
 * directory is touched. */
TEST_F(CliTest, RefusesEveryoneButRoot)
{
    const struct {
        const char *uid;
        const char *firstLine;
    } cases[] = {
        {"65534", "Operating upgrade, but user invalid(nobody).\n"},
        {"54321", "Operating upgrade, but user invalid(null)\n"},
    };
    for (const char *bin : {CHECKTOOL_TEST_BIN, CHECKTOOL_BIN}) {
        for (const auto &c : cases) {
            struct stat before;
            bool hadLogDir = stat("/var/log/upgradetool", &before) == 0;
            RunResult r = RunProcess({"/usr/bin/setpriv", std::string("--reuid=") + c.uid, std::string("--regid=") + c.uid,
                               "--clear-groups", bin, "4", "1", "img", "out"});
            EXPECT_EQ(r.status, 255) << bin << " as " << c.uid;
            EXPECT_EQ(r.out, std::string(c.firstLine) + "Only root has the authentication to upgrade.\n");
            EXPECT_FALSE(testenv::FileExists(testenv::kLogDir)) << "no log directory for a refused caller";
            struct stat after;
            EXPECT_EQ(stat("/var/log/upgradetool", &after) == 0, hadLogDir);
            if (hadLogDir) {
                EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
                EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
            }
        }
    }
}

TEST_F(CliTest, RootCreatesThePrivateLogDirectory)
{
    RunResult r = Tool({"7"});
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "");
    struct stat st;
    ASSERT_EQ(stat(testenv::kLogDir, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
}

} // namespace
