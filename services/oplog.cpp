// SPDX-License-Identifier: Apache-2.0
#include "services/oplog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <kestrel/kestrel.h>

/* The shipped binary logs under /var/log/upgradetool; the test build of the
 * same sources sets another directory here, at compile time. */
#ifndef CHECKTOOL_LOG_DIR
#define CHECKTOOL_LOG_DIR "/var/log/upgradetool"
#endif

const char g_logDir[] = CHECKTOOL_LOG_DIR;
const char g_logPath[] = CHECKTOOL_LOG_DIR "/upgrade_crl.log";
const char g_lockPath[] = CHECKTOOL_LOG_DIR "/upgrade_crl.lock";

namespace {

constexpr int kLogMode = 0600;
constexpr int kRotatedMode = 0440;
constexpr const char kRotatedSuffix[] = ".old";
/* While another process holds the rotation lock we wait for it, but never
 * for long: a lock that stays held (a stale holder) must not stop logging. */
constexpr int kBusyRetries = 2000;
constexpr long kBusyWaitNs = 100000;

enum RotateOutcome { ROTATE_ATTEMPTED, ROTATE_BUSY };

RotateOutcome rotate_log_file_once(const char *path)
{
    if (path == nullptr || path[0] == '\0') {
        return ROTATE_ATTEMPTED;
    }
    size_t pathLen = strlen(path);
    size_t nameSize = pathLen + 8;
    /* Not VexaMalloc: its failure notice would be logged, and logging is
     * what we are in the middle of. */
    char *oldName = static_cast<char *>(calloc(1, nameSize));
    if (oldName == nullptr) {
        return ROTATE_ATTEMPTED;
    }
    if (strcpy_s(oldName, nameSize, path) != 0 || strcat_s(oldName, nameSize, kRotatedSuffix) != 0) {
        free(oldName);
        return ROTATE_ATTEMPTED;
    }
    /* Never through a link: a planted one would make a root run create or
     * truncate its target. */
    int lockFd = open(g_lockPath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLogMode);
    if (lockFd < 0) {
        free(oldName);
        return ROTATE_ATTEMPTED;
    }
    if (flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        close(lockFd);
        free(oldName);
        return ROTATE_BUSY;
    }
    struct stat st;
    /* Re-check under the lock: a process that rotated just before us has
     * already made the log small again. The mode is changed on the open log,
     * not on a path that could be swapped for a link meanwhile. */
    int logFd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (logFd >= 0 && fstat(logFd, &st) == 0 && S_ISREG(st.st_mode) &&
        st.st_size > static_cast<off_t>(LOG_ROTATE_RECHECK)) {
        (void)remove(oldName);
        (void)fchmod(logFd, kRotatedMode);
        (void)rename(path, oldName);
    }
    if (logFd >= 0) {
        close(logFd);
    }
    free(oldName);
    (void)flock(lockFd, LOCK_UN);
    close(lockFd);
    (void)remove(g_lockPath);
    return ROTATE_ATTEMPTED;
}

/* Holds the log's own inode while a writer measures and appends, so writers
 * racing at the threshold see each other's lines and none pushes the log
 * past it. A holder that never lets go (a stopped process) is waited for
 * only briefly: logging must never hang. */
void lock_log_briefly(int fd)
{
    for (int i = 0; i < kBusyRetries; i++) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            return;
        }
        struct timespec wait = {0, kBusyWaitNs};
        (void)nanosleep(&wait, nullptr);
    }
}

/* The size check of one open log: true when the line may be appended. */
bool line_fits(uint64_t fileSize, uint32_t lineLen)
{
    uint32_t low = static_cast<uint32_t>(fileSize);
    uint32_t sum = low + lineLen; /* wraps on purpose, as the check expects */
    return sum <= low || sum <= lineLen || sum <= LOG_ROTATE_THRESHOLD;
}

} // namespace

extern "C" void get_time_str(uint32_t size, char *buf)
{
    if (buf == nullptr || size == 0) {
        return;
    }
    struct timeval tv;
    if (gettimeofday(&tv, nullptr) != 0) {
        return;
    }
    struct tm local;
    time_t seconds = tv.tv_sec;
    if (localtime_r(&seconds, &local) == nullptr) {
        return;
    }
    char tmp[LOG_TIME_BUF_SIZE] = {0};
    size_t room = size < sizeof(tmp) ? size : sizeof(tmp);
    if (snprintf_s(tmp, room, room - 1, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                   local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec) < 0) {
        return;
    }
    (void)memcpy_s(buf, size, tmp, strlen(tmp) + 1);
}

extern "C" void rotate_log_file(const char *path)
{
    (void)rotate_log_file_once(path);
}

extern "C" int get_ring_fd(const char *path, const char *line)
{
    if (path == nullptr || line == nullptr) {
        return -1;
    }
    uint32_t lineLen = static_cast<uint32_t>(strlen(line));
    bool attempted = false;
    int busyRetries = 0;
    for (;;) {
        /* A link planted after the check in write_log is not followed
         * either, and a FIFO in the log's place cannot hold the writer. */
        int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kLogMode);
        if (fd < 0) {
            printf("open %s failed, errno=%d\n", path, errno);
            return -1;
        }
        lock_log_briefly(fd);
        struct stat st;
        if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
            close(fd);
            return -1;
        }
        /* After one real rotation attempt that left the log big (the rename
         * failed, the lock file cannot be made), append anyway: losing lines
         * is worse than a log slightly over its size. */
        if (line_fits(static_cast<uint64_t>(st.st_size), lineLen) || attempted) {
            return fd;
        }
        close(fd);
        if (rotate_log_file_once(path) == ROTATE_BUSY && busyRetries < kBusyRetries) {
            ++busyRetries;
            struct timespec wait = {0, kBusyWaitNs};
            (void)nanosleep(&wait, nullptr);
            continue;
        }
        attempted = true;
    }
}

extern "C" void write_log(const char *format, ...)
{
    if (format == nullptr) {
        return;
    }
    struct stat st;
    if (lstat(g_logPath, &st) == 0 && S_ISLNK(st.st_mode)) {
        return;
    }
    char line[LOG_LINE_MAX + 1] = {0};
    va_list ap;
    va_start(ap, format);
    int written = vsnprintf_s(line, sizeof(line), LOG_LINE_MAX, format, ap);
    va_end(ap);
    if (written < 0) {
        puts("copy format to msg failed");
        return;
    }
    int fd = get_ring_fd(g_logPath, line);
    if (fd < 0) {
        puts("get ring fd failed");
        return;
    }
    size_t len = strlen(line);
    ssize_t out = write(fd, line, len);
    if (out < 0 || static_cast<size_t>(out) != len) {
        puts("write to file failed");
    }
    close(fd);
}
