// SPDX-License-Identifier: Apache-2.0
#include <errno.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/crypto.h>

#include "checktool.h"
#include "services/oplog.h"
#include "vexa/vexa_services.h"

namespace {

constexpr int kResultFailed = -1;
constexpr int kOpCount = 5;
constexpr mode_t kLogDirMode = 0750;

/* argc each operation needs, program name included. */
constexpr int kOpArgc[kOpCount] = {4, 4, 3, 4, 5};

} // namespace

/* Only the account named "root" may run the tool. A real user id without an
 * account is refused too: an unknown identity is not root. */
extern "C" int check_root_user(void)
{
    struct passwd *pw = getpwuid(getuid());
    if (pw == nullptr || pw->pw_name == nullptr) {
        puts("Operating upgrade, but user invalid(null)");
        return -1;
    }
    if (strcmp(pw->pw_name, "root") != 0) {
        printf("Operating upgrade, but user invalid(%s).\n", pw->pw_name);
        return -1;
    }
    return 0;
}

extern "C" void create_log_dir(void)
{
    if (access(g_logDir, F_OK) != 0) {
        int ret = mkdir(g_logDir, kLogDirMode);
        if (ret != 0) {
            printf("mkdir %s failed, result=%d, errno=%d.\n", g_logDir, ret, errno);
        }
    }
}

extern "C" void free_input_files(InputFileSet *files)
{
    if (files == nullptr) {
        return;
    }
    VexaFree(files->deviceCrl);
    files->deviceCrl = nullptr;
    VexaFree(files->updateCrl);
    files->updateCrl = nullptr;
    VexaFree(files->image);
    files->image = nullptr;
    VexaFree(files->imageTrailer);
    files->imageTrailer = nullptr;
}

int main(int argc, char *argv[])
{
    int result = kResultFailed;
    InputFileSet files = {};

    /* The verdict must not depend on openssl.cnf or on OPENSSL_CONF in the
     * caller's environment (either can load other providers); skipping the
     * file also saves parsing it on every run. Nothing prints libcrypto's
     * error strings, so they are not loaded either (a ninth of a run), and
     * its tables are not torn down at exit: the process ends right after,
     * and the system takes the memory back without the walk. */
    (void)OPENSSL_init_crypto(
        OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_NO_ATEXIT, nullptr);

    if (check_root_user() != 0) {
        puts("Only root has the authentication to upgrade.");
        return kResultFailed;
    }
    create_log_dir();

    /* Without an operation number there is nothing to dispatch; treat it
     * as a wrong argument count for operation 0 rather than read argv[1]. */
    int op = argc >= 2 ? atoi(argv[1]) : 0;
    if (static_cast<unsigned>(op) >= static_cast<unsigned>(kOpCount)) {
        LOG_MAJOR("input op_type(%d) invalid.\n\n", op);
    } else if (argc != kOpArgc[op]) {
        LOG_MAJOR("parameter num not right, op_type %d, argc %d\n\n", op, argc);
        return kResultFailed;
    } else {
        switch (op) {
        case OP_GET_IMAGE_CRL:
            LOG_MAJOR("get image crl file, image path: %s, crl out path:%s.\n\n", argv[2], argv[3]);
            result = static_cast<int>(get_image_crl_file(argv[2], argv[3], &files));
            if (result != 0) {
                LOG_MINOR("get_image_crl_file failed, ret=%d.\n\n", result);
            }
            break;
        case OP_COMPARE_CRL:
            LOG_MAJOR("compare crl file's timestamp, crl path 1: %s, crl path 2:%s.\n\n", argv[2], argv[3]);
            result = static_cast<int>(compare_crl_files(argv[2], argv[3], &files));
            break;
        case OP_CHECK_CRL:
            LOG_MAJOR("check crl file's integrity, crl path: %s.\n\n", argv[2]);
            result = static_cast<int>(compare_crl_files(argv[2], argv[2], &files));
            break;
        case OP_VERIFY_IMAGE:
            /* The CRL path comes first on this operation's command line. */
            LOG_MAJOR("verify image file with input crl file, image path: %s, crl path:%s.\n\n", argv[3], argv[2]);
            result = static_cast<int>(verify_image_with_crl(argv[3], argv[2], &files));
            break;
        case OP_GET_IMAGE_NVCNT: {
            int imageType = atoi(argv[2]);
            LOG_MAJOR("get image nvcnt, image_type: %d, image path: %s, out nvcnt :%s.\n\n", imageType, argv[3],
                      argv[4]);
            result = static_cast<int>(get_image_nvcnt(imageType, argv[3], argv[4]));
            if (result != 0) {
                LOG_MAJOR("get_image_nvcnt failed, ret=%d.\n\n", result);
            }
            break;
        }
        default:
            break;
        }
    }

    LOG_SUGGESTION("return result: %d.\n\n", result);
    free_input_files(&files);
    return result;
}
