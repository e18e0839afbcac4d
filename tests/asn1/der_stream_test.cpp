#include <gtest/gtest.h>

#include <string>

#include "asn1/der_internal.h"
#include "tests/asn1/der_builder.h"
#include "tests/asn1/log_capture.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_log.h"
#include "vexa/vexa_result.h"

namespace {

using dertest::Bytes;
using logtest::Records;

class DerStream : public logtest::Captured {};

VexaAsnStream Over(const Bytes &b)
{
    VexaAsnStream s{};
    EXPECT_EQ(VexaAsnStreamInit(&s, b.data(), static_cast<uint32_t>(b.size())), VEXA_OK);
    return s;
}

TEST_F(DerStream, NeverReadsOrMovesPastTheBuffer)
{
    const Bytes b = {0x11, 0x22};
    VexaAsnStream s = Over(b);
    uint8_t octet = 0;
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_OK);
    EXPECT_EQ(octet, 0x11);
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_OK);
    EXPECT_EQ(VexaAsnReadByte(&s, &octet), VEXA_ERR_BUFFER_END);
    EXPECT_EQ(s.pos, 2u) << "a failed read moves nothing";

    s.pos = 1;
    const struct {
        int32_t count;
        uint32_t mode;
        uint32_t code;
        uint32_t pos;
    } skips[] = {
        {1, VEXA_ASN_SEEK_CUR, VEXA_OK, 2},           {-1, VEXA_ASN_SEEK_CUR, VEXA_OK, 0},
        {2, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1},  {-2, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1},
        {0x7FFFFFFF, VEXA_ASN_SEEK_CUR, VEXA_ERR_GENERIC, 1}, {0, 0, VEXA_ERR_GENERIC, 1},
        {0, 2, VEXA_ERR_GENERIC, 1},
    };
    for (const auto &k : skips) {
        s.pos = 1;
        EXPECT_EQ(VexaAsnSkip(&s, k.count, k.mode), k.code) << k.count << " mode " << k.mode;
        EXPECT_EQ(s.pos, k.pos) << k.count << " mode " << k.mode;
    }

    EXPECT_EQ(VexaAsnStreamInit(&s, b.data(), 0), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnStreamInit(&s, nullptr, 2), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnStreamInit(nullptr, b.data(), 2), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnReadByte(nullptr, &octet), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnSkip(nullptr, 0, VEXA_ASN_SEEK_CUR), VEXA_ERR_PARAM);
}

TEST_F(DerStream, ReadsLengthsOnlyWhenTheContentIsThere)
{
    const Bytes body256(256, 0xAB);
    const struct {
        const char *name;
        Bytes input;
        uint32_t code;
        uint32_t len;
        const char *message;
    } cases[] = {
        {"short form", {0x03, 1, 2, 3}, VEXA_OK, 3, nullptr},
        {"zero", {0x00}, VEXA_OK, 0, nullptr},
        {"short form past the end", {0x04, 1, 2, 3}, VEXA_ERR_ASN_LENGTH, 0, "overflow length."},
        {"non-minimal long form is accepted", {0x81, 0x02, 9, 9}, VEXA_OK, 2, nullptr},
        {"four length octets", dertest::Cat({{0x84, 0x00, 0x00, 0x01, 0x00}, body256}), VEXA_OK, 256, nullptr},
        {"four length octets, one byte short",
         dertest::Cat({{0x84, 0x00, 0x00, 0x01, 0x00}, Bytes(255, 0xAB)}), VEXA_ERR_ASN_LENGTH, 0, "overflow length."},
        {"five length octets", dertest::Cat({{0x85, 0, 0, 0, 1, 0}, body256}), VEXA_ERR_ASN_LENGTH, 0,
         "indefinit length not supported."},
        {"indefinite form", {0x80, 0x00, 0x00}, VEXA_ERR_ASN_LENGTH, 0, "indefinit length not supported."},
        {"a length near 4 GiB", {0x84, 0xFF, 0xFF, 0xFF, 0xFF, 1}, VEXA_ERR_ASN_LENGTH, 0, "overflow length."},
        {"length octets cut off", {0x82, 0x01}, VEXA_ERR_BUFFER_END, 0, nullptr},
    };
    for (const auto &c : cases) {
        Records().clear();
        VexaAsnStream s = Over(c.input);
        uint32_t len = 0xDEAD;
        EXPECT_EQ(InternalDecLen(&s, &len), c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(len, c.len) << c.name;
            EXPECT_EQ(s.length - s.pos, len) << c.name << ": the content is exactly what is left";
        } else {
            EXPECT_EQ(len, 0xDEADu) << c.name << ": nothing stored on failure";
        }
        if (c.message != nullptr) {
            ASSERT_FALSE(Records().empty()) << c.name;
            EXPECT_EQ(Records()[0].function, "InternalDecLen") << c.name;
            EXPECT_EQ(Records()[0].message, c.message) << c.name;
            /* the unsupported form is tolerated input, an overflow an error */
            EXPECT_EQ(Records()[0].level, std::string(c.message) == "overflow length." ? VEXA_LOG_ERROR
                                                                                       : VEXA_LOG_WARNING)
                << c.name;
        }
    }
}

TEST_F(DerStream, ReadsSingleOctetIdentifiersOnly)
{
    const struct {
        uint8_t octet;
        uint32_t code;
        VexaAsnTag tag;
    } cases[] = {
        {0x30, VEXA_OK, {0, 1, 16}},           {0x02, VEXA_OK, {0, 0, 2}},
        {0xA3, VEXA_OK, {2, 1, 3}},            {0x81, VEXA_OK, {2, 0, 1}},
        {0x5E, VEXA_OK, {1, 0, 30}},           {0xDE, VEXA_OK, {3, 0, 30}},
        {0x1F, VEXA_ERR_ASN_TAG, {}},          {0x3F, VEXA_ERR_ASN_TAG, {}},
        {0x9F, VEXA_ERR_ASN_TAG, {}},          {0xBF, VEXA_ERR_ASN_TAG, {}},
        {0xFF, VEXA_ERR_ASN_TAG, {}},
    };
    for (const auto &c : cases) {
        const Bytes b = {c.octet, 0x00};
        VexaAsnStream s = Over(b);
        VexaAsnTag tag{};
        EXPECT_EQ(VexaAsnReadTag(&s, &tag), c.code) << std::hex << int(c.octet);
        if (c.code == VEXA_OK) {
            EXPECT_EQ(tag.tagClass, c.tag.tagClass) << std::hex << int(c.octet);
            EXPECT_EQ(tag.constructed, c.tag.constructed) << std::hex << int(c.octet);
            EXPECT_EQ(tag.tagNumber, c.tag.tagNumber) << std::hex << int(c.octet);
        }
    }
}

TEST_F(DerStream, HeaderMustCarryTheExpectedTagExactly)
{
    const VexaAsnTag sequence{0, 1, 16};
    const struct {
        const char *name;
        Bytes input;
        uint32_t code;
    } cases[] = {
        {"match", {0x30, 0x01, 0x05}, VEXA_OK},
        {"primitive instead of constructed", {0x10, 0x01, 0x05}, VEXA_ERR_ASN_TAG},
        {"context class", {0xB0, 0x01, 0x05}, VEXA_ERR_ASN_TAG},
        {"SET", {0x31, 0x01, 0x05}, VEXA_ERR_ASN_TAG},
        {"length past the end", {0x30, 0x02, 0x05}, VEXA_ERR_ASN_LENGTH},
    };
    for (const auto &c : cases) {
        VexaAsnStream s = Over(c.input);
        uint32_t len = 0;
        VexaAsnTag tag{};
        EXPECT_EQ(VexaAsnReadHeader(&s, &sequence, &len, &tag), c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(len, 1u);
            EXPECT_EQ(s.pos, 2u) << "the cursor stands on the content";
        }
    }
}

VexaAsnOcts TimeView(uint32_t tagNumber, const std::string &text)
{
    VexaAsnOcts v{};
    v.tagNumber = tagNumber;
    v.len = static_cast<uint32_t>(text.size());
    v.data = reinterpret_cast<const uint8_t *>(text.data());
    return v;
}

TEST(DerTime, ConvertsUtcAndGeneralizedTimeToSecondsSince1970)
{
    const struct {
        const char *name;
        uint32_t tag;
        std::string text;
        uint32_t code;
        VexaDateTime dateTime;
        int64_t epoch;
    } cases[] = {
        {"UTCTime 49 is 2049", 23, "491231235959Z", VEXA_OK, {2049, 12, 31, 23, 59, 59}, 2524607999},
        {"UTCTime 50 is 1950", 23, "500101000000Z", VEXA_OK, {1950, 1, 1, 0, 0, 0}, -631152000},
        {"epoch", 23, "700101000000Z", VEXA_OK, {1970, 1, 1, 0, 0, 0}, 0},
        {"March starts the counting year", 24, "20000301000000Z", VEXA_OK, {2000, 3, 1, 0, 0, 0}, 951868800},
        {"leap day", 24, "20240229120000Z", VEXA_OK, {2024, 2, 29, 12, 0, 0}, 1709208000},
        {"past 32 bits", 24, "20380119031408Z", VEXA_OK, {2038, 1, 19, 3, 14, 8}, 2147483648LL},
        {"far future", 24, "99991231235959Z", VEXA_OK, {9999, 12, 31, 23, 59, 59}, 253402300799LL},
        {"fractional seconds", 24, "20240101000000.5Z", VEXA_ERR_TIME_FORMAT, {}, 0},
        {"time zone offset", 23, "240101000000+0100", VEXA_ERR_TIME_FORMAT, {}, 0},
        {"UTCTime without seconds", 23, "2401010000Z", VEXA_ERR_TIME_FORMAT, {}, 0},
        {"GeneralizedTime length under UTCTime tag", 23, "20240101000000Z", VEXA_ERR_TIME_FORMAT, {}, 0},
        {"not a time tag", 4, "240101000000Z", VEXA_ERR_TIME_FORMAT, {}, 0},
    };
    for (const auto &c : cases) {
        const VexaAsnOcts view = TimeView(c.tag, c.text);
        VexaDateTime dt{};
        EXPECT_EQ(VexaAsnTimeToDateTime(&view, &dt), c.code) << c.name;
        int64_t epoch = 12345;
        EXPECT_EQ(VexaAsnTimeToEpoch(&view, &epoch), c.code) << c.name;
        if (c.code != VEXA_OK) {
            EXPECT_EQ(epoch, 12345) << c.name << ": out untouched on failure";
            continue;
        }
        EXPECT_EQ(dt.year, c.dateTime.year) << c.name;
        EXPECT_EQ(dt.month, c.dateTime.month) << c.name;
        EXPECT_EQ(dt.day, c.dateTime.day) << c.name;
        EXPECT_EQ(dt.hour, c.dateTime.hour) << c.name;
        EXPECT_EQ(dt.minute, c.dateTime.minute) << c.name;
        EXPECT_EQ(dt.second, c.dateTime.second) << c.name;
        EXPECT_EQ(epoch, c.epoch) << c.name;
    }
}

TEST(DerTime, EpochFormulaMatchesTheCalendarEveryDayFor200Years)
{
    /* 1901 to 2100 against the C library's own calendar arithmetic */
    for (int64_t days = -25202; days < 47482; days += 1) {
        const time_t t = static_cast<time_t>(days * 86400 + 3723);
        struct tm tm {};
        ASSERT_NE(gmtime_r(&t, &tm), nullptr);
        VexaDateTime dt{static_cast<uint16_t>(tm.tm_year + 1900), static_cast<uint8_t>(tm.tm_mon + 1),
                        static_cast<uint8_t>(tm.tm_mday), 1, 2, 3};
        ASSERT_EQ(static_cast<int64_t>(VexaDateTimeToEpoch(&dt)), static_cast<int64_t>(t))
            << tm.tm_year + 1900 << "-" << tm.tm_mon + 1 << "-" << tm.tm_mday;
    }
}

TEST(DerTime, YearsUpTo1900CountFrom1900AndNullGivesZero)
{
    const VexaDateTime y70{70, 1, 1, 0, 0, 0};
    EXPECT_EQ(VexaDateTimeToEpoch(&y70), 0u);
    EXPECT_EQ(VexaDateTimeToEpoch(nullptr), 0u);
    int64_t out = 0;
    VexaDateTime dt{};
    EXPECT_EQ(VexaAsnTimeToEpoch(nullptr, &out), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnTimeToDateTime(nullptr, &dt), VEXA_ERR_PARAM);
}

TEST(DerTime, NonDigitsGiveValuesNotFaults)
{
    const std::string text(14, '\xFF');
    const std::string withZ = text + "Z";
    const VexaAsnOcts garbage = TimeView(24, withZ);
    VexaDateTime dt{};
    EXPECT_EQ(VexaAsnTimeToDateTime(&garbage, &dt), VEXA_OK);
    int64_t epoch = 0;
    EXPECT_EQ(VexaAsnTimeToEpoch(&garbage, &epoch), VEXA_OK);
}

} // namespace
