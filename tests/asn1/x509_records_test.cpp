// SPDX-License-Identifier: Apache-2.0
/* Certificates and CRLs written by libcrypto in the test, and the forge's
 * SignedData and time-stamp tokens, decoded into their records. */
#include <gtest/gtest.h>

#include <openssl/ec.h>

#include <algorithm>
#include <string>

#include "asn1/asn1_items.h"
#include "support/pki_builder.h"
#include "tests/asn1/der_builder.h"
#include "tests/asn1/log_capture.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using dertest::Bytes;
using dertest::Epoch;
using dertest::View;
using testpki::Fixture;

/* One decode through a public entry point; the bytes live as long as the record. */
template <class T, uint32_t (*Decode)(const uint8_t *, uint32_t, T **, uint32_t *), void (*Free)(T *)>
struct Held {
    Bytes der;
    T *rec = nullptr;
    uint32_t consumed = 0;
    uint32_t code;
    explicit Held(const Bytes &bytes)
        : der(bytes), code(Decode(der.data(), static_cast<uint32_t>(der.size()), &rec, &consumed))
    {
        EXPECT_EQ(rec == nullptr, code != VEXA_OK) << "a record exactly on success";
    }
    ~Held() { Free(rec); }
};
using HeldCert = Held<VexaX509Cert, VexaX509DecodeCert, VexaX509FreeCert>;
using HeldCrl = Held<VexaX509Crl, VexaX509DecodeCrl, VexaX509FreeCrl>;
using HeldCms = Held<VexaPkcs7Content, VexaPkcs7DecodeContent, VexaPkcs7FreeContent>;

/* n RDNs, or one RDN of n attributes */
std::string NameOf(int n, bool oneRdn)
{
    std::string name = "CN=first";
    for (int i = 1; i < n; i++) {
        name += (oneRdn ? "+OU=unit " : ",OU=unit ") + std::to_string(i);
    }
    return name;
}

/* Extensions, cA, key usage and the first purpose are pinned by the item
 * tests and the scenarios; here the certificate's own limits and rules. */
TEST(CertificateRecord, TakesOnlyWhatItsCapacitiesAndRulesAllow)
{
    testpki::Key ecKey(EVP_EC_gen("P-256"));
    ASSERT_NE(ecKey.get(), nullptr);
    /* name: RDNs, attributes of the first */
    const struct { const char *name; long version; std::string subject; EVP_PKEY *key; uint32_t code; uint32_t rdns,
                   attrs; } cases[] = {
        {"ten RDNs", 2, NameOf(10, false), nullptr, VEXA_OK, 10, 1},
        {"eleven RDNs", 2, NameOf(11, false), nullptr, VEXA_ERR_ASN_LIST, 0, 0},
        {"ten attributes in one RDN", 2, NameOf(10, true), nullptr, VEXA_OK, 1, 10},
        {"eleven attributes in one RDN", 2, NameOf(11, true), nullptr, VEXA_ERR_ASN_LIST, 0, 0},
        {"version 1 has no version field", 0, "CN=v1", nullptr, VEXA_ERR_ASN_SEQ, 0, 0},
        {"version 2", 1, "CN=v2", nullptr, VEXA_OK, 1, 1},
        {"an EC key is no RSAPublicKey", 2, "CN=ec", ecKey.get(), VEXA_ERR_ASN_TAG, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        testpki::CertSpec def;
        def.version = c.version;
        def.subject = c.subject;
        def.key = c.key;
        def.issuerKey = testpki::SharedKey(2048); /* the signature is always RSA */
        def.serial = 0x9A0001;                    /* high bit set: encoded with a sign octet */
        testpki::Cert made = testpki::MakeCert(def);
        const HeldCert h(testpki::Der(made.get()));
        ASSERT_EQ(h.code, c.code);
        if (c.code == VEXA_OK) {
            const VexaX509TbsCert &tbs = h.rec->tbsCertificate;
            EXPECT_EQ(tbs.subject.count, c.rdns);
            EXPECT_EQ(tbs.subject.rdns[0].count, c.attrs);
            EXPECT_EQ(View(tbs.serialNumber), (Bytes{0x9A, 0x00, 0x01}));
        }
    }
}

/* What the path checks read: an extension marked critical that nothing
 * processes, however TRUE is written, and the pathLenConstraint. */
TEST(CertificateRecord, RemembersUnprocessedCriticalExtensionsAndThePathLength)
{
    const Bytes marker = {0x06, 0x09, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x86, 0x8D, 0x1F, 0x01}; /* 1.3.6.1.4.1.99999.1 */
    const struct {
        const char *name;
        std::vector<std::pair<std::string, std::string>> extensions;
        uint8_t criticalOctet; /* written over the unknown extension's TRUE; 0: left as made */
        uint32_t unprocessedCritical;
        int64_t pathLen; /* -1: absent */
    } rows[] = {
        {"unknown, critical", {{"1.3.6.1.4.1.99999.1", "critical,DER:05:00"}}, 0, 1, -1},
        {"unknown, critical written as 0x01", {{"1.3.6.1.4.1.99999.1", "critical,DER:05:00"}}, 0x01, 1, -1},
        {"unknown, not critical", {{"1.3.6.1.4.1.99999.1", "DER:05:00"}}, 0, 0, -1},
        {"processed ones, critical", {{"subjectAltName", "critical,DNS:a.example"}, {"basicConstraints", "critical,CA:TRUE,pathlen:2"}}, 0, 0, 2},
        {"pathlen 0", {{"basicConstraints", "critical,CA:TRUE,pathlen:0"}}, 0, 0, 0},
    };
    for (const auto &r : rows) {
        testpki::CertSpec def;
        def.extensions = r.extensions;
        Bytes der = testpki::Der(testpki::MakeCert(def).get());
        if (r.criticalOctet != 0) {
            auto at = std::search(der.begin(), der.end(), marker.begin(), marker.end());
            ASSERT_NE(at, der.end()) << r.name;
            ASSERT_EQ(at[static_cast<long>(marker.size()) + 2], 0xFF) << r.name;
            at[static_cast<long>(marker.size()) + 2] = r.criticalOctet;
        }
        const HeldCert h(der);
        ASSERT_EQ(h.code, VEXA_OK) << r.name;
        const VexaX509Extensions &ext = h.rec->tbsCertificate.extensions;
        EXPECT_EQ(ext.unprocessedCritical, r.unprocessedCritical) << r.name;
        EXPECT_EQ(ext.pathLenConstraint.data != nullptr ? static_cast<int64_t>(ext.pathLenValue) : -1, r.pathLen)
            << r.name;
    }
}

TEST(CertificateRecord, OnlyAUniversalSequenceViewIsACertificate)
{
    const Bytes a = Fixture("pki/int.der");
    const uint32_t len = static_cast<uint32_t>(a.size());
    VexaX509Cert *cert = nullptr;
    uint32_t consumed = 0;
    /* a universal constructed SEQUENCE, then one field changed each */
    const VexaAsnOcts views[] = {{len, 0, 1, 16, a.data()}, {len, 2, 1, 16, a.data()}, {len, 0, 0, 16, a.data()},
                                 {len, 0, 1, 17, a.data()}};
    for (const VexaAsnOcts &v : views) {
        EXPECT_EQ(VexaX509DecodeCertFromOcts(&v, &cert, &consumed), &v == views ? VEXA_OK : VEXA_ERR_CERT_FORMAT);
        VexaX509FreeCert(cert);
        cert = nullptr;
    }
    EXPECT_EQ(VexaX509DecodeCert(nullptr, 10, &cert, &consumed), VEXA_ERR_PARAM);
}

/* 20 and 21 entries and a CRL without version run through operation 2 in the
 * scenario tests. */
TEST(CrlRecord, HoldsTheFieldsLibcryptoWroteAndRefusesAMissingNextUpdate)
{
    testpki::CertSpec rootDef;
    rootDef.subject = "C=XX,O=Example,CN=Example Root";
    testpki::Cert root = testpki::MakeCert(rootDef);
    constexpr int64_t kNext = 1719792000;
    /* reason of the first entry, the second's is 3 more; idp: indirectCRL,
     * onlyContainsUserCerts, onlyContainsCACerts as digits */
    const struct { const char *name; int revoked; int reason; int64_t nextUpdate; bool indirect; uint32_t code;
                   uint32_t idp; } cases[] = {
        {"two reasons and an IDP", 2, CRL_REASON_KEY_COMPROMISE, kNext, true, VEXA_OK, 110},
        {"entries without a reason", 2, -1, kNext, false, VEXA_OK, 0},
        {"nextUpdate as GeneralizedTime", 1, 1, 2840140800, false, VEXA_OK, 0},
        {"no nextUpdate, revoked list follows", 2, 1, 0, false, VEXA_ERR_ASN_OCTS_TAG, 0},
        {"no nextUpdate, extensions follow", 0, 1, 0, true, VEXA_ERR_ASN_OCTS_TAG, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        testpki::CrlSpec def;
        def.issuer = root.get();
        def.issuerKey = testpki::SharedKey(2048);
        def.nextUpdate = c.nextUpdate;
        /* high bit set, so the encoder adds a sign octet the decoder must drop */
        for (int i = 0; i < c.revoked; i++) {
            def.revoked.push_back({0x8000 + i, testpki::kT0 - 40 * testpki::kDay,
                                   c.reason < 0 ? -1 : c.reason + 3 * i});
        }
        def.indirect = def.onlyUserCerts = c.indirect;
        testpki::Crl made = testpki::MakeCrl(def);
        const HeldCrl h(testpki::Der(made.get()));
        ASSERT_EQ(h.code, c.code);
        if (c.code != VEXA_OK) {
            continue;
        }
        EXPECT_EQ(h.consumed, h.der.size());
        EXPECT_EQ(h.rec->tbsCertListRaw.data, h.der.data() + 4);
        const VexaX509TbsCrl &tbs = h.rec->tbsCertList;
        EXPECT_EQ(tbs.version, 1u);
        ASSERT_EQ(tbs.issuer.count, 3u);
        const Bytes cn = View(tbs.issuer.rdns[2].attrs[0].value);
        EXPECT_EQ(std::string(cn.begin(), cn.end()), "Example Root");
        EXPECT_EQ(Epoch(tbs.thisUpdate), def.thisUpdate);
        EXPECT_EQ(Epoch(tbs.nextUpdate), c.nextUpdate);
        ASSERT_EQ(tbs.revokedCertificates.count, static_cast<uint32_t>(c.revoked));
        for (uint32_t i = 0; i < tbs.revokedCertificates.count; i++) {
            const VexaX509RevokedEntry &e = tbs.revokedCertificates.entries[i];
            EXPECT_EQ(View(e.userCertificate), (Bytes{0x80, static_cast<uint8_t>(i)})) << "sign octet dropped";
            EXPECT_EQ(Epoch(e.revocationDate), testpki::kT0 - 40 * testpki::kDay);
            EXPECT_EQ(e.reasonCode, c.reason < 0 ? 0u : c.reason + 3 * i);
        }
        const VexaX509Idp &idp = tbs.crlExtensions.issuingDistributionPoint;
        EXPECT_EQ(idp.indirectCRL * 100 + idp.onlyContainsUserCerts * 10 + idp.onlyContainsCACerts, c.idp);
    }
}

class SignedDataDiagnostics : public logtest::Captured {};

TEST_F(SignedDataDiagnostics, RefusesSignerIdentifiersAndCertificatesItCannotUse)
{
    Bytes brokenCert = Fixture("sig/valid.der");
    Bytes keyIdSigner = brokenCert;
    {
        const HeldCms h(brokenCert);
        ASSERT_EQ(h.code, VEXA_OK);
        /* the first embedded certificate's [0] version wrapper becomes [1],
         * lengths unchanged, so only the certificate decode fails */
        const size_t cert = static_cast<size_t>(h.rec->content.certificates.certs[0].data - h.der.data());
        ASSERT_EQ(brokenCert.at(cert + 8), 0xA0);
        brokenCert[cert + 8] = 0xA1;
        /* the signer named by [0] subjectKeyIdentifier instead of issuer and
         * serial: the SEQUENCE after the SignerInfo's version turns [0] */
        const Bytes mark = {0x02, 0x01, 0x01, 0x30};
        const auto serial = h.der.begin() + (h.rec->content.signerInfos.signers[0].sid.serialNumber.data - h.der.data());
        const auto at = std::find_end(h.der.begin(), serial, mark.begin(), mark.end());
        ASSERT_NE(at, serial);
        keyIdSigner[static_cast<size_t>(at - h.der.begin()) + 3] = 0x80;
    }
    EXPECT_EQ(HeldCms(keyIdSigner).code, VEXA_ERR_CMS_DECODE);
    EXPECT_FALSE(logtest::HasRecord("InternalDecodeCert", VEXA_ERR_CMS_DECODE, ""));
    EXPECT_EQ(HeldCms(brokenCert).code, VEXA_ERR_CMS_DECODE);
    EXPECT_TRUE(logtest::HasRecord("InternalDecodeCert", VEXA_ERR_CMS_DECODE, ""));
}

TEST(TimestampRecord, OptionalTstInfoFieldsAreSteppedOver)
{
    using namespace dertest;
    const Bytes imprint(32, 0x5A);
    const Bytes sha256 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
    const Bytes tstInfo = Seq({
        Int({1}), Oid({0x2B, 0x06, 0x01, 0x04, 0x01}), Seq({Seq({Oid(sha256), Null()}), Octets(imprint)}),
        Int({0x12, 0x34}), Text(0x18, "20240601120000Z"),
        Seq({Int({1}), Tlv(0x80, {0x01, 0xF4})}),                                            /* accuracy */
        Bool(true),                                                                           /* ordering */
        Int({0x01, 0x23, 0x45, 0x67}),                                                        /* nonce */
        Explicit(0, Tlv(0xA4, Seq({Set({Seq({Oid({0x55, 0x04, 0x03}), Text(0x0C, "TSA")})})}))), /* tsa */
        Tlv(0xA1, Seq({Extension(OidSubjectKeyId(), Octets({1, 2}))})),                      /* extensions */
    });
    void *record = nullptr;
    uint32_t used = 0;
    ASSERT_EQ(VexaAsnDecodeItem(tstInfo.data(), static_cast<uint32_t>(tstInfo.size()), &g_itemVexaTimestampInfo, 0,
                                &record, &used),
              VEXA_OK);
    const VexaTimestampInfo tst = *static_cast<VexaTimestampInfo *>(record);
    VexaFree(record);
    EXPECT_EQ(used, tstInfo.size());
    EXPECT_EQ(View(tst.messageImprint.hashedMessage), imprint);
    EXPECT_EQ(Epoch(tst.genTime), 1717243200);
}

} // namespace
