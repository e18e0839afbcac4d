// SPDX-License-Identifier: Apache-2.0
#include "support/work_count.h"

#include <string.h>

#include <openssl/evp.h>

#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"

namespace {

bool g_counting = false;
workcount::Counts g_counts{};
uint64_t g_dateBudget = 0;

} // namespace

namespace workcount {

void Start(uint64_t dateBudget)
{
    g_counts = Counts{};
    g_dateBudget = dateBudget;
    g_counting = true;
}

Counts Stop()
{
    g_counting = false;
    return g_counts;
}

} // namespace workcount

/* Only references from statically linked objects arrive here: the library's
 * own searches and date checks, not libc's or libcrypto's internal ones. */
extern "C" {
void *__real_memchr(const void *s, int c, size_t n);
char *__real_strstr(const char *haystack, const char *needle);
uint32_t __real_VexaAsnTimeToEpoch(const VexaAsnOcts *time, int64_t *out);
int __real_EVP_PKEY_fromdata(EVP_PKEY_CTX *ctx, EVP_PKEY **ppkey, int selection, OSSL_PARAM params[]);
int __real_EVP_PKEY_verify(EVP_PKEY_CTX *ctx, const unsigned char *sig, size_t siglen, const unsigned char *tbs,
                           size_t tbslen);

void *__wrap_memchr(const void *s, int c, size_t n)
{
    void *hit = __real_memchr(s, c, n);
    if (g_counting) {
        g_counts.bytesSearched +=
            hit == nullptr ? n : static_cast<uint64_t>(static_cast<const char *>(hit) - static_cast<const char *>(s)) + 1;
    }
    return hit;
}

char *__wrap_strstr(const char *haystack, const char *needle)
{
    char *hit = __real_strstr(haystack, needle);
    if (g_counting) {
        g_counts.bytesSearched += hit == nullptr ? strlen(haystack) : static_cast<uint64_t>(hit - haystack) + 1;
    }
    return hit;
}

uint32_t __wrap_VexaAsnTimeToEpoch(const VexaAsnOcts *time, int64_t *out)
{
    if (g_counting && ++g_counts.datesJudged > g_dateBudget) {
        return VEXA_ERR_PARAM; /* over budget: the walk unwinds at once */
    }
    return __real_VexaAsnTimeToEpoch(time, out);
}

int __wrap_EVP_PKEY_fromdata(EVP_PKEY_CTX *ctx, EVP_PKEY **ppkey, int selection, OSSL_PARAM params[])
{
    g_counts.keyImports += g_counting ? 1 : 0;
    return __real_EVP_PKEY_fromdata(ctx, ppkey, selection, params);
}

int __wrap_EVP_PKEY_verify(EVP_PKEY_CTX *ctx, const unsigned char *sig, size_t siglen, const unsigned char *tbs,
                           size_t tbslen)
{
    g_counts.rsaChecks += g_counting ? 1 : 0;
    return __real_EVP_PKEY_verify(ctx, sig, siglen, tbs, tbslen);
}
}
