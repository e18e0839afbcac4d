#include "support/image_builder.h"

namespace testenv {

void PutLe32(Bytes &b, uint64_t offset, uint32_t v)
{
    if (b.size() < offset + 4) {
        b.resize(offset + 4);
    }
    for (int i = 0; i < 4; i++) {
        b[offset + i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

uint64_t TrailerOf(uint32_t bodyLen)
{
    return 0x10000ull + bodyLen + 32 - bodyLen % 16;
}

Bytes BuildImage(const ImageSpec &spec)
{
    const uint64_t t = TrailerOf(spec.bodyLen);
    Bytes b(t + 0x2810, 0);
    PutLe32(b, 0x460, spec.bodyLen);
    if (spec.magic) {
        const unsigned char magic[8] = {0x55, 0xAA, 0x55, 0xAA, 0x34, 0x12, 0xCD, 0xAB};
        std::copy(magic, magic + 8, b.begin() + 0x490);
    }
    if (spec.bodyLen >= 8) {
        PutLe32(b, 0x10000 + spec.bodyLen - 8, spec.nvFlag);
        PutLe32(b, 0x10000 + spec.bodyLen - 4, spec.nvCounter);
    }
    PutLe32(b, t + 12, static_cast<uint32_t>(spec.signature.size()));
    std::copy(spec.signature.begin(), spec.signature.end(), b.begin() + t + 16);
    PutLe32(b, t + 0x200C, static_cast<uint32_t>(spec.content.size()));
    std::copy(spec.content.begin(), spec.content.end(), b.begin() + t + 0x2010);
    PutLe32(b, t + 0x280C, static_cast<uint32_t>(spec.crl.size()));
    b.insert(b.end(), spec.crl.begin(), spec.crl.end());
    return b;
}

} // namespace testenv
