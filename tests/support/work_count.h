// SPDX-License-Identifier: Apache-2.0
/* Work counted while a test runs a piece of the library: bytes that text
 * searches look at, the dates that certificate walks and CRL selection
 * judge, and the RSA keys and checks the crypto services make. The unit-test program wraps
 * the functions at link time (tests/CMakeLists.txt), so the counts are the
 * same on an idle and on a saturated machine, unlike durations. */
#ifndef TESTS_SUPPORT_WORK_COUNT_H
#define TESTS_SUPPORT_WORK_COUNT_H

#include <stdint.h>

namespace workcount {

struct Counts {
    uint64_t bytesSearched;   /* memchr and strstr: bytes up to the hit or the end */
    uint64_t datesJudged; /* VexaAsnTimeToEpoch calls: two per certificate walked */
    uint64_t keyImports;  /* EVP_PKEY_fromdata calls: RSA keys built */
    uint64_t rsaChecks;   /* EVP_PKEY_verify calls: RSA public-key operations */
};

/* Past `dateBudget` judged dates every further date fails, so a run that
 * has already shown it does too much work ends quickly. */
void Start(uint64_t dateBudget = UINT64_MAX);
Counts Stop();

} // namespace workcount

#endif
