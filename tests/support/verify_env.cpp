// SPDX-License-Identifier: Apache-2.0
#include "support/verify_env.h"

#include <sys/stat.h>

#include <algorithm>

#include "asn1/log_capture.h"
#include "vexa/vexa_result.h"

namespace testenv {

Ctx NewCtx(const char *crlFile)
{
    VexaVerifyCtxParams params = {};
    params.size = sizeof(params);
    VexaVerifyCtx *ctx = nullptr;
    EXPECT_EQ(VexaVerifyCreateCtx(&ctx, &params), VEXA_OK);
    if (crlFile != nullptr) {
        const Bytes root = Fixture("pki/root.der");
        const Bytes crl = Fixture(crlFile);
        EXPECT_EQ(VexaVerifyAddCert(ctx, root.data(), Len(root)), VEXA_OK);
        EXPECT_EQ(VexaVerifyAddCrl(ctx, crl.data(), Len(crl)), VEXA_OK);
    }
    return Ctx(ctx);
}

uint32_t VerifyDetached(VexaVerifyCtx *ctx, const Bytes &sig, const Bytes &content, size_t chunk,
                        uint32_t *verdict)
{
    *verdict = 99;
    uint32_t ret = VexaVerifyDetachSignatureBegin(ctx, sig.data(), Len(sig));
    const size_t step = chunk == 0 ? content.size() : chunk;
    for (size_t at = 0; ret == VEXA_OK && at < content.size(); at += step) {
        const size_t n = std::min(step, content.size() - at);
        ret = VexaVerifyDetachSignatureUpdate(ctx, content.data() + at, static_cast<uint32_t>(n));
    }
    return ret != VEXA_OK ? ret : VexaVerifyDetachSignatureFinal(ctx, verdict);
}

bool Logged(const std::string &message)
{
    const auto &records = logtest::Records();
    return std::any_of(records.begin(), records.end(),
                       [&](const logtest::Record &r) { return r.message == message; });
}

void VerifyTest::SetUp()
{
    TempDirTest::SetUp();
    ASSERT_EQ(mkdir(kLogDir, 0750), 0);
    logtest::Records().clear();
    VexaLogSetObserver(logtest::Observe);
}

void VerifyTest::TearDown()
{
    VexaLogSetObserver(nullptr);
    logtest::Records().clear();
    TempDirTest::TearDown();
}

} // namespace testenv
