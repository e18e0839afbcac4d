#include "tests/pki/pki_fixture.h"

namespace testpki {
namespace {

using PathBuild = PkiTest;

/* A chain root <- ca1 <- ... <- ca(n-1) <- leaf of n certificates. */
std::vector<Cert> Chain(int n)
{
    std::vector<Cert> chain;
    chain.push_back(CaCert("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0)));
    for (int i = 1; i < n; i++) {
        chain.push_back(CaCert("CN=CA" + std::to_string(i), i + 1, chain.back().get(), SharedKey(2048, (i - 1) % 2),
                               SharedKey(2048, i % 2)));
    }
    return chain;
}

TEST_F(PathBuild, RootSearchStopsAtElevenCertificates)
{
    for (int n : {11, 12}) {
        SCOPED_TRACE(n);
        TearDown();
        SetUp();
        std::vector<Cert> chain = Chain(n);
        std::vector<VexaX509Cert *> stored;
        for (auto &c : chain) {
            stored.push_back(Add(c.get()));
        }
        VexaX509Cert *root = InternalFindCertRoot(ctx_, stored.back(), 0);
        EXPECT_EQ(root, n == 11 ? stored.front() : nullptr);
    }
}

TEST_F(PathBuild, CertificatesThatIssuedEachOtherEndAtTheDepthLimit)
{
    /* A and B share names crosswise; neither is self-signed. */
    Cert a = CaCert("CN=A", 1, nullptr, nullptr, SharedKey(2048, 0));
    CertSpec bs;
    bs.subject = "CN=B";
    bs.ca = 1;
    bs.keyUsage = KU_KEY_CERT_SIGN;
    bs.key = SharedKey(2048, 1);
    bs.issuer = a.get();
    bs.issuerKey = SharedKey(2048, 0);
    Cert b = MakeCert(bs);
    CertSpec as;
    as.subject = "CN=A";
    as.ca = 1;
    as.keyUsage = KU_KEY_CERT_SIGN;
    as.key = SharedKey(2048, 0);
    as.issuer = b.get();
    as.issuerKey = SharedKey(2048, 1);
    Cert a2 = MakeCert(as);
    VexaX509Cert *sa = Add(a2.get());
    Add(b.get());
    EXPECT_EQ(InternalFindCertRoot(ctx_, sa, 0), nullptr);
}

TEST_F(PathBuild, IssuerMustBeACaWithKeyCertSign)
{
    Cert root = CaCert("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
    const struct {
        const char *fault;
        int ca;
        int keyUsage;
        bool accepted;
    } cases[] = {
        {"CA with keyCertSign", 1, KU_KEY_CERT_SIGN, true},
        {"not marked CA", 0, KU_KEY_CERT_SIGN, false},
        {"no basicConstraints", -1, KU_KEY_CERT_SIGN, false},
        {"CA without keyCertSign", 1, KU_CRL_SIGN, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fault);
        TearDown();
        SetUp();
        CertSpec is;
        is.subject = "CN=Issuer";
        is.ca = c.ca;
        is.keyUsage = c.keyUsage;
        is.key = SharedKey(2048, 1);
        is.issuer = root.get();
        is.issuerKey = SharedKey(2048, 0);
        Cert issuer = MakeCert(is);
        CertSpec ls;
        ls.subject = "CN=Leaf";
        ls.key = SharedKey(2048, 0);
        ls.issuer = issuer.get();
        ls.issuerKey = SharedKey(2048, 1);
        Cert leaf = MakeCert(ls);
        VexaX509Cert *sIssuer = Add(issuer.get());
        VexaX509Cert *sLeaf = Add(leaf.get());
        EXPECT_EQ(InternalFindIssuer(ctx_, sLeaf), c.accepted ? sIssuer : nullptr);
    }
}

TEST_F(PathBuild, SelfSignedNeedsItsOwnSignatureButNoKeyUsage)
{
    CertSpec s;
    s.subject = "CN=Self";
    s.keyUsage = KU_DIGITAL_SIGNATURE;
    s.key = SharedKey(2048, 0);
    Cert self = MakeCert(s);
    VexaX509Cert *good = Decode(self.get());
    uint32_t flag = 0;
    EXPECT_EQ(InternalCheckSelfSigned(good, &flag), VEXA_OK);
    EXPECT_EQ(flag, 1u);
    EXPECT_EQ(good->verifiedIssuer, good);

    /* same names, signed by another key: not self-signed */
    s.issuerKey = SharedKey(2048, 1);
    Cert forged = MakeCert(s);
    VexaX509Cert *bad = Decode(forged.get());
    EXPECT_EQ(InternalCheckSelfSigned(bad, &flag), VEXA_OK);
    EXPECT_EQ(flag, 0u);
    EXPECT_EQ(bad->verifiedIssuer, nullptr);
    EXPECT_EQ(InternalCheckSelfSigned(nullptr, &flag), VEXA_ERR_PARAM);
}

TEST_F(PathBuild, AVerifiedIssuerIsNeverReplaced)
{
    Cert rootA = CaCert("CN=Root", 1, nullptr, nullptr, SharedKey(2048, 0));
    Cert rootB = CaCert("CN=Root", 2, nullptr, nullptr, SharedKey(2048, 0)); /* same key and name */
    CertSpec ls;
    ls.subject = "CN=Leaf";
    ls.issuer = rootA.get();
    ls.issuerKey = SharedKey(2048, 0);
    Cert leaf = MakeCert(ls);
    VexaX509Cert *a = Add(rootA.get());
    VexaX509Cert *b = Add(rootB.get());
    VexaX509Cert *l = Decode(leaf.get());
    EXPECT_EQ(InternalCheckIssuer(l, a), 0);
    EXPECT_EQ(InternalCheckIssuer(l, b), static_cast<int32_t>(VEXA_ERR_ISSUER_SIGNATURE))
        << "B's key would verify, but A was proven first";
}

} // namespace
} // namespace testpki
