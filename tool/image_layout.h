/* SPDX-License-Identifier: Apache-2.0 */
/* Byte layout of a CMS image: a 64 KiB header region, the body, and behind
 * it a trailer of three blocks (signature, signed content, CRL), each with a
 * 16-byte header whose last four bytes hold the data length. */
#ifndef CHECKTOOL_IMAGE_LAYOUT_H
#define CHECKTOOL_IMAGE_LAYOUT_H

#include <stdint.h>

namespace image {

constexpr uint64_t kHeaderRegion = 0x10000;
constexpr uint64_t kBodyLenOffset = 0x460;
constexpr uint64_t kMagicOffset = 0x490;
constexpr uint64_t kMagic = 0xABCD1234AA55AA55ull;
constexpr uint64_t kMinImageSize = kMagicOffset + 8; /* 0x498 */

constexpr uint64_t kBlockHeader = 16;
constexpr uint64_t kBlockLenField = 12;
constexpr uint64_t kSignatureBlock = 0x0000;
constexpr uint64_t kContentBlock = 0x2000;
constexpr uint64_t kCrlBlock = 0x2800;
constexpr uint32_t kSignatureRoom = static_cast<uint32_t>(kContentBlock - kSignatureBlock - kBlockHeader);
constexpr uint32_t kContentRoom = static_cast<uint32_t>(kCrlBlock - kContentBlock - kBlockHeader);
static_assert(kSignatureRoom == 8176 && kContentRoom == 2032, "block rooms");
/* What of the trailer is read: the three block headers and the two rooms. */
constexpr uint64_t kTrailerRead = kCrlBlock + kBlockHeader;

/* Start of the trailer: the second 16-byte boundary after the body. */
constexpr uint64_t TrailerOffset(uint32_t bodyLen)
{
    return kHeaderRegion + bodyLen + 32 - (bodyLen % 16);
}
static_assert(TrailerOffset(0x1000) == 0x11020 && TrailerOffset(0x100F) == 0x11020 &&
                  TrailerOffset(0x1010) == 0x11030,
              "trailer arithmetic");

/* NV counter record: flag then counter, at the end of the body. */
constexpr uint32_t kNvcntFlag = 0x5A5AA5A5u;
constexpr uint32_t kNvcntHeaderRead = 1136; /* 0x470: through the body length */
constexpr uint32_t kNvcntRecordSize = 8;

inline uint32_t LoadLe32(const uint8_t *p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t LoadLe64(const uint8_t *p)
{
    return static_cast<uint64_t>(LoadLe32(p)) | static_cast<uint64_t>(LoadLe32(p + 4)) << 32;
}

} // namespace image

#endif
