/* Every scenario of the forge fixture set through the real check tool: the
 * exit status and the final "return result" line must be what the scenario
 * list says. */
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/image_builder.h"
#include "support/test_env.h"

namespace {

using testenv::Bytes;
using testenv::ReadBytes;

struct Scenario {
    std::string name;
    std::string op;
    std::vector<std::string> args;
    std::vector<std::string> blocks;
    int64_t expect;
    std::string about;
};

std::vector<std::string> Split(const std::string &s, char sep)
{
    std::vector<std::string> out;
    std::istringstream in(s);
    std::string part;
    while (std::getline(in, part, sep)) {
        out.push_back(part);
    }
    return out;
}

std::vector<Scenario> LoadScenarios()
{
    std::vector<Scenario> out;
    std::ifstream in(std::string(TESTDATA_DIR) + "/scenarios.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::vector<std::string> cols = Split(line, '\t');
        if (cols.size() < 6) {
            continue;
        }
        Scenario s;
        s.name = cols[0];
        s.op = cols[1];
        s.args = Split(cols[2], ' ');
        s.blocks = cols[3] == "-" ? std::vector<std::string>{} : Split(cols[3], ' ');
        s.expect = std::stoll(cols[4], nullptr, 0);
        s.about = cols[5];
        out.push_back(s);
    }
    return out;
}

std::string Data(const std::string &rel)
{
    return std::string(TESTDATA_DIR) + "/" + rel;
}

class Scenarios : public testenv::TempDirTest {};

TEST_F(Scenarios, CheckToolGivesTheListedResult)
{
    std::vector<Scenario> all = LoadScenarios();
    ASSERT_GT(all.size(), 50u);
    for (const Scenario &s : all) {
        SCOPED_TRACE(s.name + ": " + s.about);
        std::vector<std::string> argv{CHECKTOOL_TEST_BIN};
        if (s.op == "sig") {
            /* a signature block without a committed image: wrap it in one */
            ASSERT_EQ(s.blocks.size(), 2u);
            testenv::ImageSpec def;
            def.signature = ReadBytes(Data(s.blocks[0]));
            def.content = ReadBytes(Data(s.blocks[1]));
            testenv::WriteFile("wrapped.img", testenv::BuildImage(def));
            argv.insert(argv.end(), {"3", Data(s.args[0]), "wrapped.img"});
        } else {
            argv.push_back(s.op);
            for (const std::string &a : s.args) {
                if (a == "OUT") {
                    testenv::WriteFile("out", std::string());
                    argv.push_back("out");
                } else if (a.find('/') != std::string::npos) {
                    argv.push_back(Data(a));
                } else {
                    argv.push_back(a);
                }
            }
        }
        testenv::RunResult r = testenv::RunProcess(argv);
        EXPECT_EQ(r.status, static_cast<int>(s.expect & 0xFF));
        std::vector<std::string> log = testenv::LogMessages();
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log.back(), "return result: " + std::to_string(static_cast<int32_t>(s.expect)) + ".");
        ASSERT_EQ(remove(testenv::kLogPath), 0);
    }
}

} // namespace
