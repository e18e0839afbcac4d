#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "oplog.h"
#include "support/test_env.h"

namespace {

using testenv::FileExists;
using testenv::ReadFile;
using testenv::TempDirTest;

const std::string kLog = testenv::kLogPath;
const std::string kOld = kLog + ".old";

class OplogTest : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0);
    }

    static void MakeLog(const std::string &path, size_t size, mode_t mode = 0600)
    {
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
        close(fd);
    }

    /* Appends a line through get_ring_fd, as write_log does. */
    static void Append(const std::string &line)
    {
        int fd = get_ring_fd(kLog.c_str(), line.c_str());
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        close(fd);
    }

    static off_t SizeOf(const std::string &path)
    {
        struct stat st;
        return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
    }

    static mode_t ModeOf(const std::string &path)
    {
        struct stat st;
        return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
    }
};

TEST_F(OplogTest, LineFormatCarriesTheFourHeaderFields)
{
    LOG_MAJOR("hello %d.\n\n", 42);
    LOG_MINOR("crl decision\r\n\n");
    std::string log = ReadFile(kLog);
    /* CRL MAJOR root YYYY-MM-DD HH:MM:SS 127.0.0.1 CHECK_TOOL: text */
    const std::string pattern =
        "CRL MAJOR root [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} 127\\.0\\.0\\.1 CHECK_TOOL: hello 42\\.\n\n"
        "CRL MINOR root [0-9 :-]{19} 127\\.0\\.0\\.1 CHECK_TOOL: crl decision\r\n\n";
    EXPECT_TRUE(::testing::internal::RE::FullMatch(log, pattern)) << log;
    EXPECT_EQ(ModeOf(kLog), 0600u);
}

TEST_F(OplogTest, RotatesWhenTheLineWouldCrossTheThreshold)
{
    MakeLog(kLog, 5242000);
    MakeLog(kOld, 10);
    Append(std::string(900, 'a'));
    EXPECT_EQ(SizeOf(kOld), 5242000) << "the full log becomes the one older generation";
    EXPECT_EQ(ModeOf(kOld), 0440u);
    EXPECT_EQ(SizeOf(kLog), 900);
    EXPECT_EQ(ModeOf(kLog), 0600u) << "the fresh log is created private";
    EXPECT_FALSE(FileExists(g_lockPath)) << "the lock file exists only during a rotation";
}

TEST_F(OplogTest, NoRotationUpToTheThreshold)
{
    MakeLog(kLog, 5241000);
    Append(std::string(1000, 'b'));
    EXPECT_EQ(SizeOf(kLog), 5242000);
    EXPECT_FALSE(FileExists(kOld));
}

TEST_F(OplogTest, RotationThatCannotHappenStillAppendsOnce)
{
    /* A directory where the lock file belongs: rotation is impossible; the
     * writer must neither loop forever nor lose the line. */
    MakeLog(kLog, 5242800);
    ASSERT_EQ(mkdir(g_lockPath, 0700), 0);
    Append("line\n");
    EXPECT_EQ(SizeOf(kLog), 5242805);
    EXPECT_FALSE(FileExists(kOld));
}

TEST_F(OplogTest, WaitsBoundedlyWhileAnotherProcessHoldsTheLock)
{
    MakeLog(kLog, 5242800);
    int lockFd = open(g_lockPath, O_RDWR | O_CREAT, 0600);
    ASSERT_GE(lockFd, 0);
    ASSERT_EQ(flock(lockFd, LOCK_EX), 0);
    Append("line\n");
    EXPECT_EQ(SizeOf(kLog), 5242805) << "the stuck holder never rotated; the line is appended anyway";
    close(lockFd);
}

TEST_F(OplogTest, OverlongLineIsDroppedWithANotice)
{
    /* The header takes 59 characters with a 19-character time. */
    const std::string prefix = "CRL MAJOR root 2026-01-01 00:00:00 127.0.0.1 CHECK_TOOL: ";
    std::string fits(1024 - prefix.size(), 'x');
    ::testing::internal::CaptureStdout();
    write_log("%s%s", prefix.c_str(), fits.c_str());
    write_log("%s%sx", prefix.c_str(), fits.c_str());
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "copy format to msg failed\n");
    EXPECT_EQ(ReadFile(kLog), prefix + fits) << "nothing of the 1025-character line is written";
}

TEST_F(OplogTest, SymlinkedLogIsNeverWritten)
{
    testenv::WriteFile("victim", std::string("keep"));
    ASSERT_EQ(symlink("../victim", kLog.c_str()), 0);
    ::testing::internal::CaptureStdout();
    LOG_MAJOR("should not appear.\n\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(ReadFile("victim"), "keep");
}

TEST_F(OplogTest, MissingDirectoryPrintsNoticesPerLine)
{
    ASSERT_EQ(rmdir(testenv::kLogDir), 0);
    ::testing::internal::CaptureStdout();
    LOG_MAJOR("one.\n\n");
    LOG_MAJOR("two.\n\n");
    std::string expected = std::string("open ") + g_logPath + " failed, errno=2\nget ring fd failed\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), expected + expected);
}

TEST_F(OplogTest, TimeStringIsLeftEmptyWithoutABuffer)
{
    char buf[LOG_TIME_BUF_SIZE] = {0};
    get_time_str(sizeof buf, buf);
    EXPECT_EQ(strlen(buf), 19u);
    char tiny[8] = {0};
    get_time_str(sizeof tiny, tiny);
    EXPECT_STREQ(tiny, "") << "a time that does not fit is not written truncated";
    get_time_str(LOG_TIME_BUF_SIZE, nullptr);
}

} // namespace
