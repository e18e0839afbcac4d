// SPDX-License-Identifier: Apache-2.0
#include "verify/base64.h"

#include "vexa/vexa_result.h"

namespace {

constexpr uint8_t kPad = 64;
constexpr uint8_t kInvalid = 127;

constexpr uint8_t DecodeValue(int c)
{
    return c >= 'A' && c <= 'Z'   ? static_cast<uint8_t>(c - 'A')
           : c >= 'a' && c <= 'z' ? static_cast<uint8_t>(c - 'a' + 26)
           : c >= '0' && c <= '9' ? static_cast<uint8_t>(c - '0' + 52)
           : c == '+'             ? 62
           : c == '/'             ? 63
           : c == '='             ? kPad
                                  : kInvalid;
}

struct Table {
    uint8_t v[128];
};

constexpr Table MakeTable()
{
    Table t{};
    for (int c = 0; c < 128; c++) {
        t.v[c] = DecodeValue(c);
    }
    return t;
}

constexpr Table kTable = MakeTable();
static_assert(DecodeValue('A') == 0 && DecodeValue('/') == 63 && DecodeValue('=') == kPad && DecodeValue('-') == kInvalid,
              "alphabet");

} // namespace

const uint8_t g_base64DecodeTable[128] = {
#define ROW(i) kTable.v[i], kTable.v[i + 1], kTable.v[i + 2], kTable.v[i + 3], kTable.v[i + 4], kTable.v[i + 5], \
               kTable.v[i + 6], kTable.v[i + 7]
    ROW(0),  ROW(8),  ROW(16), ROW(24), ROW(32),  ROW(40),  ROW(48),  ROW(56),
    ROW(64), ROW(72), ROW(80), ROW(88), ROW(96),  ROW(104), ROW(112), ROW(120),
#undef ROW
};

uint32_t InternalIsLineEnd(const char *text, uint32_t length, uint32_t pos)
{
    if (pos >= length) {
        return 0;
    }
    if (text[pos] == '\n') {
        return 1;
    }
    return (text[pos] == '\r' && length - pos >= 2 && text[pos + 1] == '\n') ? 1 : 0;
}

uint32_t InternalBase64Check(const char *text, uint32_t length, uint32_t *pos, uint32_t *size)
{
    uint64_t chars = 0;
    uint32_t pads = 0;
    uint32_t spaces = 0;
    uint32_t i = 0;
    while (i < length) {
        if (text[i] == ' ') {
            spaces++;
            i++;
            continue;
        }
        if (InternalIsLineEnd(text, length, i) != 0) {
            /* blanks at the end of a line are tolerated */
            spaces = 0;
            i++;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (spaces != 0 || c >= 0x80) {
            return VEXA_ERR_BASE64;
        }
        const uint8_t value = g_base64DecodeTable[c];
        if (value == kPad) {
            if (++pads > 2) {
                return VEXA_ERR_BASE64;
            }
        } else if (value < kPad && pads != 0) {
            return VEXA_ERR_BASE64;
        }
        /* characters outside the alphabet are counted and decode as 63 */
        chars++;
        i++;
    }
    if (chars == 0) {
        return VEXA_ERR_BASE64;
    }
    *size = static_cast<uint32_t>(((chars * 6 + 7) >> 3) - pads);
    *pos = i;
    return VEXA_OK;
}

uint32_t InternalBase64DecodeBlock(const char *text, uint32_t length, uint8_t *out, uint32_t capacity)
{
    uint32_t budget = 3;
    uint32_t group = 0;
    uint32_t acc = 0;
    uint32_t written = 0;
    for (uint32_t i = 0; i < length; i++) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\r' || c == '\n' || c == ' ') {
            continue;
        }
        const uint8_t value = c < 128 ? g_base64DecodeTable[c] : kInvalid;
        if (value == kPad && budget > 0) {
            budget--;
        }
        acc = (acc << 6) | (value & 63u);
        if (++group < 4) {
            continue;
        }
        group = 0;
        const uint8_t bytes[3] = {static_cast<uint8_t>(acc >> 16), static_cast<uint8_t>(acc >> 8),
                                  static_cast<uint8_t>(acc)};
        for (uint32_t k = 0; k < budget && k < 3; k++) {
            if (written >= capacity) {
                return written;
            }
            out[written++] = bytes[k];
        }
    }
    return written;
}

extern "C" uint32_t VexaBase64Decode(const char *text, uint32_t length, uint8_t *out, uint32_t *size)
{
    if (text == nullptr || length == 0 || size == nullptr) {
        return VEXA_ERR_PARAM;
    }
    uint32_t pos = 0;
    uint32_t need = 0;
    uint32_t ret = InternalBase64Check(text, length, &pos, &need);
    if (ret != VEXA_OK) {
        return ret;
    }
    if (out != nullptr && static_cast<int32_t>(*size) >= static_cast<int32_t>(need)) {
        *size = InternalBase64DecodeBlock(text, pos, out, *size);
    } else {
        *size = need;
    }
    return VEXA_OK;
}
