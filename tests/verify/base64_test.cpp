// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "verify/base64.h"
#include "vexa/vexa_result.h"

namespace {

struct Decoded {
    uint32_t code;
    uint32_t query;             /* size reported without a buffer */
    std::vector<uint8_t> bytes; /* bytes written with a large buffer */
};

Decoded Decode(const std::string &text)
{
    const uint32_t len = static_cast<uint32_t>(text.size());
    Decoded d{};
    d.code = VexaBase64Decode(text.data(), len, nullptr, &d.query);
    if (d.code == VEXA_OK) {
        d.bytes.assign(d.query + 16, 0xEE);
        uint32_t cap = static_cast<uint32_t>(d.bytes.size());
        EXPECT_EQ(VexaBase64Decode(text.data(), len, d.bytes.data(), &cap), VEXA_OK);
        d.bytes.resize(cap);
    }
    return d;
}

TEST(Base64, DecodesWhatPemBodiesHold)
{
    const struct {
        const char *name;
        std::string text;
        uint32_t query;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {"two pads", "QQ==", 1, {0x41}},
        {"one pad", "QUI=", 2, {0x41, 0x42}},
        {"no pad", "QUJD", 3, {0x41, 0x42, 0x43}},
        {"incomplete group yields nothing though the size says 2", "QQ", 2, {}},
        {"LF line ends", "QUJD\nQUJD\n", 6, {'A', 'B', 'C', 'A', 'B', 'C'}},
        {"CR LF line ends and trailing blanks", "QUJD  \r\nQUJD \r\n", 6, {'A', 'B', 'C', 'A', 'B', 'C'}},
        {"characters outside the alphabet decode as 63", "QU-*", 3, {0x41, 0x4F, 0xFF}},
        {"a lone CR counts in the size but is skipped when decoding", "QUJ\r", 3, {}},
    };
    for (const auto &c : cases) {
        const Decoded d = Decode(c.text);
        EXPECT_EQ(d.code, VEXA_OK) << c.name;
        EXPECT_EQ(d.query, c.query) << c.name;
        EXPECT_EQ(d.bytes, c.bytes) << c.name;
    }
}

TEST(Base64, RefusesMalformedText)
{
    const struct {
        const char *name;
        std::string text;
    } cases[] = {
        {"line starting with a blank", "QUJD\n QUJD"},
        {"blank between two characters", "QU JD"},
        {"three pads", "Q==="},
        {"data after a pad", "QQ=A"},
        {"data on the next line after a pad", "QQ==\nQUJD"},
        {"byte of 0x80 or above", "QU\x80="},
        {"no data at all", " \r\n\n  "},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Decode(c.text).code, VEXA_ERR_BASE64) << c.name;
    }
}

TEST(Base64, NeverWritesPastTheBuffer)
{
    uint8_t buf[4];
    memset(buf, 0xEE, sizeof buf);
    uint32_t cap = 2;
    EXPECT_EQ(VexaBase64Decode("QUJD", 4, buf, &cap), VEXA_OK);
    EXPECT_EQ(cap, 3u) << "a buffer that is too small gets the size it needs";
    EXPECT_EQ(buf[0], 0xEE) << "and is not written";
    EXPECT_EQ(InternalBase64DecodeBlock("QUJDQUJD", 8, buf, 2), 2u);
    EXPECT_EQ(buf[2], 0xEE);
    EXPECT_EQ(VexaBase64Decode(nullptr, 4, buf, &cap), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaBase64Decode("QUJD", 0, buf, &cap), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaBase64Decode("QUJD", 4, buf, nullptr), VEXA_ERR_PARAM);
}

} // namespace
