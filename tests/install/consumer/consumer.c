/* SPDX-License-Identifier: Apache-2.0 */
/* A device maker's program using the installed library: given the fixture
 * paths, a detached signature verified as checktool verifies an image (which
 * needs kestrel and libcrypto). It links only through what the installed
 * package says. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vexa/vexa_result.h>
#include <vexa/vexa_verify.h>

static uint8_t *read_whole(const char *path, uint32_t *len)
{
    FILE *f = fopen(path, "rb");
    uint8_t *buf = NULL;
    long size = -1;
    if (f != NULL && fseek(f, 0, SEEK_END) == 0 && (size = ftell(f)) > 0 && fseek(f, 0, SEEK_SET) == 0 &&
        (buf = malloc((size_t)size)) != NULL && fread(buf, 1, (size_t)size, f) != (size_t)size) {
        free(buf);
        buf = NULL;
    }
    if (f != NULL) {
        fclose(f);
    }
    *len = (uint32_t)size;
    return buf;
}

/* d: root certificate, CRL file, signature, content. Returns the verdict,
 * or -1 when a step fails. */
static int verify_detached(uint8_t *const *d, const uint32_t *len)
{
    VexaVerifyCtxParams params;
    memset(&params, 0, sizeof(params));
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = NULL;
    uint32_t verdict = 0;
    int ok = VexaVerifyCreateCtx(&ctx, &params) == VEXA_OK && VexaVerifyAddCert(ctx, d[0], len[0]) == VEXA_OK &&
             VexaVerifyAddCrl(ctx, d[1], len[1]) == VEXA_OK &&
             VexaVerifyDetachSignatureBegin(ctx, d[2], len[2]) == VEXA_OK &&
             VexaVerifyDetachSignatureUpdate(ctx, d[3], len[3]) == VEXA_OK &&
             VexaVerifyDetachSignatureFinal(ctx, &verdict) == VEXA_OK;
    VexaVerifyDestroyCtx(ctx);
    return ok ? (int)verdict : -1;
}

int main(int argc, char **argv)
{
    if (argc != 5) {
        /* linked and loaded: the build and the dynamic linker found everything */
        const int ok = VexaVerifyDestroyCtx(NULL) == VEXA_ERR_PARAM;
        puts(ok ? "consumer: ok" : "consumer: failed");
        return ok ? 0 : 1;
    }
    /* the signature verifies over its content and not over altered content */
    uint8_t *d[4];
    uint32_t len[4];
    int loaded = 1;
    for (int i = 0; i < 4; i++) {
        loaded = (d[i] = read_whole(argv[i + 1], &len[i])) != NULL && loaded;
    }
    int good = loaded ? verify_detached(d, len) : -1;
    if (loaded) {
        d[3][0] ^= 1;
    }
    int altered = loaded ? verify_detached(d, len) : -1;
    for (int i = 0; i < 4; i++) {
        free(d[i]);
    }
    printf("consumer: verdict %d on the signed content, %d on altered content\n", good, altered);
    return good == 1 && altered != 1 ? 0 : 1;
}
