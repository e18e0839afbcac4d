/* PEM armour and the DER stream splitter: which blocks become records, which
 * are skipped, how markers are found, and what trailing bytes do. */
#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <string>
#include <vector>

#include "support/test_env.h"
#include "verify/input_decode.h"
#include "verify/verify_ctx.h"
#include "vexa/vexa_list.h"
#include "vexa/vexa_result.h"

namespace {

using testenv::Bytes;

Bytes Fixture(const std::string &rel)
{
    Bytes b = testenv::ReadBytes(std::string(TESTDATA_DIR) + "/" + rel);
    EXPECT_FALSE(b.empty()) << rel;
    return b;
}

/* Base64 in 64-character lines, each ended by `eol`. */
std::string Armour(const std::string &label, const Bytes &der, const std::string &eol = "\n")
{
    std::string b64(4 * ((der.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&b64[0]), der.data(), static_cast<int>(der.size()));
    b64.resize(static_cast<size_t>(n));
    std::string out = "-----BEGIN " + label + "-----" + eol;
    for (size_t i = 0; i < b64.size(); i += 64) {
        out += b64.substr(i, 64) + eol;
    }
    return out + "-----END " + label + "-----" + eol;
}

struct Decoded {
    uint32_t code;
    uint32_t certs;
    uint32_t crls;
};

class PemInputTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        ASSERT_EQ(VexaVerifyCreateCtx(&ctx_, &params), VEXA_OK);
    }
    void TearDown() override { VexaVerifyDestroyCtx(ctx_); }

    Decoded Decode(const void *data, size_t len)
    {
        VexaList certs = {};
        VexaList crls = {};
        Decoded d{};
        d.code = InternalDecodeCertCrl(ctx_, static_cast<const uint8_t *>(data), static_cast<uint32_t>(len), &certs,
                                       &crls);
        d.certs = certs.count;
        d.crls = crls.count;
        for (uint32_t i = 0; i < certs.count; i++) {
            VexaX509FreeCert(static_cast<VexaX509Cert *>(certs.items[i]));
        }
        for (uint32_t i = 0; i < crls.count; i++) {
            VexaX509FreeCrl(static_cast<VexaX509Crl *>(crls.items[i]));
        }
        return d;
    }
    Decoded Decode(const std::string &s) { return Decode(s.data(), s.size()); }
    Decoded Decode(const Bytes &b) { return Decode(b.data(), b.size()); }

    VexaVerifyCtx *ctx_ = nullptr;
};

TEST_F(PemInputTest, PemBlocksBecomeRecordsOthersAreSkipped)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes intCert = Fixture("pki/int.der");
    const Bytes crl = Fixture("crl/root.crl");
    std::string damaged = Armour("CERTIFICATE", intCert);
    damaged.replace(damaged.find('\n') + 10, 1, " "); /* a blank inside a Base64 line */
    const struct {
        const char *name;
        std::string text;
        Decoded want;
    } cases[] = {
        {"certificate, other label, CRL", Armour("CERTIFICATE", root) + Armour("PRIVATE KEY", intCert) +
                                              Armour("X509 CRL", crl),
         {VEXA_OK, 1, 1}},
        {"a label that only begins like CERTIFICATE is not one",
         Armour("CERTIFICATE REQUEST", root) + Armour("X509 CRL", crl), {VEXA_OK, 0, 1}},
        {"damaged certificate block is skipped, the rest decodes",
         Armour("CERTIFICATE", root) + damaged + Armour("X509 CRL", crl), {VEXA_OK, 1, 1}},
        {"CR LF line ends", Armour("CERTIFICATE", root, "\r\n") + Armour("X509 CRL", crl, "\r\n"), {VEXA_OK, 1, 1}},
        {"certificate DER inside a CRL block does not decode as a CRL",
         Armour("X509 CRL", intCert) + Armour("CERTIFICATE", root), {VEXA_OK, 1, 0}},
        {"the forge's PEM CRL file", testenv::ReadFile(std::string(TESTDATA_DIR) + "/crlfiles/good.pem"),
         {VEXA_OK, 1, 2}},
        {"opening marker without any closing marker",
         Armour("CERTIFICATE", root) + "-----BEGIN X509 CRL-----\nMIIB\n", {VEXA_ERR_INPUT_FORMAT, 1, 0}},
        {"closing marker without its trailing dashes", "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE",
         {VEXA_ERR_INPUT_FORMAT, 0, 0}},
        {"body would start past the closing marker",
         "-----BEGIN CERTIFICATE----------END CERTIFICATE-----\n" + Armour("X509 CRL", crl), {VEXA_OK, 0, 1}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Decoded d = Decode(c.text);
        EXPECT_EQ(d.code, c.want.code);
        EXPECT_EQ(d.certs, c.want.certs);
        EXPECT_EQ(d.crls, c.want.crls);
    }
}

TEST_F(PemInputTest, DerStreamIgnoresOnlyShortTrailingBytes)
{
    const Bytes cert = Fixture("pki/int.der");
    const Bytes crl = Fixture("crl/int.crl");
    for (size_t tail : {size_t{0}, size_t{20}, size_t{32}, size_t{33}, size_t{40}}) {
        SCOPED_TRACE("trailing bytes: " + std::to_string(tail));
        Bytes input = cert;
        input.insert(input.end(), crl.begin(), crl.end());
        input.insert(input.end(), tail, 0);
        Decoded d = Decode(input);
        /* both records stay in the lists whatever the tail does */
        EXPECT_EQ(d.certs, 1u);
        EXPECT_EQ(d.crls, 1u);
        if (tail <= 32) {
            EXPECT_EQ(d.code, VEXA_OK);
        } else {
            /* the CRL decoder's own code, not a generic one */
            EXPECT_EQ(d.code & 0xFFF00000u, 0x88300000u) << std::hex << d.code;
        }
    }
    Bytes junkFirst(40, 0x30);
    junkFirst.insert(junkFirst.end(), cert.begin(), cert.end());
    Decoded d = Decode(junkFirst);
    EXPECT_NE(d.code, VEXA_OK);
    EXPECT_EQ(d.certs + d.crls, 0u);
}

TEST_F(PemInputTest, ShortInputIsRefusedWhateverItHolds)
{
    const std::string pem = "-----BEGIN CERTIFICATE-----\nQUJD\n----";
    ASSERT_EQ(pem.size(), 37u);
    EXPECT_EQ(Decode(pem).code, VEXA_ERR_INPUT_FORMAT);
    const Bytes crl = Fixture("crl/int.crl");
    EXPECT_EQ(Decode(crl.data(), 37).code, VEXA_ERR_INPUT_FORMAT);
    EXPECT_EQ(ctx_->decodedBuffers.count, 0u);
}

TEST_F(PemInputTest, SingleBlockDecodersCheckMarkersAndLength)
{
    const Bytes cert = Fixture("pki/int.der");
    const std::string block = Armour("CERTIFICATE", cert);
    const struct {
        const char *name;
        std::string text;
        uint32_t length; /* 0: the text's own */
        uint32_t code;
    } cases[] = {
        {"whole block", block, 0, VEXA_OK},
        {"not a certificate marker", "-----BEGIN X509 CRL-----\nQUJD\n-----END X509 CRL-----", 0,
         VEXA_ERR_INPUT_FORMAT},
        {"no closing marker", block.substr(0, block.find("-----END")), 0, VEXA_ERR_INPUT_FORMAT},
        {"body longer than the given length", block, 40, VEXA_ERR_INPUT_FORMAT},
        {"empty body", "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----", 0, VEXA_ERR_INPUT_FORMAT},
        {"Base64 of size 0", "-----BEGIN CERTIFICATE-----\n==\n-----END CERTIFICATE-----", 0, VEXA_ERR_INPUT_FORMAT},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VexaX509Cert *out = nullptr;
        const uint32_t len = c.length != 0 ? c.length : static_cast<uint32_t>(c.text.size());
        EXPECT_EQ(InternalPemDecodeCert(ctx_, c.text.c_str(), len, &out), c.code);
        EXPECT_EQ(out != nullptr, c.code == VEXA_OK);
        VexaX509FreeCert(out);
    }
}

TEST_F(PemInputTest, CmsArmourMarkersHaveTheirOwnCodes)
{
    const Bytes sig = Fixture("sig/valid.der");
    const std::string cms = Armour("CMS", sig);
    const std::string pkcs7 = Armour("PKCS7", sig);
    const struct {
        const char *name;
        std::string text;
        uint32_t code;
    } cases[] = {
        {"CMS block", cms, VEXA_OK},
        {"PKCS7 block", pkcs7, VEXA_OK},
        {"CMS without its closing marker", cms.substr(0, cms.find("-----END")), VEXA_ERR_INPUT_FORMAT},
        {"PKCS7 without its closing marker", pkcs7.substr(0, pkcs7.find("-----END")), VEXA_ERR_GENERIC},
        {"another label", Armour("CERTIFICATE", sig), VEXA_ERR_INPUT_FORMAT},
        {"body past the closing marker", "-----BEGIN CMS----END CMS-----", VEXA_ERR_INPUT_FORMAT},
        {"malformed Base64 keeps its own code", "-----BEGIN CMS-----\n Q\n-----END CMS-----", VEXA_ERR_BASE64},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VexaPkcs7Content *out = nullptr;
        EXPECT_EQ(InternalPemDecodeCms(ctx_, c.text.c_str(), static_cast<uint32_t>(c.text.size()), &out), c.code);
        EXPECT_EQ(out != nullptr, c.code == VEXA_OK);
        VexaPkcs7FreeContent(out);
    }
}

/* Every decoded PEM block takes a buffer slot: with all 16 taken a PEM block
 * is dropped silently, while DER input fails. */
TEST_F(PemInputTest, FullBufferListDropsPemBlocksAndRefusesDer)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes crl = Fixture("crl/root.crl");
    const std::string pem = Armour("CERTIFICATE", root) + Armour("X509 CRL", crl);
    Decoded first = Decode(pem);
    EXPECT_EQ(first.certs, 1u);
    EXPECT_EQ(ctx_->decodedBuffers.count, 2u);
    while (ctx_->decodedBuffers.count < 15) {
        ASSERT_EQ(Decode(root).code, VEXA_OK);
    }
    Decoded last = Decode(pem);
    EXPECT_EQ(last.code, VEXA_OK);
    EXPECT_EQ(last.certs, 1u);
    EXPECT_EQ(last.crls, 0u);
    EXPECT_EQ(ctx_->decodedBuffers.count, 16u);
    EXPECT_EQ(Decode(pem).certs, 0u);
    EXPECT_EQ(Decode(root).code, VEXA_ERR_LIST_FULL);
}

} // namespace
