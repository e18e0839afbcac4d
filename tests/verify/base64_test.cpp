// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "verify/base64.h"
#include "vexa/vexa_result.h"

namespace {

TEST(Base64, DecodesWhatPemBodiesHoldAndRefusesTheRest)
{
    const std::vector<uint8_t> abcabc = {'A', 'B', 'C', 'A', 'B', 'C'};
    /* query: the size reported without a buffer, 0: refused */
    const struct { const char *name; std::string text; uint32_t query; std::vector<uint8_t> bytes; } cases[] = {
        {"two pads", "QQ==", 1, {0x41}},
        {"one pad", "QUI=", 2, {0x41, 0x42}},
        {"no pad", "QUJD", 3, {0x41, 0x42, 0x43}},
        {"incomplete group yields nothing though the size says 2", "QQ", 2, {}},
        {"LF line ends", "QUJD\nQUJD\n", 6, abcabc},
        {"CR LF line ends and trailing blanks", "QUJD  \r\nQUJD \r\n", 6, abcabc},
        {"characters outside the alphabet decode as 63", "QU-*", 3, {0x41, 0x4F, 0xFF}},
        {"a lone CR counts in the size but is skipped when decoding", "QUJ\r", 3, {}},
        {"line starting with a blank", "QUJD\n QUJD", 0, {}},
        {"blank between two characters", "QU JD", 0, {}},
        {"three pads", "Q===", 0, {}},
        {"data after a pad", "QQ=A", 0, {}},
        {"data on the next line after a pad", "QQ==\nQUJD", 0, {}},
        {"byte of 0x80 or above", "QU\x80=", 0, {}},
        {"no data at all", " \r\n\n  ", 0, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const uint32_t len = static_cast<uint32_t>(c.text.size());
        uint32_t query = 0;
        ASSERT_EQ(VexaBase64Decode(c.text.data(), len, nullptr, &query), c.query != 0 ? VEXA_OK : VEXA_ERR_BASE64);
        if (c.query != 0) {
            EXPECT_EQ(query, c.query);
            std::vector<uint8_t> bytes(query + 16, 0xEE); /* then what a large buffer gets */
            uint32_t cap = static_cast<uint32_t>(bytes.size());
            EXPECT_EQ(VexaBase64Decode(c.text.data(), len, bytes.data(), &cap), VEXA_OK);
            bytes.resize(cap);
            EXPECT_EQ(bytes, c.bytes);
        }
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
