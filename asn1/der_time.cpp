// SPDX-License-Identifier: Apache-2.0
/* UTCTime and GeneralizedTime to calendar time and to seconds since 1970. */
#include "base/diagnostics.h"
#include "vexa/vexa_asn1.h"

namespace {

constexpr uint32_t kUtcTimeLen = 13;         /* YYMMDDHHMMSSZ */
constexpr uint32_t kGeneralizedTimeLen = 15; /* YYYYMMDDHHMMSSZ */
constexpr uint32_t kUtcPivot = 50;           /* YY below it is 20YY */

/* Digits are not checked: a non-digit simply yields a nonsense value, which
 * the validity comparisons then refuse or accept as that value. Unsigned so
 * that no input can overflow. */
uint32_t InternalPair(const uint8_t *p)
{
    return (static_cast<uint32_t>(p[0]) - '0') * 10u + (static_cast<uint32_t>(p[1]) - '0');
}

} // namespace

extern "C" uint32_t VexaAsnTimeToDateTime(const VexaAsnOcts *time, VexaDateTime *out)
{
    VEXA_ENSURE(time != nullptr && out != nullptr, VEXA_ERR_PARAM);
    uint32_t year = 0;
    uint32_t at = 0;
    if (time->tagNumber == VEXA_ASN_TAG_UTCTIME) {
        VEXA_ENSURE(time->len == kUtcTimeLen && time->data != nullptr, VEXA_ERR_TIME_FORMAT);
        const uint32_t yy = InternalPair(time->data);
        year = yy + (yy < kUtcPivot ? 2000u : 1900u);
        at = 2;
    } else if (time->tagNumber == VEXA_ASN_TAG_GENERALIZEDTIME) {
        VEXA_ENSURE(time->len == kGeneralizedTimeLen && time->data != nullptr, VEXA_ERR_TIME_FORMAT);
        year = InternalPair(time->data) * 100u + InternalPair(time->data + 2);
        at = 4;
    } else {
        return VEXA_FAIL(VEXA_ERR_TIME_FORMAT);
    }
    out->year = static_cast<uint16_t>(year);
    out->month = static_cast<uint8_t>(InternalPair(time->data + at));
    out->day = static_cast<uint8_t>(InternalPair(time->data + at + 2));
    out->hour = static_cast<uint8_t>(InternalPair(time->data + at + 4));
    out->minute = static_cast<uint8_t>(InternalPair(time->data + at + 6));
    out->second = static_cast<uint8_t>(InternalPair(time->data + at + 8));
    return VEXA_OK;
}

extern "C" uint64_t VexaDateTimeToEpoch(const VexaDateTime *dateTime)
{
    if (dateTime == nullptr) {
        return 0;
    }
    uint64_t y = dateTime->year;
    if (y <= 1900) {
        y += 1900;
    }
    /* Count the year from March so the leap day falls at its end. */
    int64_t m = static_cast<int64_t>(dateTime->month) - 2;
    if (m <= 0) {
        m += 12;
        y -= 1;
    }
    const uint64_t months = static_cast<uint64_t>(m);
    /* Modulo 2^64: dates before 1970 wrap to the two's complement of the
     * negative count, which a signed reader gets back unchanged. */
    const uint64_t days = y / 4 - y / 100 + y / 400 + 367u * months / 12u + dateTime->day + 365u * y - 719499u;
    return ((days * 24u + dateTime->hour) * 60u + dateTime->minute) * 60u + dateTime->second;
}

extern "C" uint32_t VexaAsnTimeToEpoch(const VexaAsnOcts *time, int64_t *out)
{
    VEXA_ENSURE(time != nullptr && out != nullptr, VEXA_ERR_PARAM);
    VexaDateTime dateTime{};
    VEXA_GUARD(VexaAsnTimeToDateTime(time, &dateTime));
    *out = static_cast<int64_t>(VexaDateTimeToEpoch(&dateTime));
    return VEXA_OK;
}
