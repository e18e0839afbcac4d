/* SPDX-License-Identifier: Apache-2.0 */
/* Shared helpers of the test suite: a private working directory per test
 * (the test build logs relative to it), whole-file helpers, the committed
 * fixtures and a way to run the check tool as a real process. */
#ifndef TESTS_SUPPORT_TEST_ENV_H
#define TESTS_SUPPORT_TEST_ENV_H

#include <gtest/gtest.h>

#include <stdint.h>

#include <string>
#include <vector>

namespace testenv {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

/* Sanitizer builds: several times slower, and no address-space limit can
 * hold their shadow memory. */
#ifndef __has_feature
#define __has_feature(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/* Log directory and files of the test build, relative to the working dir. */
constexpr const char kLogDir[] = "upgradetool-log";
constexpr const char kLogPath[] = "upgradetool-log/upgrade_crl.log";

/* Each test runs in a fresh directory of its own, removed afterwards. */
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    std::string dir_;
    std::string oldCwd_;
};

std::string ReadFile(const std::string &path);
Bytes ReadBytes(const std::string &path);
void WriteFile(const std::string &path, const void *data, size_t len);
inline void WriteFile(const std::string &path, const std::string &s) { WriteFile(path, s.data(), s.size()); }
inline void WriteFile(const std::string &path, const Bytes &b) { WriteFile(path, b.data(), b.size()); }
bool FileExists(const std::string &path);

/* A committed fixture's path, and its bytes (a missing one fails the test). */
std::string Data(const std::string &rel);
Bytes Fixture(const std::string &rel);
inline uint32_t Len(const Bytes &b) { return static_cast<uint32_t>(b.size()); }

/* Lines of the log with the header up to "CHECK_TOOL: " removed; with
 * `level`, each keeps its level in front ("MAJOR text"). */
Lines LogMessages(const std::string &logPath = kLogPath, bool level = false);

struct RunResult {
    int status;          /* exit status, or -1 when it did not exit normally */
    std::string out;     /* standard output */
};
/* Runs argv (argv[0] is the program) in the current directory. */
RunResult RunProcess(const std::vector<std::string> &argv);
/* Runs the test build of the check tool with these arguments. */
RunResult RunTool(const std::vector<std::string> &args);

} // namespace testenv

#endif
