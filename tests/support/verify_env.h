/* SPDX-License-Identifier: Apache-2.0 */
/* Verification contexts for the library's tests: set up as the check tool
 * sets them up, released when the test lets go of them. */
#ifndef TESTS_SUPPORT_VERIFY_ENV_H
#define TESTS_SUPPORT_VERIFY_ENV_H

#include <memory>

#include "support/test_env.h"
#include "base/verify_ctx.h"
#include "vexa/vexa_verify.h"

namespace testenv {

struct CtxFree { void operator()(VexaVerifyCtx *ctx) const { (void)VexaVerifyDestroyCtx(ctx); } };
using Ctx = std::unique_ptr<VexaVerifyCtx, CtxFree>;

/* A new context; given a CRL file, it trusts the root and holds that file,
 * as operation 3 sets it up. */
Ctx NewCtx(const char *crlFile = nullptr);

/* Begin, the content in pieces of `chunk` bytes (0: whole), then Final. */
uint32_t VerifyDetached(VexaVerifyCtx *ctx, const Bytes &sig, const Bytes &content, size_t chunk,
                        uint32_t *verdict);

/* Whether the library logged a diagnostic with this message in this test. */
bool Logged(const std::string &message);

/* A private directory with the log directory the services write to, and
 * the library's diagnostics captured. */
class VerifyTest : public TempDirTest {
protected:
    void SetUp() override;
    void TearDown() override;
};

} // namespace testenv

#endif
