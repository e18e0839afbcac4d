/* SPDX-License-Identifier: Apache-2.0 */
/* Preloaded into the tool by the tests: every fsync fails as a full or
 * failing storage device makes it fail. */
#include <errno.h>

int fsync(int fd)
{
    (void)fd;
    errno = EIO;
    return -1;
}
