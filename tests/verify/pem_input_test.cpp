// SPDX-License-Identifier: Apache-2.0
/* PEM armour and the DER stream splitter: which blocks become records, which
 * are skipped, how markers are found, and what trailing bytes do. */
#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <array>

#include "support/verify_env.h"
#include "verify/input_decode.h"
#include "vexa/vexa_result.h"

namespace {

using namespace testenv;

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

/* code, certificates, CRLs */
using Decoded = std::array<uint32_t, 3>;

class PemInputTest : public VerifyTest {
protected:
    Decoded Decode(const std::string &s)
    {
        VexaList certs = {};
        VexaList crls = {};
        const uint32_t code = InternalDecodeCertCrl(ctx_.get(), reinterpret_cast<const uint8_t *>(s.data()),
                                                    static_cast<uint32_t>(s.size()), &certs, &crls);
        const Decoded d{code, certs.count, crls.count};
        VexaListFreeAll(&certs, [](void *c) { VexaX509FreeCert(static_cast<VexaX509Cert *>(c)); });
        VexaListFreeAll(&crls, [](void *c) { VexaX509FreeCrl(static_cast<VexaX509Crl *>(c)); });
        return d;
    }

    Ctx ctx_ = NewCtx();
};

TEST_F(PemInputTest, PemBlocksBecomeRecordsOthersAreSkipped)
{
    const Bytes root = Fixture("pki/root.der");
    const Bytes intCert = Fixture("pki/int.der");
    const Bytes crl = Fixture("crl/root.crl");
    std::string damaged = Armour("CERTIFICATE", intCert);
    damaged.replace(damaged.find('\n') + 10, 1, " "); /* a blank inside a Base64 line */
    const struct { const char *name; std::string text; Decoded want; } cases[] = {
        {"certificate, other label, CRL",
         Armour("CERTIFICATE", root) + Armour("PRIVATE KEY", intCert) + Armour("X509 CRL", crl), {VEXA_OK, 1, 1}},
        {"a label that only begins like CERTIFICATE is not one",
         Armour("CERTIFICATE REQUEST", root) + Armour("X509 CRL", crl), {VEXA_OK, 0, 1}},
        {"damaged certificate block is skipped, the rest decodes",
         Armour("CERTIFICATE", root) + damaged + Armour("X509 CRL", crl), {VEXA_OK, 1, 1}},
        {"CR LF line ends", Armour("CERTIFICATE", root, "\r\n") + Armour("X509 CRL", crl, "\r\n"), {VEXA_OK, 1, 1}},
        {"certificate DER inside a CRL block does not decode as a CRL",
         Armour("X509 CRL", intCert) + Armour("CERTIFICATE", root), {VEXA_OK, 1, 0}},
        {"opening marker without any closing marker",
         Armour("CERTIFICATE", root) + "-----BEGIN X509 CRL-----\nMIIB\n", {VEXA_ERR_INPUT_FORMAT, 1, 0}},
        {"closing marker without its trailing dashes", "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE",
         {VEXA_ERR_INPUT_FORMAT, 0, 0}},
        {"body would start past the closing marker",
         "-----BEGIN CERTIFICATE----------END CERTIFICATE-----\n" + Armour("X509 CRL", crl), {VEXA_OK, 0, 1}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(Decode(c.text), c.want) << c.name;
    }
}

/* Up to 32 trailing bytes after the last record are padding; more fail the
 * decoding with the CRL decoder's own code, the records before them kept.
 * Junk in front stops everything. */
TEST_F(PemInputTest, DerStreamIgnoresOnlyShortTrailingBytes)
{
    const std::string cert = ReadFile(Data("pki/int.der"));
    const std::string records = cert + ReadFile(Data("crl/int.crl"));
    EXPECT_EQ(Decode(records + std::string(32, '\0')), (Decoded{VEXA_OK, 1, 1}));
    const Decoded d = Decode(records + std::string(33, '\0'));
    EXPECT_EQ(d[0] & 0xFFF00000u, 0x88300000u) << std::hex << d[0];
    EXPECT_EQ(d[1] + d[2], 2u);
    const Decoded junkFirst = Decode(std::string(40, '0') + cert);
    EXPECT_NE(junkFirst[0], VEXA_OK);
    EXPECT_EQ(junkFirst[1] + junkFirst[2], 0u);
}

TEST_F(PemInputTest, SingleBlockDecodersCheckMarkersAndLength)
{
    const std::string block = Armour("CERTIFICATE", Fixture("pki/int.der"));
    /* length 0: the text's own */
    const struct { const char *name; std::string text; uint32_t length, code; } cases[] = {
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
        EXPECT_EQ(InternalPemDecodeCert(ctx_.get(), c.text.c_str(), len, &out), c.code);
        EXPECT_EQ(out != nullptr, c.code == VEXA_OK);
        VexaX509FreeCert(out);
    }
}

} // namespace
