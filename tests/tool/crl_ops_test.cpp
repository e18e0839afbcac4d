/* Operations 1 and 2 as real processes: the verdict as exit status and the
 * exact lines of the operation log, levels included. */
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/test_env.h"

namespace {

std::string Data(const std::string &rel)
{
    return std::string(TESTDATA_DIR) + "/" + rel;
}

/* "LEVEL message" for every log line. The CRL decisions end in "\r\n\n",
 * so their text keeps the carriage return. */
std::vector<std::string> LevelledLog()
{
    std::vector<std::string> out;
    std::istringstream in(testenv::ReadFile(testenv::kLogPath));
    std::string line;
    const std::string tag = "CHECK_TOOL: ";
    while (std::getline(in, line)) {
        const size_t at = line.find(tag);
        if (at == std::string::npos) {
            continue;
        }
        std::istringstream words(line);
        std::string module;
        std::string level;
        words >> module >> level;
        out.push_back(level + " " + line.substr(at + tag.size()));
    }
    return out;
}

std::string Signed(uint32_t code)
{
    return std::to_string(static_cast<int32_t>(code));
}

class CrlOps : public testenv::TempDirTest {};

TEST_F(CrlOps, VerdictsAndTheirLogLines)
{
    const std::string good = Data("crlfiles/good.der");
    const std::string garbage = Data("crlfiles/garbage.bin");
    const struct {
        const char *name;
        std::vector<std::string> args;
        int status;
        std::vector<std::string> lines; /* after the request line */
    } cases[] = {
        {"a valid file checked", {"2", good}, 0, {"SUGGESTION return result: 0."}},
        {"a PEM file checked", {"2", Data("crlfiles/good.pem")}, 0, {"SUGGESTION return result: 0."}},
        {"garbage checked",
         {"2", garbage},
         3,
         {"MINOR update crl decode fail!\r", "MINOR pub crl decode fail!\r",
          "MINOR crl_exec_compare input parameter not valid !\r", "MAJOR both crl error!\r",
          "SUGGESTION return result: 3."}},
        {"CRLs without a certificate checked",
         {"2", Data("crlfiles/cmp_no_cert.der")},
         3,
         {"MINOR update crl decode fail!\r", "MINOR pub crl decode fail!\r",
          "MINOR crl_exec_compare input parameter not valid !\r", "MAJOR both crl error!\r",
          "SUGGESTION return result: 3."}},
        {"an unverified CRL decodes but is invalid",
         {"2", Data("crlfiles/cmp_unverified.der")},
         3,
         {"MAJOR both crl error!\r", "SUGGESTION return result: 3."}},
        {"identical files", {"1", good, good}, 0, {"SUGGESTION return result: 0."}},
        {"the update is newer", {"1", Data("crlfiles/cmp_newer.der"), good}, 1, {"SUGGESTION return result: 1."}},
        {"the device is newer", {"1", good, Data("crlfiles/cmp_newer.der")}, 2, {"SUGGESTION return result: 2."}},
        {"mixed dates give 3 without a line", {"1", Data("crlfiles/cmp_mixed.der"), good}, 3,
         {"SUGGESTION return result: 3."}},
        {"a comparison that fails",
         {"1", Data("crlfiles/cmp_int_crl_dropped.der"), good},
         3,
         {"MAJOR compare crl file fail!\r", "SUGGESTION return result: 3."}},
        {"only the device file is valid",
         {"1", garbage, good},
         4,
         {"MINOR update crl decode fail!\r", "MINOR crl_exec_compare input parameter not valid !\r",
          "MINOR device crl is valid , update crl has destroyed!\r", "SUGGESTION return result: 4."}},
        {"only the update file is valid",
         {"1", good, garbage},
         5,
         {"MINOR pub crl decode fail!\r", "MINOR crl_exec_compare input parameter not valid !\r",
          "MINOR device crl has destroyed, update crl is valid!\r", "SUGGESTION return result: 5."}},
        {"both files garbage",
         {"1", garbage, garbage},
         3,
         {"MINOR update crl decode fail!\r", "MINOR pub crl decode fail!\r",
          "MINOR crl_exec_compare input parameter not valid !\r", "MAJOR both crl error!\r",
          "SUGGESTION return result: 3."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> argv{CHECKTOOL_TEST_BIN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        testenv::RunResult r = testenv::RunProcess(argv);
        EXPECT_EQ(r.status, c.status);
        std::vector<std::string> log = LevelledLog();
        ASSERT_FALSE(log.empty());
        const std::string request = c.args[0] == "2"
                                        ? "MAJOR check crl file's integrity, crl path: " + c.args[1] + "."
                                        : "MAJOR compare crl file's timestamp, crl path 1: " + c.args[1] +
                                              ", crl path 2:" + c.args[2] + ".";
        EXPECT_EQ(log.front(), request);
        EXPECT_EQ(std::vector<std::string>(log.begin() + 1, log.end()), c.lines);
        ASSERT_EQ(remove(testenv::kLogPath), 0);
    }
}

/* A file that cannot be read gives a result code in place of a verdict, and
 * no comparison is attempted. The file service reports its own failure
 * first. */
TEST_F(CrlOps, UnreadableFilesGiveResultCodes)
{
    const std::string good = Data("crlfiles/good.der");
    testenv::WriteFile("empty", std::string());
    const struct {
        const char *name;
        std::vector<std::string> args;
        uint32_t code;
        std::vector<std::string> lines;
    } cases[] = {
        {"second file missing",
         {"1", good, "missing"},
         0x88000101u,
         {"MAJOR realpath fail", "MAJOR open crl file failed missing.", "MAJOR read crl file failed, ret=" + Signed(0x88000101u) + "."}},
        {"first file missing",
         {"1", "missing", good},
         0x88000101u,
         {"MAJOR realpath fail", "MAJOR open crl file failed missing.", "MAJOR read crl file failed, ret=" + Signed(0x88000101u) + "."}},
        {"empty file checked",
         {"2", "empty"},
         0x88000104u,
         {"MAJOR VexaFileGetSize zero.", "MAJOR read crl file failed, ret=" + Signed(0x88000104u) + "."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> argv{CHECKTOOL_TEST_BIN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        testenv::RunResult r = testenv::RunProcess(argv);
        EXPECT_EQ(r.status, static_cast<int>(c.code & 0xFF));
        std::vector<std::string> log = LevelledLog();
        ASSERT_GE(log.size(), 2u);
        std::vector<std::string> want = c.lines;
        want.push_back("SUGGESTION return result: " + Signed(c.code) + ".");
        EXPECT_EQ(std::vector<std::string>(log.begin() + 1, log.end()), want);
        ASSERT_EQ(remove(testenv::kLogPath), 0);
    }
}

} // namespace
