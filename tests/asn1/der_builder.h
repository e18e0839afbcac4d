/* Hand-made DER for the decoder tests. */
#ifndef TESTS_ASN1_DER_BUILDER_H
#define TESTS_ASN1_DER_BUILDER_H

#include <stddef.h>
#include <stdint.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace dertest {

using Bytes = std::vector<uint8_t>;

/* Minimal length octets. */
inline Bytes Len(size_t n)
{
    if (n < 0x80) {
        return {static_cast<uint8_t>(n)};
    }
    Bytes octets;
    for (size_t v = n; v != 0; v >>= 8) {
        octets.insert(octets.begin(), static_cast<uint8_t>(v & 0xFF));
    }
    octets.insert(octets.begin(), static_cast<uint8_t>(0x80 | octets.size()));
    return octets;
}

inline Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

inline Bytes Tlv(uint8_t tag, const Bytes &content)
{
    return Cat({{tag}, Len(content.size()), content});
}

inline Bytes Seq(std::initializer_list<Bytes> parts) { return Tlv(0x30, Cat(parts)); }
inline Bytes Set(std::initializer_list<Bytes> parts) { return Tlv(0x31, Cat(parts)); }
inline Bytes Int(std::initializer_list<uint8_t> octets) { return Tlv(0x02, Bytes(octets)); }
inline Bytes Octets(const Bytes &content) { return Tlv(0x04, content); }
inline Bytes Bits(std::initializer_list<uint8_t> withUnusedOctet) { return Tlv(0x03, Bytes(withUnusedOctet)); }
inline Bytes Bool(bool v) { return Tlv(0x01, {static_cast<uint8_t>(v ? 0xFF : 0x00)}); }
inline Bytes Null() { return {0x05, 0x00}; }
inline Bytes Oid(const Bytes &content) { return Tlv(0x06, content); }
inline Bytes Text(uint8_t tag, const std::string &s) { return Tlv(tag, Bytes(s.begin(), s.end())); }
inline Bytes Explicit(uint8_t number, const Bytes &inner) { return Tlv(static_cast<uint8_t>(0xA0 | number), inner); }

/* Content octets of identifiers the tests use. */
inline Bytes OidCodeSigning() { return {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03}; }
inline Bytes OidTimeStamping() { return {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08}; }
inline Bytes OidServerAuth() { return {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x01}; }
inline Bytes OidKeyUsage() { return {0x55, 0x1D, 0x0F}; }
inline Bytes OidBasicConstraints() { return {0x55, 0x1D, 0x13}; }
inline Bytes OidExtKeyUsage() { return {0x55, 0x1D, 0x25}; }
inline Bytes OidSubjectKeyId() { return {0x55, 0x1D, 0x0E}; }
inline Bytes OidCommonName() { return {0x55, 0x04, 0x03}; }
inline Bytes OidSha256Rsa() { return {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B}; }

/* One extension entry: extnID, optional critical, OCTET STRING value. */
inline Bytes Extension(const Bytes &oid, const Bytes &value, bool critical = false)
{
    return critical ? Seq({Oid(oid), Bool(true), Octets(value)}) : Seq({Oid(oid), Octets(value)});
}

inline Bytes Slice(const Bytes &b, size_t from, size_t n)
{
    return Bytes(b.begin() + static_cast<long>(from), b.begin() + static_cast<long>(from + n));
}

} // namespace dertest

#endif
