/* A verification context filled directly with certificates and CRLs made by
 * the test, so path and CRL rules can be checked one at a time. */
#ifndef TESTS_PKI_PKI_FIXTURE_H
#define TESTS_PKI_PKI_FIXTURE_H

#include <gtest/gtest.h>

#include <deque>

#include "pki/pki.h"
#include "support/pki_builder.h"
#include "verify/verify_ctx.h"
#include "vexa/vexa_result.h"

namespace testpki {

class PkiTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        ASSERT_EQ(VexaVerifyCreateCtx(&ctx_, &params), VEXA_OK);
    }

    void TearDown() override
    {
        for (VexaX509Cert *c : certs_) {
            VexaX509FreeCert(c);
        }
        for (VexaX509Crl *c : crls_) {
            VexaX509FreeCrl(c);
        }
        VexaVerifyDestroyCtx(ctx_);
        certs_.clear();
        crls_.clear();
        der_.clear();
        ctx_ = nullptr;
    }

    /* Decodes (the bytes are kept alive by the fixture) and adds to the store. */
    VexaX509Cert *Add(X509 *cert)
    {
        VexaX509Cert *c = Decode(cert);
        EXPECT_EQ(VexaPkiAddCert(ctx_, c), VEXA_OK);
        return c;
    }

    VexaX509Cert *Decode(X509 *cert)
    {
        der_.push_back(Der(cert));
        VexaX509Cert *c = nullptr;
        uint32_t used = 0;
        EXPECT_EQ(VexaX509DecodeCert(der_.back().data(), static_cast<uint32_t>(der_.back().size()), &c, &used),
                  VEXA_OK);
        certs_.push_back(c);
        return c;
    }

    VexaX509Crl *Add(X509_CRL *crl)
    {
        der_.push_back(Der(crl));
        VexaX509Crl *c = nullptr;
        uint32_t used = 0;
        EXPECT_EQ(VexaX509DecodeCrl(der_.back().data(), static_cast<uint32_t>(der_.back().size()), &c, &used),
                  VEXA_OK);
        crls_.push_back(c);
        EXPECT_EQ(VexaPkiAddCrl(ctx_, c), VEXA_OK);
        return c;
    }

    VexaVerifyCtx *ctx_ = nullptr;
    std::deque<Bytes> der_;
    std::vector<VexaX509Cert *> certs_;
    std::vector<VexaX509Crl *> crls_;
};

/* A CA or end-entity certificate under `issuer` (self-signed when null). */
inline Cert CaCert(const std::string &subject, long serial, X509 *issuer, EVP_PKEY *issuerKey, EVP_PKEY *key)
{
    CertSpec s;
    s.subject = subject;
    s.serial = serial;
    s.ca = 1;
    s.keyUsage = KU_KEY_CERT_SIGN | KU_CRL_SIGN;
    s.key = key;
    s.issuer = issuer;
    s.issuerKey = issuerKey;
    return MakeCert(s);
}

} // namespace testpki

#endif
