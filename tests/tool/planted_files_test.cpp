// SPDX-License-Identifier: Apache-2.0
/* Files a root run opens, planted or swapped by someone else: links in
 * place of the log, its lock or an output, and FIFOs, devices and
 * directories where a regular file belongs. Each test is named for the
 * attack it stops. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "oplog.h"
#include "support/test_env.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;

class PlantedFilesTest : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(kLogDir, 0750), 0);
    }
};

void MakeFile(const std::string &path, off_t size, mode_t mode = 0600)
{
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, size), 0);
    close(fd);
}

/* A rotation opened the lock file with O_CREAT through whatever link was
 * there, so a root run created (or truncated) any file it named. */
TEST_F(PlantedFilesTest, LockFileLinkIsNeverFollowed)
{
    MakeFile(kLogPath, 5242000);
    ASSERT_EQ(symlink((dir_ + "/victim").c_str(), g_lockPath), 0);
    write_log("%s\n", std::string(900, 'x').c_str());
    EXPECT_FALSE(FileExists("victim"));
}

/* The log is checked for a link, then opened: a link swapped in between
 * used to receive the lines, and a rotation changed the mode of whatever the
 * link named. */
TEST_F(PlantedFilesTest, LogSwappedForLinkAfterTheCheckIsNeitherWrittenNorChmodded)
{
    MakeFile("victim", 5242000, 0644);
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
TEST_F(PlantedFilesTest, NonRegularFilesAreRefusedAtOnce)
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
        std::vector<std::string> argv = {"/usr/bin/timeout", "10", CHECKTOOL_TEST_BIN};
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
