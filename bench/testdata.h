/* SPDX-License-Identifier: Apache-2.0 */
/* The benchmarks run on the committed forge fixtures, read once. */
#ifndef BENCH_TESTDATA_H
#define BENCH_TESTDATA_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

namespace bench {

using Bytes = std::vector<uint8_t>;

/* A file under tests/testdata, or no bytes when it cannot be read. */
inline Bytes Load(const char *relative)
{
    const std::string path = std::string(CHECKTOOL_TESTDATA) + "/" + relative;
    Bytes bytes;
    FILE *file = fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return bytes;
    }
    uint8_t chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof(chunk), file)) != 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    fclose(file);
    return bytes;
}

} // namespace bench

#endif
