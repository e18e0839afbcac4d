#include "tests/pki/pki_fixture.h"

namespace testpki {
namespace {

using Store = PkiTest;

TEST_F(Store, SeventeenthCertificateIsRefusedAndTheSixteenStay)
{
    std::vector<Cert> made;
    for (int i = 0; i < 17; i++) {
        CertSpec s;
        s.subject = "CN=C" + std::to_string(i);
        s.serial = i + 1;
        made.push_back(MakeCert(s));
    }
    for (int i = 0; i < 16; i++) {
        Add(made[i].get());
    }
    VexaX509Cert *last = Decode(made[16].get());
    EXPECT_EQ(VexaPkiAddCert(ctx_, last), VEXA_ERR_LIST_FULL);
    EXPECT_EQ(last->refCount, 1u) << "no reference taken on failure";
    EXPECT_EQ(ctx_->store->certs.count, 16u);
}

TEST_F(Store, SameSignatureValueIsTheSameCertificate)
{
    CertSpec s;
    s.subject = "CN=Dup";
    Cert c = MakeCert(s);
    VexaX509Cert *first = Add(c.get());
    EXPECT_EQ(first->refCount, 2u) << "the caller's reference and the store's";
    VexaX509Cert *again = Decode(c.get());
    EXPECT_EQ(VexaPkiAddCert(ctx_, again), VEXA_ERR_CERT_EXISTS);
    EXPECT_EQ(again->refCount, 1u);
    EXPECT_EQ(ctx_->store->certs.count, 1u);
}

TEST_F(Store, NamesCompareOnTheFirstAttributeOctetForOctet)
{
    const struct {
        const char *a;
        const char *b;
        bool equal;
    } cases[] = {
        {"C=XX,O=Org,CN=A", "C=XX,O=Org,CN=A", true},
        {"CN=A+OU=x", "CN=A+OU=y", true},          /* only the first attribute of an RDN counts */
        {"CN=A+OU=x", "CN=A", true},               /* nor how many attributes the RDN holds */
        {"CN=A", "CN=a", false},                   /* no case folding */
        {"CN=A", "CN/P=A", false},                 /* string type is part of the octets compared */
        {"O=Org,CN=A", "CN=A", false},             /* RDN count */
        {"O=Org,CN=A", "CN=A,O=Org", false},       /* order */
    };
    for (const auto &c : cases) {
        CertSpec sa;
        sa.subject = c.a;
        CertSpec sb;
        sb.subject = c.b;
        Cert ca = MakeCert(sa);
        Cert cb = MakeCert(sb);
        VexaX509Cert *xa = Decode(ca.get());
        VexaX509Cert *xb = Decode(cb.get());
        EXPECT_EQ(VexaX509NameCompare(&xa->tbsCertificate.subject, &xb->tbsCertificate.subject) == 0, c.equal)
            << c.a << " vs " << c.b;
    }
}

TEST_F(Store, CrlSignerNeedsCrlSignAndTheFirstAddedWins)
{
    EVP_PKEY *key = SharedKey(2048, 0);
    CertSpec noCrlSign;
    noCrlSign.subject = "CN=Issuer";
    noCrlSign.serial = 1;
    noCrlSign.ca = 1;
    noCrlSign.keyUsage = KU_KEY_CERT_SIGN;
    noCrlSign.key = key;
    Cert a = MakeCert(noCrlSign);
    CertSpec good = noCrlSign;
    good.serial = 2;
    good.keyUsage = KU_KEY_CERT_SIGN | KU_CRL_SIGN;
    Cert b = MakeCert(good);
    good.serial = 3;
    Cert c = MakeCert(good);
    Add(a.get());
    VexaX509Cert *sb = Add(b.get());
    Add(c.get());
    CrlSpec cs;
    cs.issuer = b.get();
    cs.issuerKey = key;
    Crl crl = MakeCrl(cs);
    VexaX509Crl *sc = Add(crl.get());
    EXPECT_EQ(VexaPkiFindCrlSigner(ctx_, sc), sb) << "a key that verifies is not enough without cRLSign";
}

TEST_F(Store, SignerLookupByIssuerAndSerial)
{
    CertSpec s;
    s.subject = "CN=Leaf";
    s.serial = 0x1234;
    Cert c = MakeCert(s);
    VexaX509Cert *stored = Add(c.get());
    const VexaX509Name *issuer = &stored->tbsCertificate.issuer;
    const VexaAsnOcts *serial = &stored->tbsCertificate.serialNumber;
    EXPECT_EQ(VexaPkiFindCertByIssuerSerial(ctx_, issuer, serial), stored);
    VexaAsnOcts empty = *serial;
    empty.len = 0;
    EXPECT_EQ(VexaPkiFindCertByIssuerSerial(ctx_, issuer, &empty), nullptr);
    VexaX509Name none = {};
    EXPECT_EQ(VexaPkiFindCertByIssuerSerial(ctx_, &none, serial), nullptr);
}

} // namespace
} // namespace testpki
