// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tests/asn1/log_capture.h"
#include "base/diagnostics.h"
#include "vexa/vexa_log.h"

namespace {

using logtest::Records;

class Diagnostics : public logtest::Captured {};

/* Every field of a record: level, line, function, code, message. */
std::string Text(const logtest::Record &r)
{
    return std::to_string(r.level) + " " + std::to_string(r.line) + " " + r.function + " " +
           std::to_string(r.code) + " " + r.message;
}

TEST_F(Diagnostics, PassesEveryFieldThroughAndDropsRecordsThatCannotBeAttributed)
{
    VexaLogCallback(2, VEXA_LOG_FILE, 10, "F", 1, "text");
    VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 10, nullptr, 1, "text");
    VexaLogCallback(VEXA_LOG_WARNING, nullptr, 10, "F", 1, "text");
    EXPECT_TRUE(Records().empty());

    VexaLogCallback(VEXA_LOG_WARNING, VEXA_LOG_FILE, 1234, "InternalFindCertRoot", 0x88200004u, "depth %d of %s", 3,
                    "path");
    VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 7, "VexaPkiVerifyCert", 0xFFFFFFFFu, nullptr);
    ASSERT_EQ(Records().size(), 2u);
    EXPECT_EQ(Text(Records()[0]), "1 1234 InternalFindCertRoot 2283798532 depth 3 of path");
    EXPECT_EQ(Records()[1].message, "") << "no format";
}

TEST_F(Diagnostics, KeepsTheCallersRecordWhenFormattingFails)
{
    const std::string longest(VEXA_LOG_MESSAGE_MAX, 'x');
    const std::string tooLong(VEXA_LOG_MESSAGE_MAX + 1, 'y');
    const struct { const char *name; const char *format; bool formats; } cases[] = {
        {"longest message that fits", longest.c_str(), true},
        {"one character past the buffer", tooLong.c_str(), false},
        {"format that formats to nothing", "", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Records().clear();
        VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 99, "Caller", 5, c.format, 0);
        ASSERT_EQ(Records().size(), c.formats ? 1u : 2u);
        EXPECT_EQ(Text(Records().back()), std::string("0 99 Caller 5 ") + c.format)
            << "the raw format travels instead";
        if (!c.formats) {
            EXPECT_EQ(Text(Records()[0]), "0 49 VexaLogCallback 0 format log message failed.");
        }
    }
}

} // namespace
