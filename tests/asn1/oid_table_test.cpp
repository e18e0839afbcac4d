#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/asn1/der_builder.h"
#include "vexa/vexa_asn1.h"

namespace {

using dertest::Bytes;

VexaAsnOcts View(const Bytes &b, uint32_t tagNumber = 6)
{
    VexaAsnOcts v{};
    v.len = static_cast<uint32_t>(b.size());
    v.tagNumber = tagNumber;
    v.data = b.data();
    return v;
}

TEST(OidTable, EveryRowIsDistinctAndFindsItself)
{
    ASSERT_EQ(g_krtOidCount, 24);
    std::set<int32_t> ids;
    std::set<std::string> names;
    for (int32_t i = 0; i < g_krtOidCount; i++) {
        const VexaOidEntry &row = g_krtOIDTable[i];
        EXPECT_TRUE(ids.insert(row.id).second) << row.name;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(row.oid.tagNumber, 6u) << row.name;
        EXPECT_EQ(row.oid.tagClass, 0u) << row.name;
        /* a copy at another address, so the lookup compares bytes */
        const Bytes copy(row.oid.data, row.oid.data + row.oid.len);
        const VexaAsnOcts view = View(copy);
        EXPECT_EQ(VexaOidGetId(&view), row.id) << row.name;
        EXPECT_EQ(VexaOidFindById(row.id), &row.oid) << row.name;
    }
    EXPECT_EQ(std::string(g_krtOIDTable[0].name), "AOID_UNKNOWN");
    EXPECT_EQ(g_krtOIDTable[23].id, AOID_PKCS9_AT_TIMESTAMP_TOKEN);
}

TEST(OidTable, MapsAlgorithmsToDigestIdsAndEverythingElseToZero)
{
    const Bytes rsaEncryption = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
    const Bytes sha1 = {0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const Bytes sha1Rsa = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x05};
    const Bytes sha256Rsa = dertest::OidSha256Rsa();
    const Bytes sha256RsaPrefix(sha256Rsa.begin(), sha256Rsa.end() - 1);
    const Bytes sha256RsaLonger = dertest::Cat({sha256Rsa, {0x01}});
    const Bytes sha384 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02};
    const Bytes sha512Rsa = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0D};
    const struct {
        const char *name;
        Bytes oid;
        int32_t id;
        uint32_t digest;
    } cases[] = {
        {"sha256WithRSAEncryption", sha256Rsa, AOID_SHA256WITHRSAENCRYPTION, 43},
        {"sha384", sha384, AOID_SHA384, 44},
        {"sha512WithRSAEncryption", sha512Rsa, AOID_SHA512WITHRSAENCRYPTION, 45},
        {"rsaEncryption is not known", rsaEncryption, AOID_UNKNOWN, 0},
        {"SHA-1 is not known", sha1, AOID_UNKNOWN, 0},
        {"sha1WithRSAEncryption is not known", sha1Rsa, AOID_UNKNOWN, 0},
        {"a prefix of a known identifier", sha256RsaPrefix, AOID_UNKNOWN, 0},
        {"a known identifier with one more octet", sha256RsaLonger, AOID_UNKNOWN, 0},
        {"code signing is no digest", dertest::OidCodeSigning(), AOID_KP_CODESIGNING, 0},
        {"the unknown row's own bytes", {0xFF}, AOID_UNKNOWN, 0},
    };
    for (const auto &c : cases) {
        const VexaAsnOcts view = View(c.oid);
        EXPECT_EQ(VexaOidGetId(&view), c.id) << c.name;
        EXPECT_EQ(VexaGetHashAlgFromOid(&view), c.digest) << c.name;
    }
    EXPECT_EQ(VexaOidGetId(nullptr), AOID_UNKNOWN);
    EXPECT_EQ(VexaGetHashAlgFromOid(nullptr), 0u);
    EXPECT_EQ(VexaOidFindById(999), nullptr);
    ASSERT_NE(VexaOidFindById(0), nullptr);
    EXPECT_EQ(VexaOidFindById(0)->len, 1u);
    EXPECT_EQ(VexaOidFindById(0)->data[0], 0xFF);
}

TEST(OidTable, ComparesViewsByLengthAndContentOnly)
{
    const Bytes a = {1, 2, 3};
    const Bytes b = {1, 2, 3};
    const Bytes c = {1, 2, 4};
    const Bytes shorter = {1, 2};
    const VexaAsnOcts va = View(a, 6);
    const VexaAsnOcts vb = View(b, 4);
    const VexaAsnOcts vc = View(c);
    const VexaAsnOcts vs = View(shorter);
    EXPECT_EQ(VexaAsnOctsCompare(&va, &vb), 0) << "tags are ignored";
    EXPECT_EQ(VexaAsnOctsCompare(&va, &va), 0);
    EXPECT_NE(VexaAsnOctsCompare(&va, &vc), 0);
    EXPECT_EQ(VexaAsnOctsCompare(&va, &vs), -1);
    EXPECT_EQ(VexaAsnOctsCompare(&va, nullptr), -1);
    EXPECT_EQ(VexaAsnOctsCompare(nullptr, &va), -1);
    const VexaAsnOcts empty1{};
    const VexaAsnOcts empty2{};
    EXPECT_EQ(VexaAsnOctsCompare(&empty1, &empty2), 0) << "two absent views are equal";
}

} // namespace
