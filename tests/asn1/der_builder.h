/* SPDX-License-Identifier: Apache-2.0 */
/* Hand-made DER for the decoder tests, and what a decoded view holds. */
#ifndef TESTS_ASN1_DER_BUILDER_H
#define TESTS_ASN1_DER_BUILDER_H

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "vexa/vexa_asn1.h"

namespace dertest {

using Bytes = std::vector<uint8_t>;

inline Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

/* One element with minimal length octets. */
inline Bytes Tlv(uint8_t tag, const Bytes &content)
{
    Bytes len;
    for (size_t v = content.size(); v != 0 && content.size() >= 0x80; v >>= 8) {
        len.insert(len.begin(), static_cast<uint8_t>(v & 0xFF));
    }
    len.insert(len.begin(), static_cast<uint8_t>(len.empty() ? content.size() : 0x80 | len.size()));
    return Cat({{tag}, len, content});
}

inline Bytes Seq(std::initializer_list<Bytes> parts) { return Tlv(0x30, Cat(parts)); }
inline Bytes Set(std::initializer_list<Bytes> parts) { return Tlv(0x31, Cat(parts)); }
inline Bytes Int(std::initializer_list<uint8_t> octets) { return Tlv(0x02, Bytes(octets)); }
inline Bytes Octets(const Bytes &content) { return Tlv(0x04, content); }
inline Bytes Bool(bool v) { return Tlv(0x01, {static_cast<uint8_t>(v ? 0xFF : 0x00)}); }
inline Bytes Null() { return {0x05, 0x00}; }
inline Bytes Oid(const Bytes &content) { return Tlv(0x06, content); }
inline Bytes Text(uint8_t tag, const std::string &s) { return Tlv(tag, Bytes(s.begin(), s.end())); }
inline Bytes Explicit(uint8_t number, const Bytes &inner) { return Tlv(static_cast<uint8_t>(0xA0 | number), inner); }

/* Content octets of identifiers the tests use. */
inline Bytes OidCodeSigning() { return {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03}; }
inline Bytes OidSubjectKeyId() { return {0x55, 0x1D, 0x0E}; }

/* One extension entry: extnID, optional critical, OCTET STRING value. */
inline Bytes Extension(const Bytes &oid, const Bytes &value, bool critical = false)
{
    return critical ? Seq({Oid(oid), Bool(true), Octets(value)}) : Seq({Oid(oid), Octets(value)});
}

/* The bytes a view points at (none for an absent or empty view). */
inline Bytes View(const VexaAsnOcts &v)
{
    return v.data == nullptr ? Bytes() : Bytes(v.data, v.data + v.len);
}

inline int64_t Epoch(const VexaAsnOcts &v)
{
    int64_t t = -1;
    return VexaAsnTimeToEpoch(&v, &t) == 0 ? t : -1;
}

} // namespace dertest

#endif
