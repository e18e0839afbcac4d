// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tests/asn1/der_builder.h"
#include "vexa/vexa_result.h"

namespace {

using dertest::Bytes;

TEST(DerStream, NeverReadsOrMovesPastTheBuffer)
{
    const Bytes b = {0x11, 0x22};
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, b.data(), 2), VEXA_OK);
    uint8_t octet = 0;
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_OK);
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_OK);
    EXPECT_EQ(octet, 0x22);
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_ERR_BUFFER_END);
    EXPECT_EQ(s.pos, 2u) << "a failed read moves nothing";
    /* from position 1: count, mode, code, position after */
    const struct { int32_t count; uint32_t mode; uint32_t code; uint32_t pos; } skips[] = {
        {1, VEXA_ASN_SEEK_CUR, VEXA_OK, 2},          {-1, VEXA_ASN_SEEK_CUR, VEXA_OK, 0},
        {2, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1}, {-2, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1},
        {0x7FFFFFFF, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1}, {0, 2, VEXA_ERR_GENERIC, 1},
    };
    for (const auto &k : skips) {
        s.pos = 1;
        EXPECT_EQ(VexaAsnSkip(&s, k.count, k.mode), k.code) << k.count << " mode " << k.mode;
        EXPECT_EQ(s.pos, k.pos) << k.count << " mode " << k.mode;
    }
    EXPECT_EQ(VexaAsnStreamInit(&s, b.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnStreamInit(&s, nullptr, 2), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnReadByte(nullptr, &octet), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnSkip(nullptr, 0, VEXA_ASN_SEEK_CUR), VEXA_ERR_PARAM);
}

/* Epochs pin every calendar field: a field read from the wrong digits moves
 * the time. */
TEST(DerTime, ConvertsUtcAndGeneralizedTimeToSecondsSince1970)
{
    const struct { const char *name; uint32_t tag; std::string text; uint32_t code; int64_t epoch; } cases[] = {
        {"UTCTime 49 is 2049", 23, "491231235959Z", VEXA_OK, 2524607999},
        {"UTCTime 50 is 1950", 23, "500101000000Z", VEXA_OK, -631152000},
        {"leap day", 24, "20240229120000Z", VEXA_OK, 1709208000},
        {"far future", 24, "99991231235959Z", VEXA_OK, 253402300799LL},
        {"fractional seconds", 24, "20240101000000.5Z", VEXA_ERR_TIME_FORMAT, 12345},
        {"UTCTime without seconds", 23, "2401010000Z", VEXA_ERR_TIME_FORMAT, 12345},
        {"GeneralizedTime length under UTCTime tag", 23, "20240101000000Z", VEXA_ERR_TIME_FORMAT, 12345},
        {"not a time tag", 4, "240101000000Z", VEXA_ERR_TIME_FORMAT, 12345},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const VexaAsnOcts view = {static_cast<uint32_t>(c.text.size()), 0, 0, c.tag,
                                  reinterpret_cast<const uint8_t *>(c.text.data())};
        int64_t epoch = 12345;
        EXPECT_EQ(VexaAsnTimeToEpoch(&view, &epoch), c.code);
        EXPECT_EQ(epoch, c.epoch) << "out untouched on failure";
    }
    /* digits are not checked: a non-digit gives a nonsense value, never a fault */
    const std::string garbage = std::string(14, '\xFF') + "Z";
    const VexaAsnOcts view = {15, 0, 0, 24, reinterpret_cast<const uint8_t *>(garbage.data())};
    int64_t epoch = 0;
    EXPECT_EQ(VexaAsnTimeToEpoch(&view, &epoch), VEXA_OK);
    EXPECT_EQ(VexaAsnTimeToEpoch(nullptr, &epoch), VEXA_ERR_PARAM);
}

TEST(DerTime, EpochFormulaMatchesTheCalendarEveryDayFor200Years)
{
    /* 1901 to 2100 against the C library's own calendar arithmetic, as far
     * as its time_t reaches (a 32-bit one ends in 2038) */
    for (int64_t days = -25202; days < 47482; days += 1) {
        const int64_t seconds = days * 86400 + 3723;
        if (sizeof(time_t) < 8 && (seconds > INT32_MAX || seconds < INT32_MIN)) {
            continue;
        }
        const time_t t = static_cast<time_t>(seconds);
        struct tm tm {};
        ASSERT_NE(gmtime_r(&t, &tm), nullptr);
        VexaDateTime dt{static_cast<uint16_t>(tm.tm_year + 1900), static_cast<uint8_t>(tm.tm_mon + 1),
                        static_cast<uint8_t>(tm.tm_mday), 1, 2, 3};
        ASSERT_EQ(static_cast<int64_t>(VexaDateTimeToEpoch(&dt)), static_cast<int64_t>(t))
            << tm.tm_year + 1900 << "-" << tm.tm_mon + 1 << "-" << tm.tm_mday;
    }
    const VexaDateTime y70{70, 1, 1, 0, 0, 0}; /* years up to 1900 count from 1900 */
    EXPECT_EQ(VexaDateTimeToEpoch(&y70), 0u);
    EXPECT_EQ(VexaDateTimeToEpoch(nullptr), 0u);
}

} // namespace
