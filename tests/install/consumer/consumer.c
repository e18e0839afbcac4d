/* A program outside the project that uses the installed library: memory
 * services, the bounded list and the bounds-checked formatter. It links
 * everything the library calls by name (the operation log, kestrel,
 * libcrypto) only through what the installed package says. */
#include <stdio.h>
#include <string.h>

#include <kestrel/kestrel.h>
#include <vexa/vexa_list.h>
#include <vexa/vexa_result.h>
#include <vexa/vexa_services.h>

/* The digest services arrived after the list and memory services; an
 * install that has them must link libcrypto for the consumer. */
#if defined(__has_include)
#if __has_include(<vexa/vexa_crypto.h>)
#include <vexa/vexa_crypto.h>
#define CONSUMER_HAS_DIGEST 1
#endif
#endif

#if defined(__has_include)
#if __has_include(<vexa/vexa_verify.h>)
#include <vexa/vexa_verify.h>
#define CONSUMER_HAS_VERIFY 1
#endif
#endif

#ifdef CONSUMER_HAS_VERIFY
#include <stdlib.h>

/* Whole file into a buffer of its own; null when it cannot be read. */
static uint8_t *read_whole(const char *path, uint32_t *len)
{
    FILE *f = fopen(path, "rb");
    if (f == NULL) {
        return NULL;
    }
    uint8_t *buf = NULL;
    long size = -1;
    if (fseek(f, 0, SEEK_END) == 0 && (size = ftell(f)) > 0 && fseek(f, 0, SEEK_SET) == 0) {
        buf = malloc((size_t)size);
        if (buf != NULL && fread(buf, 1, (size_t)size, f) != (size_t)size) {
            free(buf);
            buf = NULL;
        }
    }
    fclose(f);
    *len = (uint32_t)size;
    return buf;
}

/* A detached signature checked the way checktool checks an image: the root
 * trusted, the CRL file added, the content fed in one piece. Returns the
 * verdict, or -1 when a step fails. */
static int verify_detached(const uint8_t *root, uint32_t rootLen, const uint8_t *crl, uint32_t crlLen,
                           const uint8_t *sig, uint32_t sigLen, const uint8_t *content, uint32_t contentLen)
{
    VexaVerifyCtxParams params;
    memset(&params, 0, sizeof(params));
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = NULL;
    if (VexaVerifyCreateCtx(&ctx, &params) != VEXA_OK) {
        return -1;
    }
    uint32_t verdict = 0;
    int ok = VexaVerifyAddCert(ctx, root, rootLen) == VEXA_OK && VexaVerifyAddCrl(ctx, crl, crlLen) == VEXA_OK &&
             VexaVerifyDetachSignatureBegin(ctx, sig, sigLen) == VEXA_OK &&
             VexaVerifyDetachSignatureUpdate(ctx, content, contentLen) == VEXA_OK &&
             VexaVerifyDetachSignatureFinal(ctx, &verdict) == VEXA_OK;
    VexaVerifyDestroyCtx(ctx);
    return ok ? (int)verdict : -1;
}

/* argv: root certificate, CRL file, signature, content. The signature must
 * verify over the content and not over the content with one byte changed. */
static int verification_works(char **paths)
{
    uint32_t len[4] = {0, 0, 0, 0};
    uint8_t *data[4];
    int loaded = 1;
    for (int i = 0; i < 4; i++) {
        data[i] = read_whole(paths[i], &len[i]);
        loaded = loaded && data[i] != NULL;
    }
    int ok = 0;
    if (loaded) {
        int good = verify_detached(data[0], len[0], data[1], len[1], data[2], len[2], data[3], len[3]);
        data[3][0] ^= 1;
        int altered = verify_detached(data[0], len[0], data[1], len[1], data[2], len[2], data[3], len[3]);
        printf("consumer: verdict %d on the signed content, %d on altered content\n", good, altered);
        ok = good == 1 && altered != 1;
    }
    for (int i = 0; i < 4; i++) {
        free(data[i]);
    }
    return ok;
}
#endif

#ifdef CONSUMER_HAS_DIGEST
/* SHA-256 of "abc" through the library's digest service. */
static int digest_works(void)
{
    static const uint8_t kAbcSha256[32] = {
        0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40, 0xde, 0x5d, 0xae, 0x22, 0x23,
        0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17, 0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
    VexaCryptoCtx *ctx = NULL;
    uint8_t digest[VEXA_DIGEST_MAX_LEN];
    uint32_t len = 0;
    uint32_t reserved = 0;
    int ok = VexaDigestCreate(&ctx) == VEXA_OK && VexaDigestInit(ctx, VEXA_CRYPTO_SHA256) == VEXA_OK &&
             VexaDigestUpdate(ctx, (const uint8_t *)"abc", 3) == VEXA_OK &&
             VexaDigestFinal(ctx, digest, &len, &reserved) == VEXA_OK && len == 32 &&
             memcmp(digest, kAbcSha256, 32) == 0;
    VexaDigestFree(ctx);
    return ok;
}
#endif

static int32_t compare_values(const void *a, const void *b)
{
    const uint32_t x = *(const uint32_t *)a;
    const uint32_t y = *(const uint32_t *)b;
    return x < y ? -1 : (x > y ? 1 : 0);
}

static int fail(const char *what)
{
    printf("consumer: %s\n", what);
    return 1;
}

int main(int argc, char **argv)
{
    VexaList list;
    memset(&list, 0, sizeof(list));

    /* Fill the list beyond its capacity, largest value first. */
    for (uint32_t i = 0; i <= VEXA_LIST_CAPACITY; i++) {
        void *block = NULL;
        if (VexaMallocZero(&block, sizeof(uint32_t)) != VEXA_OK || block == NULL) {
            return fail("VexaMallocZero failed");
        }
        *(uint32_t *)block = VEXA_LIST_CAPACITY - i;
        uint32_t ret = VexaListAppend(&list, block);
        if (i < VEXA_LIST_CAPACITY ? ret != VEXA_OK : ret != VEXA_ERR_LIST_FULL) {
            return fail("VexaListAppend gave the wrong result");
        }
        if (ret != VEXA_OK) {
            VexaFree(block); /* a full list leaves the entry with the caller */
        }
    }
    if (list.count != VEXA_LIST_CAPACITY || VexaListSort(&list, compare_values) != VEXA_OK) {
        return fail("list count or sort wrong");
    }
    for (uint32_t i = 0; i < list.count; i++) {
        if (*(const uint32_t *)list.items[i] != i + 1) {
            return fail("list not sorted");
        }
    }
    VexaListFreeAll(&list, VexaFree);

    char text[16];
    if (snprintf_s(text, sizeof(text), sizeof(text) - 1, "count=%u", (unsigned)VEXA_LIST_CAPACITY) != 8 ||
        snprintf_s(text, 4, 3, "%s", "too long") >= 0 || VexaStrLen("vexa") != 4) {
        return fail("formatting or string services wrong");
    }
#ifdef CONSUMER_HAS_DIGEST
    if (!digest_works()) {
        return fail("SHA-256 digest service wrong");
    }
    puts("consumer: digest service ok");
#endif
#ifdef CONSUMER_HAS_VERIFY
    if (argc == 5) {
        if (!verification_works(argv + 1)) {
            return fail("detached signature verification wrong");
        }
        puts("consumer: verification ok");
    }
#endif
    (void)argc;
    (void)argv;
    puts("consumer: ok");
    return 0;
}
