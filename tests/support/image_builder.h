/* SPDX-License-Identifier: Apache-2.0 */
/* Builds CMS image bytes for layout tests: header region with body length
 * and magic, a body ending in the NV counter record, and the three blocks. */
#ifndef TESTS_SUPPORT_IMAGE_BUILDER_H
#define TESTS_SUPPORT_IMAGE_BUILDER_H

#include <stdint.h>

#include "support/test_env.h"

namespace testenv {

/* The defaults are set out of line: g++ 12 at -O3 takes brace-initialised
 * vector members inlined into each test for uninitialised memory. */
struct ImageSpec {
    ImageSpec();
    uint32_t bodyLen = 0x1000;
    bool magic = true;
    uint32_t nvFlag = 0x5A5AA5A5u;
    uint32_t nvCounter = 7;
    Bytes signature;
    Bytes content;
    Bytes crl;
};

void PutLe32(Bytes &b, uint64_t offset, uint32_t v);
Bytes BuildImage(const ImageSpec &def);

} // namespace testenv

#endif
