// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/asn1/der_builder.h"
#include "vexa/vexa_asn1.h"

namespace {

using dertest::Bytes;

VexaAsnOcts View(const Bytes &b, uint32_t tagNumber = 6)
{
    return VexaAsnOcts{static_cast<uint32_t>(b.size()), 0, 0, tagNumber, b.data()};
}

TEST(OidTable, EveryRowIsDistinctAndFindsItself)
{
    std::set<int32_t> ids;
    for (int32_t i = 0; i < g_krtOidCount; i++) {
        const VexaOidEntry &row = g_krtOIDTable[i];
        EXPECT_TRUE(ids.insert(row.id).second) << row.name;
        /* a copy at another address, so the lookup compares bytes */
        const Bytes copy(row.oid.data, row.oid.data + row.oid.len);
        const VexaAsnOcts view = View(copy);
        EXPECT_EQ(VexaOidGetId(&view), row.id) << row.name;
        EXPECT_EQ(VexaOidFindById(row.id), &row.oid) << row.name;
    }
    EXPECT_EQ(VexaOidFindById(999), nullptr);
}

TEST(OidTable, MapsAlgorithmsToDigestIdsAndEverythingElseToZero)
{
    const Bytes sha256Rsa = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B};
    const struct { const char *name; Bytes oid; int32_t id; uint32_t digest; } cases[] = {
        {"sha384", {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02}, AOID_SHA384, 44},
        {"sha512WithRSAEncryption", {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 1, 0x0D}, AOID_SHA512WITHRSAENCRYPTION, 45},
        {"sha1WithRSAEncryption is not known", {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 1, 5}, AOID_UNKNOWN, 0},
        {"a prefix of a known identifier", Bytes(sha256Rsa.begin(), sha256Rsa.end() - 1), AOID_UNKNOWN, 0},
        {"a known identifier with one more octet", dertest::Cat({sha256Rsa, {0x01}}), AOID_UNKNOWN, 0},
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
}

TEST(OidTable, ComparesViewsByLengthAndContentOnly)
{
    const Bytes a = {1, 2, 3}, b = {1, 2, 3}, c = {1, 2, 4}, d = {1, 2};
    const VexaAsnOcts va = View(a, 6), vb = View(b, 4), vc = View(c), shorter = View(d), absent{};
    EXPECT_EQ(VexaAsnOctsCompare(&va, &vb), 0) << "tags are ignored";
    EXPECT_NE(VexaAsnOctsCompare(&va, &vc), 0);
    EXPECT_EQ(VexaAsnOctsCompare(&va, &shorter), -1);
    EXPECT_EQ(VexaAsnOctsCompare(&va, nullptr), -1);
    EXPECT_EQ(VexaAsnOctsCompare(&absent, &absent), 0) << "two absent views are equal";
}

} // namespace
