// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include <kestrel/kestrel.h>

namespace {

TEST(KestrelMemory, RefusesWhatDoesNotFitOrOverlapsAndNeverWritesPastDestMax)
{
    char dst[8];
    memset(dst, 'x', sizeof dst);
    EXPECT_NE(memcpy_s(dst, sizeof dst, "0123456789", 9), 0);
    EXPECT_EQ(std::string(dst, 8), std::string(8, '\0')) << "a refused copy must not leave old or partial bytes";
    EXPECT_EQ(memcpy_s(dst, sizeof dst, "01234567", 8), 0) << "an exact fit is allowed";
    EXPECT_EQ(memcmp(dst, "01234567", 8), 0);

    char buf[16] = "abcdefgh";
    EXPECT_NE(memcpy_s(nullptr, 4, "ab", 2), 0);
    EXPECT_NE(memcpy_s(buf, sizeof buf, nullptr, 2), 0);
    EXPECT_NE(memcpy_s(buf, 0, "ab", 0), 0) << "a zero-size destination is no buffer";
    EXPECT_NE(memcpy_s(buf + 2, 8, buf, 4), 0);
    EXPECT_NE(memcpy_s(buf, 8, buf + 3, 4), 0);
    EXPECT_NE(memcpy_s(buf, KESTREL_MAX_LEN + 1, "ab", 2), 0) << "absurd sizes are corrupted arguments";

    unsigned char six[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(memset_s(six, 4, 0, 4), 0);
    EXPECT_EQ(six[3], 0);
    EXPECT_NE(memset_s(six, 4, 1, 5), 0);
    EXPECT_EQ(six[4], 9) << "never writes past destMax";
    EXPECT_NE(memset_s(nullptr, 4, 0, 4), 0);
}

TEST(KestrelStrings, CopyAndAppendTruncationIsAFailure)
{
    const struct { const char *name; bool append; size_t destMax; const char *start; const char *src; bool ok;
                   const char *result; } cases[] = {
        {"copy fits with its terminator", false, 6, "", "hello", true, "hello"},
        {"copy one byte too long", false, 5, "", "hello", false, ""},
        {"append fits exactly", true, 8, "abc", "defg", true, "abcdefg"},
        {"append one byte too long", true, 8, "abcd", "efgh", false, ""},
        {"append to an empty string", true, 4, "", "abc", true, "abc"},
        {"copy of nothing", false, 4, "ab", nullptr, false, ""},
        {"append of nothing", true, 4, "ab", nullptr, false, ""},
    };
    for (const auto &c : cases) {
        char buf[32];
        memset(buf, 'z', sizeof buf);
        strcpy(buf, c.start);
        const int ret = c.append ? strcat_s(buf, c.destMax, c.src) : strcpy_s(buf, c.destMax, c.src);
        EXPECT_EQ(ret == 0, c.ok) << c.name;
        EXPECT_STREQ(buf, c.result) << c.name;
        EXPECT_EQ(buf[c.destMax], 'z') << c.name << ": wrote past destMax";
    }
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_NE(strcat_s(unterminated, sizeof unterminated, "x"), 0) << "no terminator inside destMax";
    EXPECT_NE(strcpy_s(nullptr, 4, "a"), 0);
    char self[16] = "abc";
    EXPECT_NE(strcat_s(self, sizeof self, self + 1), 0) << "source inside the destination";
}

TEST(KestrelFormat, OutputLongerThanCountFailsWhole)
{
    char buf[8];
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 7, "%s", "1234567"), 7);
    EXPECT_STREQ(buf, "1234567");
    EXPECT_LT(snprintf_s(buf, sizeof buf, 7, "%s", "12345678"), 0);
    EXPECT_STREQ(buf, "") << "a refused format leaves an empty string, not a truncated one";
    EXPECT_LT(snprintf_s(buf, sizeof buf, 3, "%d", 1234), 0) << "count is the limit, not destMax";
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 3, "%d", 123), 3);
    EXPECT_LT(snprintf_s(buf, sizeof buf, 8, "x"), 0) << "count must leave room for the terminator";
    EXPECT_LT(snprintf_s(nullptr, 8, 7, "x"), 0);
    EXPECT_LT(snprintf_s(buf, 0, 0, "x"), 0);
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 7, "%s", ""), 0) << "empty output is not a failure";
}

} // namespace
