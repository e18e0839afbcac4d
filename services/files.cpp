// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kestrel/kestrel.h>

#include "services/oplog.h"
#include "vexa/vexa_services.h"

namespace {
constexpr size_t kPathBufSize = 4096;
static_assert(kPathBufSize >= PATH_MAX, "realpath writes up to PATH_MAX bytes");
/* Files are measured in 64-bit offsets on every target: a 32-bit long
 * holds neither the limit (it would read -1) nor a size past 2 GiB. */
static_assert(sizeof(off_t) >= 8, "build with 64-bit file offsets (_FILE_OFFSET_BITS=64)");
constexpr off_t kMaxFileSize = static_cast<off_t>(0xFFFFFFFFLL);

/* open(2) flags for an fopen mode, never O_CREAT: the tool only fills
 * files its caller prepared. Truncation waits until the file is known to be
 * a regular file. */
bool FlagsOfMode(const char *mode, int *flags, bool *truncate)
{
    const bool update = strchr(mode, '+') != nullptr;
    *truncate = false;
    switch (mode[0]) {
    case 'r':
        *flags = update ? O_RDWR : O_RDONLY;
        return true;
    case 'w':
        *flags = update ? O_RDWR : O_WRONLY;
        *truncate = true;
        return true;
    case 'a':
        *flags = (update ? O_RDWR : O_WRONLY) | O_APPEND;
        return true;
    default:
        return false;
    }
}

/* Opens a resolved path as a regular file only. A link swapped in after the
 * path was resolved is not followed, and a FIFO, a device or a directory is
 * refused at once: opening a FIFO would block a root process for ever, and
 * reading a device has effects of its own. */
FILE *OpenRegular(const char *resolved, const char *mode)
{
    int flags = 0;
    bool truncate = false;
    struct stat st;
    if (!FlagsOfMode(mode, &flags, &truncate) || stat(resolved, &st) != 0 || !S_ISREG(st.st_mode)) {
        return nullptr;
    }
    int fd = open(resolved, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    const int status = fcntl(fd, F_GETFL);
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || status < 0 ||
        fcntl(fd, F_SETFL, status & ~O_NONBLOCK) != 0 || (truncate && ftruncate(fd, 0) != 0)) {
        close(fd);
        return nullptr;
    }
    FILE *file = fdopen(fd, mode);
    if (file == nullptr) {
        close(fd);
    }
    return file;
}
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
    FILE *file = OpenRegular(resolved, mode);
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
    const off_t here = ftello(file);
    if (here < 0) {
        LOG_MAJOR("ftell failed.\n\n");
        return 0;
    }
    (void)fseeko(file, 0, SEEK_END);
    const off_t size = ftello(file);
    (void)fseeko(file, here, SEEK_SET);
    if (size < 0 || size > kMaxFileSize) {
        LOG_MAJOR("file size[%lld] is out of range.\n\n", static_cast<long long>(size));
        return 0;
    }
    return static_cast<uint64_t>(size);
}
