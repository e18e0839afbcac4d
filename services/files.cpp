#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kestrel/kestrel.h>

#include "oplog.h"
#include "vexa/vexa_services.h"

namespace {
constexpr size_t kPathBufSize = 4096;
static_assert(kPathBufSize >= PATH_MAX, "realpath writes up to PATH_MAX bytes");
constexpr long kMaxFileSize = 0xFFFFFFFFL;
} // namespace

extern "C" FILE *VexaFileOpen(const char *path, const char *mode)
{
    if (path == nullptr || mode == nullptr) {
        LOG_MAJOR("path or modeis null, %p\n\n", static_cast<const void *>(path));
        return nullptr;
    }
    if (strnlen(path, kPathBufSize) >= kPathBufSize) {
        LOG_MAJOR("path length is invalid\n\n");
        return nullptr;
    }
    char *resolved = static_cast<char *>(malloc(kPathBufSize));
    if (resolved == nullptr) {
        LOG_MAJOR("malloc fail\n\n");
        return nullptr;
    }
    if (memset_s(resolved, kPathBufSize, 0, kPathBufSize) != 0) {
        free(resolved);
        LOG_MAJOR("memset_s fail\n\n");
        return nullptr;
    }
    /* Resolving first means the file must exist, whatever the mode: the tool
     * never creates files, it only fills ones its caller prepared. */
    if (realpath(path, resolved) == nullptr) {
        free(resolved);
        LOG_MAJOR("realpath fail\n\n");
        return nullptr;
    }
    FILE *file = fopen(resolved, mode);
    free(resolved);
    if (file == nullptr) {
        LOG_MAJOR("fopen file failed.\n\n");
        return nullptr;
    }
    return file;
}

extern "C" size_t VexaFileRead(void *buffer, size_t count, FILE *file)
{
    return fread(buffer, 1, count, file);
}

extern "C" int32_t VexaFileClose(FILE *file)
{
    if (file == nullptr) {
        return -1;
    }
    return fclose(file);
}

extern "C" uint64_t VexaFileGetSize(FILE *file)
{
    if (file == nullptr) {
        LOG_MAJOR("input para is null.\n\n");
        return 0;
    }
    long here = ftell(file);
    if (here < 0) {
        LOG_MAJOR("ftell failed.\n\n");
        return 0;
    }
    (void)fseek(file, 0, SEEK_END);
    long size = ftell(file);
    (void)fseek(file, here, SEEK_SET);
    if (size < 0 || size > kMaxFileSize) {
        LOG_MAJOR("file size[%ld] is out of range.\n\n", size);
        return 0;
    }
    return static_cast<uint64_t>(size);
}
