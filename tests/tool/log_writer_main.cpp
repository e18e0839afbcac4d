// SPDX-License-Identifier: Apache-2.0
/* Writes N numbered lines to the test build's operation log; the concurrent
 * writer test runs several of these at once. */
#include <stdlib.h>
#include <unistd.h>

#include "oplog.h"

int main(int argc, char **argv)
{
    if (argc != 3) {
        return 2;
    }
    const int id = atoi(argv[1]);
    const int lines = atoi(argv[2]);
    for (int i = 0; i < lines; i++) {
        LOG_MAJOR("writer %d line %d pid %d xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx.\n\n", id, i, static_cast<int>(getpid()));
    }
    return 0;
}
