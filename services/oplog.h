/* SPDX-License-Identifier: Apache-2.0 */
/* The operation log: one appended text line per event, rotated to a single
 * ".old" generation near 5 MiB. Writing it never changes an operation's
 * result; failures only leave a notice on standard output. */
#ifndef CHECKTOOL_OPLOG_H
#define CHECKTOOL_OPLOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

extern const char g_logDir[];
extern const char g_logPath[];
extern const char g_lockPath[];

#define LOG_TIME_BUF_SIZE 128u
#define LOG_LINE_MAX 1024u
#define LOG_ROTATE_THRESHOLD 0x4FFFFFu
#define LOG_ROTATE_RECHECK 0x4FFBFFu

void get_time_str(uint32_t size, char *buf);
void write_log(const char *format, ...) __attribute__((format(printf, 1, 2)));
int get_ring_fd(const char *path, const char *line);
void rotate_log_file(const char *path);

#ifdef __cplusplus
}
#endif

/* Every line carries the module tag, user, local time and host in front of
 * the message; the level word is part of the format so the compiler checks
 * each message's arguments. */
#define TOOL_LOG_(level, fmt, ...)                                                     \
    do {                                                                               \
        char logTime_[LOG_TIME_BUF_SIZE] = {0};                                        \
        get_time_str(LOG_TIME_BUF_SIZE, logTime_);                                     \
        write_log("%s " level " %s %s %s CHECK_TOOL: " fmt, "CRL", "root", logTime_,   \
                  "127.0.0.1", ##__VA_ARGS__);                                         \
    } while (0)

#define LOG_MAJOR(fmt, ...) TOOL_LOG_("MAJOR", fmt, ##__VA_ARGS__)
#define LOG_MINOR(fmt, ...) TOOL_LOG_("MINOR", fmt, ##__VA_ARGS__)
#define LOG_SUGGESTION(fmt, ...) TOOL_LOG_("SUGGESTION", fmt, ##__VA_ARGS__)

#endif
