// SPDX-License-Identifier: Apache-2.0
/* Eight processes writing 20,000 lines each to the same log across the
 * rotation threshold: no line torn, interleaved or lost from the last two
 * generations, no generation past the threshold by more than a line. */
#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "services/oplog.h"
#include "support/test_env.h"

namespace {

using namespace testenv;

constexpr int kWriters = 8;
constexpr int kLinesEach = 20000;
constexpr off_t kThreshold = 0x4FFFFF;

/* One whole line of a writer: header, writer and line numbers, pid and
 * the 32-character tail; false for anything torn or interleaved. */
bool ParseLine(const std::string &line, int *writer, int *number)
{
    int y, mo, d, h, mi, s, pid, used = -1;
    char tail[40] = {0};
    const int fields = sscanf(line.c_str(),
                              "CRL MAJOR root %4d-%2d-%2d %2d:%2d:%2d 127.0.0.1 CHECK_TOOL: writer %d line %d pid %d "
                              "%39[x.]%n",
                              &y, &mo, &d, &h, &mi, &s, writer, number, &pid, tail, &used);
    return fields == 10 && used == static_cast<int>(line.size()) && std::string(tail) == std::string(32, 'x') + ".";
}

/* Checks every line of one file and notes the highest line number seen per
 * writer; fails on a torn line or a writer going backwards. */
void CheckFile(const std::string &path, std::map<int, int> *last)
{
    std::istringstream in(ReadFile(path));
    std::map<int, int> seen;
    for (std::string line; std::getline(in, line);) {
        int writer = 0;
        int number = 0;
        ASSERT_TRUE(ParseLine(line, &writer, &number)) << path << ": torn line: " << line;
        ASSERT_TRUE(seen.count(writer) == 0 || seen[writer] < number) << path << ": writer " << writer << " went back";
        seen[writer] = number;
        ASSERT_TRUE(std::getline(in, line) && line.empty()) << path << ": interleaved line after " << number;
    }
    for (const auto &kv : seen) {
        (*last)[kv.first] = std::max((*last)[kv.first], kv.second);
    }
}

class LogConcurrency : public TempDirTest {};

TEST_F(LogConcurrency, EightWritersAcrossRotation)
{
    ASSERT_EQ(mkdir(kLogDir, 0750), 0);
    std::vector<pid_t> pids;
    for (int w = 0; w < kWriters; w++) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (int i = 0; i < kLinesEach; i++) {
                LOG_MAJOR("writer %d line %d pid %d xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.\n\n", w, i, static_cast<int>(getpid()));
            }
            _exit(0);
        }
        pids.push_back(pid);
    }
    for (pid_t pid : pids) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const std::string log = kLogPath;
    struct stat st;
    /* one line of this test is under 120 bytes */
    ASSERT_EQ(stat(log.c_str(), &st), 0);
    EXPECT_LE(st.st_size, kThreshold + 120) << "the log overshot its threshold by more than one line";
    ASSERT_EQ(stat((log + ".old").c_str(), &st), 0) << "160,000 lines must have rotated";
    EXPECT_LE(st.st_size, kThreshold + 120) << "the rotated generation overshot the threshold";
    EXPECT_FALSE(FileExists(log + ".old.old"));
    EXPECT_FALSE(FileExists(std::string(kLogDir) + "/upgrade_crl.lock")) << "lock file left behind";

    std::map<int, int> last;
    CheckFile(log + ".old", &last);
    CheckFile(log, &last);
    for (int w = 0; w < kWriters; w++) {
        EXPECT_EQ(last[w], kLinesEach - 1) << "writer " << w << "'s last line is missing";
    }
}

} // namespace
