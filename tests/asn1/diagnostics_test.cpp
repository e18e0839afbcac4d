#include <gtest/gtest.h>

#include <string>

#include "tests/asn1/log_capture.h"
#include "verify/diagnostics.h"
#include "vexa/vexa_log.h"

namespace {

using logtest::Records;

class Diagnostics : public logtest::Captured {};

TEST_F(Diagnostics, DropsRecordsThatCannotBeAttributed)
{
    VexaLogCallback(2, VEXA_LOG_FILE, 10, "F", 1, "text");
    VexaLogCallback(0xFFFFFFFFu, VEXA_LOG_FILE, 10, "F", 1, nullptr);
    VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 10, nullptr, 1, "text");
    VexaLogCallback(VEXA_LOG_WARNING, nullptr, 10, "F", 1, "text");
    EXPECT_TRUE(Records().empty());
}

TEST_F(Diagnostics, PassesEveryFieldThroughAndFormatsTheMessage)
{
    VexaLogCallback(VEXA_LOG_WARNING, VEXA_LOG_FILE, 1234, "InternalFindCertRoot", 0x88200004u, "depth %d of %s", 3,
                    "path");
    VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 7, "VexaPkiVerifyCert", 0xFFFFFFFFu, nullptr);
    ASSERT_EQ(Records().size(), 2u);
    const logtest::Record &first = Records()[0];
    EXPECT_EQ(first.level, VEXA_LOG_WARNING);
    EXPECT_EQ(first.logName, "vexa_log.log");
    EXPECT_EQ(first.line, 1234u);
    EXPECT_EQ(first.function, "InternalFindCertRoot");
    EXPECT_EQ(first.code, 0x88200004u);
    EXPECT_EQ(first.message, "depth 3 of path");
    /* no format: one record with an empty message, not a null one */
    const logtest::Record &second = Records()[1];
    EXPECT_EQ(second.level, VEXA_LOG_ERROR);
    EXPECT_TRUE(second.hasMessage);
    EXPECT_EQ(second.message, "");
    EXPECT_EQ(second.code, 0xFFFFFFFFu);
}

TEST_F(Diagnostics, KeepsTheCallersRecordWhenFormattingFails)
{
    const std::string longest(VEXA_LOG_MESSAGE_MAX, 'x');
    const std::string tooLong(VEXA_LOG_MESSAGE_MAX + 1, 'y');
    const char *empty = "";
    const struct {
        const char *name;
        const char *format;
        bool formats;
    } cases[] = {
        {"longest message that fits", longest.c_str(), true},
        {"one character past the buffer", tooLong.c_str(), false},
        {"format that formats to nothing", empty, false},
    };
    for (const auto &c : cases) {
        Records().clear();
        VexaLogCallback(VEXA_LOG_ERROR, VEXA_LOG_FILE, 99, "Caller", 5, c.format, 0);
        if (c.formats) {
            ASSERT_EQ(Records().size(), 1u) << c.name;
            EXPECT_EQ(Records()[0].message, c.format) << c.name;
            continue;
        }
        ASSERT_EQ(Records().size(), 2u) << c.name;
        const logtest::Record &notice = Records()[0];
        EXPECT_EQ(notice.level, VEXA_LOG_ERROR) << c.name;
        EXPECT_EQ(notice.logName, "vexa_log.log") << c.name;
        EXPECT_EQ(notice.line, 49u) << c.name;
        EXPECT_EQ(notice.function, "VexaLogCallback") << c.name;
        EXPECT_EQ(notice.code, 0u) << c.name;
        EXPECT_EQ(notice.message, "format log message failed.") << c.name;
        const logtest::Record &caller = Records()[1];
        EXPECT_EQ(caller.function, "Caller") << c.name;
        EXPECT_EQ(caller.line, 99u) << c.name;
        EXPECT_EQ(caller.code, 5u) << c.name;
        EXPECT_EQ(caller.message, c.format) << c.name << ": the raw format travels instead";
    }
}

/* Guard style: a chain of records from the inside out, one per function. */
int g_stepsRun = 0;

uint32_t InnerCheck(int value)
{
    g_stepsRun++;
    VEXA_ENSURE(value > 0, 0x88300401u);
    return VEXA_OK;
}

uint32_t MiddleStep(int value)
{
    VEXA_GUARD(InnerCheck(value));
    return VEXA_OK;
}

uint32_t OuterStep(int value)
{
    VEXA_GUARD(MiddleStep(value));
    if (value > 100) {
        return VEXA_FAIL(0x88300701u);
    }
    return VEXA_OK;
}

TEST_F(Diagnostics, GuardsLeaveOneRecordPerFunctionFromTheInsideOut)
{
    g_stepsRun = 0;
    EXPECT_EQ(OuterStep(5), VEXA_OK);
    EXPECT_TRUE(Records().empty()) << "success leaves no trace";
    EXPECT_EQ(g_stepsRun, 1);

    g_stepsRun = 0;
    EXPECT_EQ(OuterStep(-1), 0x88300401u) << "the code travels unchanged";
    EXPECT_EQ(g_stepsRun, 1) << "a guarded step runs once";
    EXPECT_EQ(logtest::Functions(), (std::vector<std::string>{"InnerCheck", "MiddleStep", "OuterStep"}));
    for (const logtest::Record &r : Records()) {
        EXPECT_EQ(r.level, VEXA_LOG_ERROR);
        EXPECT_EQ(r.code, 0x88300401u);
        EXPECT_EQ(r.logName, "vexa_log.log");
        EXPECT_NE(r.line, 0u);
    }
    EXPECT_NE(Records()[0].line, Records()[1].line) << "each record points at its own check";

    Records().clear();
    EXPECT_EQ(OuterStep(101), 0x88300701u);
    ASSERT_EQ(Records().size(), 1u);
    EXPECT_EQ(Records()[0].function, "OuterStep");
}

} // namespace
