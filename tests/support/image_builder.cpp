// SPDX-License-Identifier: Apache-2.0
#include "support/image_builder.h"

#include "image_layout.h"

namespace testenv {

ImageSpec::ImageSpec()
{
    static const unsigned char kSignature[] = {0x30, 0x00};
    static const char kContent[] = "content";
    static const unsigned char kCrl[] = {0x30, 0x03, 0x02, 0x01, 0x05};
    signature.assign(kSignature, kSignature + sizeof(kSignature));
    content.assign(kContent, kContent + sizeof(kContent) - 1);
    crl.assign(kCrl, kCrl + sizeof(kCrl));
}

void PutLe32(Bytes &b, uint64_t offset, uint32_t v)
{
    if (b.size() < offset + 4) {
        b.resize(offset + 4);
    }
    for (int i = 0; i < 4; i++) {
        b[offset + i] = static_cast<unsigned char>(v >> (8 * i));
    }
}

Bytes BuildImage(const ImageSpec &def)
{
    const uint64_t t = image::TrailerOffset(def.bodyLen);
    Bytes b(t + 0x2810, 0);
    PutLe32(b, 0x460, def.bodyLen);
    if (def.magic) {
        const unsigned char magic[8] = {0x55, 0xAA, 0x55, 0xAA, 0x34, 0x12, 0xCD, 0xAB};
        std::copy(magic, magic + 8, b.begin() + 0x490);
    }
    if (def.bodyLen >= 8) {
        PutLe32(b, 0x10000 + def.bodyLen - 8, def.nvFlag);
        PutLe32(b, 0x10000 + def.bodyLen - 4, def.nvCounter);
    }
    PutLe32(b, t + 12, static_cast<uint32_t>(def.signature.size()));
    std::copy(def.signature.begin(), def.signature.end(), b.begin() + t + 16);
    PutLe32(b, t + 0x200C, static_cast<uint32_t>(def.content.size()));
    std::copy(def.content.begin(), def.content.end(), b.begin() + t + 0x2010);
    PutLe32(b, t + 0x280C, static_cast<uint32_t>(def.crl.size()));
    b.insert(b.end(), def.crl.begin(), def.crl.end());
    return b;
}

} // namespace testenv
