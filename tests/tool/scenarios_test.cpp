// SPDX-License-Identifier: Apache-2.0
/* Every scenario of the forge fixture set through the real check tool: the
 * exit status and the final "return result" line must be what the scenario
 * list says. */
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/image_builder.h"
#include "support/test_env.h"

namespace {

using namespace testenv;

std::vector<std::string> Split(const std::string &s, char sep)
{
    std::vector<std::string> out;
    std::istringstream in(s);
    for (std::string part; std::getline(in, part, sep);) {
        out.push_back(part);
    }
    return out;
}

class Scenarios : public TempDirTest {};

TEST_F(Scenarios, CheckToolGivesTheListedResult)
{
    std::ifstream in(Data("scenarios.txt"));
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        /* name, op, args, blocks, expected result, about */
        const std::vector<std::string> col = Split(line, '\t');
        if (line.empty() || line[0] == '#' || col.size() < 6) {
            continue;
        }
        SCOPED_TRACE(col[0] + ": " + col[5]);
        count++;
        std::vector<std::string> args;
        if (col[1] == "sig") {
            /* a signature block without a committed image: wrap it in one */
            const std::vector<std::string> blocks = Split(col[3], ' ');
            ASSERT_EQ(blocks.size(), 2u);
            ImageSpec def;
            def.signature = Fixture(blocks[0]);
            def.content = Fixture(blocks[1]);
            WriteFile("wrapped.img", BuildImage(def));
            args = {"3", Data(col[2]), "wrapped.img"};
        } else {
            args.push_back(col[1]);
            for (const std::string &a : Split(col[2], ' ')) {
                if (a == "OUT") {
                    WriteFile("out", std::string());
                }
                args.push_back(a == "OUT" ? "out" : a.find('/') != std::string::npos ? Data(a) : a);
            }
        }
        const int64_t expect = std::stoll(col[4], nullptr, 0);
        EXPECT_EQ(RunTool(args).status, static_cast<int>(expect & 0xFF));
        const Lines log = LogMessages();
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log.back(), "return result: " + std::to_string(static_cast<int32_t>(expect)) + ".");
        ASSERT_EQ(remove(kLogPath), 0);
    }
    EXPECT_GT(count, 50);
}

} // namespace
