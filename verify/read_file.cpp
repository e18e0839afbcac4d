// SPDX-License-Identifier: Apache-2.0
#include "verify/input_decode.h"

#include "base/diagnostics.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

void InternalCloseFile(FILE *file)
{
    int32_t ret = VexaFileClose(file);
    if (ret != 0) {
        VEXA_LOG(VEXA_LOG_WARNING, static_cast<uint32_t>(ret),
                        nullptr);
    }
}

uint32_t InternalReadFile(const char *path, uint8_t **data, uint32_t *length)
{
    if (path == nullptr || data == nullptr || length == nullptr) {
        return VEXA_ERR_PARAM;
    }
    if (path[0] == '\0') {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_FILE_OPEN,
                        "Empty file path.");
        return VEXA_ERR_PARAM;
    }
    FILE *file = VexaFileOpen(path, "rb");
    if (file == nullptr) {
        VEXA_LOG(VEXA_LOG_ERROR, VEXA_ERR_FILE_OPEN,
                        "Can not open file '%s'.", path);
        return VEXA_ERR_FILE_OPEN;
    }
    uint32_t ret = VEXA_OK;
    uint8_t *buffer = nullptr;
    const uint64_t size = VexaFileGetSize(file);
    if (size == 0) {
        ret = VEXA_ERR_FILE_EMPTY;
    } else if (size > VEXA_MAX_INPUT_FILE) {
        ret = VEXA_ERR_FILE_TOO_LARGE;
    } else if ((ret = VexaMalloc(reinterpret_cast<void **>(&buffer), static_cast<uint32_t>(size))) == VEXA_OK) {
        if (VexaFileRead(buffer, static_cast<size_t>(size), file) != size) {
            ret = VEXA_ERR_FILE_READ;
        }
    }
    if (ret != VEXA_OK) {
        (void)VEXA_FAIL(ret);
        VexaFree(buffer);
    } else {
        *data = buffer;
        *length = static_cast<uint32_t>(size);
    }
    InternalCloseFile(file);
    return ret;
}
