// SPDX-License-Identifier: Apache-2.0
/* The operation log: rotation, overlong lines, a missing directory; and the
 * files a root run opens, planted or swapped by someone else (links in place
 * of the log, its lock or an output; FIFOs, devices and directories where a
 * regular file belongs), each test named for the attack it stops. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "services/oplog.h"
#include "support/test_env.h"

namespace {

using namespace testenv;

const std::string kLog = kLogPath;
const std::string kOld = kLog + ".old";

class OplogTest : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(kLogDir, 0750), 0);
    }
};

void MakeLog(const std::string &path, off_t size, mode_t mode = 0600)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, size), 0);
    close(fd);
}

struct stat StatOf(const std::string &path)
{
    struct stat st = {};
    st.st_size = -1;
    (void)stat(path.c_str(), &st);
    return st;
}

/* A line that would take the log past 5,242,880 bytes first turns it into
 * the one older generation; a rotation that cannot happen (the lock path
 * is taken, or another process holds the lock) must neither loop nor lose
 * the line. */
TEST_F(OplogTest, RotationAtTheThreshold)
{
    enum Lock { kFree, kLockIsDirectory, kLockHeld };
    const struct {
        const char *name;
        size_t logSize;
        size_t lineLen;
        Lock lock;
        off_t logAfter;
        off_t oldAfter; /* the old generation starts with 10 bytes */
    } cases[] = {
        {"a line crossing the threshold rotates", 5242000, 900, kFree, 900, 5242000},
        {"a line ending at the threshold does not", 5241000, 1000, kFree, 5242000, 10},
        {"the lock path is a directory", 5242800, 5, kLockIsDirectory, 5242805, 10},
        {"another process holds the lock", 5242800, 5, kLockHeld, 5242805, 10},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        remove(kOld.c_str());
        MakeLog(kLog, static_cast<off_t>(c.logSize));
        MakeLog(kOld, 10);
        int lockFd = -1;
        if (c.lock == kLockIsDirectory) {
            ASSERT_EQ(mkdir(g_lockPath, 0700), 0);
        } else if (c.lock == kLockHeld) {
            lockFd = open(g_lockPath, O_RDWR | O_CREAT, 0600);
            ASSERT_EQ(flock(lockFd, LOCK_EX), 0);
        }
        const std::string line(c.lineLen, 'a');
        const int fd = get_ring_fd(kLog.c_str(), line.c_str());
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        close(fd);
        EXPECT_EQ(StatOf(kLog).st_size, c.logAfter);
        EXPECT_EQ(StatOf(kLog).st_mode & 07777, 0600u) << "a fresh log is created private";
        EXPECT_EQ(StatOf(kOld).st_size, c.oldAfter);
        EXPECT_EQ(StatOf(kOld).st_mode & 07777, c.oldAfter == 10 ? 0600u : 0440u);
        if (c.lock == kFree) {
            EXPECT_FALSE(FileExists(g_lockPath)) << "the lock file exists only during a rotation";
        }
        if (lockFd >= 0) {
            close(lockFd);
        }
        ASSERT_EQ(remove(g_lockPath) == 0 || errno == ENOENT, true);
    }
}

TEST_F(OplogTest, OverlongLineIsDroppedWithANotice)
{
    /* The header takes 59 characters with a 19-character time. */
    const std::string prefix = "CRL MAJOR root 2026-01-01 00:00:00 127.0.0.1 CHECK_TOOL: ";
    const std::string fits(1024 - prefix.size(), 'x');
    ::testing::internal::CaptureStdout();
    write_log("%s%s", prefix.c_str(), fits.c_str());
    write_log("%s%sx", prefix.c_str(), fits.c_str());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "copy format to msg failed\n");
    EXPECT_EQ(ReadFile(kLog), prefix + fits) << "nothing of the 1025-character line is written";
}

TEST_F(OplogTest, SymlinkedLogIsNeverWritten)
{
    WriteFile("victim", std::string("keep"));
    ASSERT_EQ(symlink("../victim", kLog.c_str()), 0);
    ::testing::internal::CaptureStdout();
    LOG_MAJOR("should not appear.\n\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(ReadFile("victim"), "keep");
}

TEST_F(OplogTest, MissingDirectoryPrintsNoticesPerLine)
{
    ASSERT_EQ(rmdir(kLogDir), 0);
    ::testing::internal::CaptureStdout();
    LOG_MAJOR("one.\n\n");
    LOG_MAJOR("two.\n\n");
    const std::string notice = std::string("open ") + g_logPath + " failed, errno=2\nget ring fd failed\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), notice + notice);
}

/* A rotation opened the lock file with O_CREAT through whatever link was
 * there, so a root run created (or truncated) any file it named. */
TEST_F(OplogTest, LockFileLinkIsNeverFollowed)
{
    MakeLog(kLogPath, 5242000);
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), g_lockPath), 0);
    write_log("%s\n", std::string(900, 'x').c_str());
    EXPECT_FALSE(FileExists("victim"));
}

/* The log is checked for a link, then opened: a link swapped in between
 * used to receive the lines, and a rotation changed the mode of whatever the
 * link named. */
TEST_F(OplogTest, LogSwappedForLinkAfterTheCheckIsNeitherWrittenNorChmodded)
{
    MakeLog("victim", 5242000, 0644);
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), g_logPath), 0);
    EXPECT_LT(get_ring_fd(g_logPath, "line\n"), 0);
    rotate_log_file(g_logPath);
    struct stat st = {};
    ASSERT_EQ(stat("victim", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    EXPECT_EQ(st.st_size, 5242000);
}

/* A FIFO blocked the root process for ever at open; a device or a
 * directory was read or written as if it were the file. Each is refused at
 * once, with the operation's own open-failure line. */
TEST_F(OplogTest, NonRegularFilesAreRefusedAtOnce)
{
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    ASSERT_EQ(mkdir("dir", 0700), 0);
    const std::string image = Data("images/valid.img");
    const struct {
        const char *name;
        std::vector<std::string> args;
        int status;
        std::string line;
    } cases[] = {
        {"operation 0 output FIFO", {"0", image, "fifo"}, 1, "fifo fopen fail."},
        {"operation 0 output device", {"0", image, "/dev/null"}, 1, "/dev/null fopen fail."},
        {"operation 4 output directory", {"4", "0", image, "dir"}, 2, "dir fopen fail."},
        {"operation 2 CRL file FIFO", {"2", "fifo"}, 1, "open crl file failed fifo."},
        {"operation 3 image device", {"3", Data("crlfiles/good.der"), "/dev/zero"}, 1,
         "open crl file failed /dev/zero."},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> argv = {"/usr/bin/timeout", "60", CHECKTOOL_TEST_BIN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        EXPECT_EQ(RunProcess(argv).status, c.status);
        bool logged = false;
        for (const std::string &line : LogMessages()) {
            logged = logged || line == c.line;
        }
        EXPECT_TRUE(logged) << c.line;
    }
}

} // namespace
