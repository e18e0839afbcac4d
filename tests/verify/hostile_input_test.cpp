// SPDX-License-Identifier: Apache-2.0
/* Inputs made to slip past the checks or to stall a device: each test is
 * named for the attack it stops. The path-walk and key-usage attacks run
 * through the tool as scenarios (tests/testdata/scenarios.txt). */
#include <gtest/gtest.h>

#include <string>

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "asn1/der_builder.h"
#include "support/pki_builder.h"
#include "support/verify_env.h"
#include "support/work_count.h"
#include "checktool.h"
#include "verify/input_decode.h"
#include "vexa/vexa_crypto.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using namespace testenv;
using namespace dertest;

class HostileInputTest : public VerifyTest {};

/* Begin used to accept it, leaving no pending check behind, and Final then
 * called the empty signature verified. */
TEST_F(HostileInputTest, SignedDataWithoutSignerIsRefusedAtBegin)
{
    const Bytes sha256 = Seq({Oid({0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}), Null()});
    const Bytes data = Seq({Oid({0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01})});
    const Bytes signedData = Seq({Int({1}), Set({sha256}), data, Set({})});
    const Bytes der = Seq({Oid({0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02}), Explicit(0, signedData)});
    VexaPkcs7Content *content = nullptr;
    uint32_t consumed = 0;
    ASSERT_EQ(VexaPkcs7DecodeContent(der.data(), Len(der), &content, &consumed), VEXA_OK) << "well-formed otherwise";
    VexaPkcs7FreeContent(content);

    Ctx ctx = NewCtx("crlfiles/good.der");
    EXPECT_EQ(VexaVerifyDetachSignatureBegin(ctx.get(), der.data(), Len(der)), VEXA_ERR_CMS_FORMAT);
}

VexaBigInt BigIntOf(const Bytes &b)
{
    VexaBigInt v{};
    v.len = Len(b);
    std::copy(b.begin(), b.end(), v.bytes);
    return v;
}

uint32_t ServiceVerdict(const VexaBigInt &e, const VexaBigInt &n, const Bytes &data, const Bytes &sig)
{
    VexaCryptoCtx *ctx = nullptr;
    uint32_t verdict = 99;
    EXPECT_EQ(VexaRsaVerifyCreate(&ctx), VEXA_OK);
    EXPECT_EQ(VexaRsaVerifyInit(ctx, &e, &n, VEXA_CRYPTO_SHA256), VEXA_OK);
    EXPECT_EQ(VexaRsaVerifyUpdate(ctx, data.data(), Len(data)), VEXA_OK);
    EXPECT_EQ(VexaRsaVerifyFinal(ctx, sig.data(), Len(sig), &verdict), VEXA_OK);
    VexaRsaVerifyFree(ctx);
    return verdict;
}

/* A real signature over `data` with the test process's key of `bits`;
 * `padded` is that signature opened with the public key: the padded digest. */
struct SignedBy { VexaBigInt e{}, n{}; Bytes sig, padded; };

SignedBy SignWithKey(int bits, const Bytes &data)
{
    SignedBy out;
    EVP_PKEY *key = testpki::SharedKey(bits);
    out.sig = testpki::SignData(key, EVP_sha256(), data);
    testpki::PublicParts(key, &out.e, &out.n);
    /* the public operation alone, without removing the padding */
    out.padded.resize(out.sig.size());
    size_t len = out.padded.size();
    EVP_PKEY_CTX *open = EVP_PKEY_CTX_new(key, nullptr);
    EXPECT_EQ(EVP_PKEY_verify_recover_init(open), 1);
    EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(open, RSA_NO_PADDING), 1);
    EXPECT_EQ(EVP_PKEY_verify_recover(open, out.padded.data(), &len, out.sig.data(), out.sig.size()), 1);
    EVP_PKEY_CTX_free(open);
    return out;
}

/* With exponent 1 every padded digest is its own signature; a modulus
 * under 1024 bits can be factored. */
TEST_F(HostileInputTest, RsaKeysThatProveNothingVerifyNothing)
{
    const Bytes data = {'i', 'm', 'a', 'g', 'e'};
    const SignedBy small = SignWithKey(1016, data);
    EXPECT_EQ(ServiceVerdict(small.e, small.n, data, small.sig), 0u) << "1016-bit modulus";
    SignedBy key = SignWithKey(1024, data);
    EXPECT_EQ(ServiceVerdict(key.e, key.n, data, key.sig), 1u) << "1024 bits still verify";
    EXPECT_EQ(ServiceVerdict(BigIntOf({0x01}), BigIntOf(Bytes(128, 0xFF)), data, key.padded), 0u)
        << "exponent 1, the padded digest as signature";
    key.e.bytes[key.e.len - 1] &= 0xFE;
    EXPECT_EQ(ServiceVerdict(key.e, key.n, data, key.sig), 0u) << "even exponent";
}

/* Each unterminated block used to search for its closing marker through
 * the whole rest of the text: quadratic in the size. Counted in bytes the
 * searches look at, so a busy machine gives the same answer. */
TEST_F(HostileInputTest, UnterminatedPemBlocksCostOnePass)
{
    const std::string blocks[] = {"-----BEGIN CERTIFICATE-----\nQUJD\n-----END X509 CRL-----\n",
                                  "-----BEGIN X509 CRL-----\nQUJD\n-----END CERTIFICATE-----\n"};
    for (const std::string &block : blocks) {
        std::string text;
        while (text.size() + block.size() <= 1000000) {
            text += block;
        }
        Ctx ctx = NewCtx();
        VexaList certs{};
        VexaList crls{};
        workcount::Start();
        const uint32_t ret =
            InternalDecodePemCertCrl(ctx.get(), text.c_str(), static_cast<uint32_t>(text.size()), &certs, &crls);
        const workcount::Counts work = workcount::Stop();
        EXPECT_EQ(ret, VEXA_OK);
        EXPECT_EQ(certs.count + crls.count, 0u);
        /* a few passes over the text at most; one pass per block would be
         * about 18,000 passes */
        EXPECT_LT(work.bytesSearched, 4 * text.size()) << block;
    }
}

/* CAs whose indirect CRLs vouch only for each other: every CRL signer is
 * verified through the others down to the nesting limit. Without
 * remembering outcomes that is (CAs)^11 certificate walks
 * (67 million judged dates for four CAs; about 2,000 now). */
TEST_F(HostileInputTest, CrlSignersVouchingForEachOtherAreVerifiedOnce)
{
    constexpr uint64_t kMaxDates = 4000;
    for (const char *file : {"crlfiles/loop_indirect_4.der", "crlfiles/chain_two_indirect.der"}) {
        InputFileSet files{};
        const std::string path = Data(file);
        workcount::Start(kMaxDates + 1);
        const uint32_t verdict = compare_crl_files(path.c_str(), path.c_str(), &files);
        const workcount::Counts work = workcount::Stop();
        VexaFree(files.updateCrl);
        VexaFree(files.deviceCrl);
        EXPECT_EQ(verdict, 3u) << file;
        EXPECT_LE(work.datesJudged, kMaxDates) << file;
        EXPECT_GT(work.datesJudged, 0u) << file << ": the counter must see the walk";
    }
}

} // namespace
