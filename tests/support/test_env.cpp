// SPDX-License-Identifier: Apache-2.0
#include "support/test_env.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace testenv {

void TempDirTest::SetUp()
{
    oldCwd_ = std::filesystem::current_path();
    char tmpl[] = "/tmp/checktool-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
    ASSERT_EQ(chdir(dir_.c_str()), 0);
}

void TempDirTest::TearDown()
{
    std::error_code ec;
    std::filesystem::current_path(oldCwd_, ec);
    EXPECT_FALSE(ec) << ec.message();
    if (!dir_.empty()) {
        std::filesystem::remove_all(dir_, ec);
    }
}

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Bytes ReadBytes(const std::string &path)
{
    std::string s = ReadFile(path);
    return Bytes(s.begin(), s.end());
}

void WriteFile(const std::string &path, const void *data, size_t len)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char *>(data), static_cast<std::streamsize>(len));
    EXPECT_TRUE(out.good()) << path;
}

bool FileExists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::string Data(const std::string &rel)
{
    return std::string(TESTDATA_DIR) + "/" + rel;
}

Bytes Fixture(const std::string &rel)
{
    Bytes b = ReadBytes(Data(rel));
    EXPECT_FALSE(b.empty()) << rel;
    return b;
}

Lines LogMessages(const std::string &logPath, bool level)
{
    Lines out;
    std::istringstream in(ReadFile(logPath));
    std::string line;
    const std::string tag = "CHECK_TOOL: ";
    while (std::getline(in, line)) {
        const size_t at = line.find(tag);
        if (at != std::string::npos) {
            /* the level is the second word: "CRL MAJOR root ..." */
            const size_t from = line.find(' ') + 1;
            const std::string prefix = level ? line.substr(from, line.find(' ', from) - from) + " " : "";
            out.push_back(prefix + line.substr(at + tag.size()));
        }
    }
    return out;
}

RunResult RunProcess(const std::vector<std::string> &argv)
{
    int pipefd[2];
    RunResult r{-1, ""};
    if (pipe(pipefd) != 0) {
        return r;
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(pipefd[1], 1);
        close(pipefd[0]);
        close(pipefd[1]);
        std::vector<char *> args;
        for (const auto &a : argv) {
            args.push_back(const_cast<char *>(a.c_str()));
        }
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    close(pipefd[1]);
    char buf[4096];
    ssize_t n;
    while ((n = read(pipefd[0], buf, sizeof buf)) > 0) {
        r.out.append(buf, static_cast<size_t>(n));
    }
    close(pipefd[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

RunResult RunTool(const std::vector<std::string> &args)
{
    std::vector<std::string> argv{CHECKTOOL_TEST_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProcess(argv);
}

} // namespace testenv
