/* Decoding cost per input kind. The inputs are made once with libcrypto;
 * libcrypto's own parse of the same bytes runs beside each for scale. */
#include <benchmark/benchmark.h>

#include "tests/asn1/pki_maker.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"

namespace {

using pkitest::Bytes;

const Bytes &Certificate()
{
    static const Bytes der = [] {
        pkitest::CertSpec def;
        def.extensions = {{"basicConstraints", "critical,CA:TRUE"},
                           {"keyUsage", "critical,keyCertSign,cRLSign"},
                           {"subjectKeyIdentifier", "hash"},
                           {"authorityKeyIdentifier", "keyid"},
                           {"extendedKeyUsage", "codeSigning"}};
        return pkitest::MakeCert(def);
    }();
    return der;
}

const Bytes &Crl()
{
    static const Bytes der = [] {
        pkitest::CrlSpec def;
        def.revoked = 20;
        def.indirect = true;
        return pkitest::MakeCrl(def);
    }();
    return der;
}

const Bytes &SignedData()
{
    static const Bytes der = [] {
        pkitest::CmsSpec def;
        def.timeStampToken = pkitest::MakeToken(1717243200).der;
        return pkitest::MakeCms(def);
    }();
    return der;
}

void BM_DecodeCertificate(benchmark::State &state)
{
    const Bytes &der = Certificate();
    for (auto _ : state) {
        VexaX509Cert *cert = nullptr;
        uint32_t used = 0;
        if (VexaX509DecodeCert(der.data(), static_cast<uint32_t>(der.size()), &cert, &used) != VEXA_OK) {
            state.SkipWithError("certificate did not decode");
            break;
        }
        benchmark::DoNotOptimize(cert);
        VexaX509FreeCert(cert);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(der.size()));
}
BENCHMARK(BM_DecodeCertificate);

void BM_DecodeCrl20Entries(benchmark::State &state)
{
    const Bytes &der = Crl();
    for (auto _ : state) {
        VexaX509Crl *crl = nullptr;
        uint32_t used = 0;
        if (VexaX509DecodeCrl(der.data(), static_cast<uint32_t>(der.size()), &crl, &used) != VEXA_OK) {
            state.SkipWithError("CRL did not decode");
            break;
        }
        benchmark::DoNotOptimize(crl);
        VexaX509FreeCrl(crl);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(der.size()));
}
BENCHMARK(BM_DecodeCrl20Entries);

void BM_DecodeSignedDataWithToken(benchmark::State &state)
{
    const Bytes &der = SignedData();
    for (auto _ : state) {
        VexaPkcs7Content *content = nullptr;
        uint32_t used = 0;
        if (VexaPkcs7DecodeContent(der.data(), static_cast<uint32_t>(der.size()), &content, &used) != VEXA_OK) {
            state.SkipWithError("SignedData did not decode");
            break;
        }
        benchmark::DoNotOptimize(content);
        VexaPkcs7FreeContent(content);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(der.size()));
}
BENCHMARK(BM_DecodeSignedDataWithToken);

void BM_LibcryptoCertificate(benchmark::State &state)
{
    const Bytes &der = Certificate();
    for (auto _ : state) {
        const unsigned char *p = der.data();
        X509 *x = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
        benchmark::DoNotOptimize(x);
        X509_free(x);
    }
}
BENCHMARK(BM_LibcryptoCertificate);

void BM_LibcryptoCrl20Entries(benchmark::State &state)
{
    const Bytes &der = Crl();
    for (auto _ : state) {
        const unsigned char *p = der.data();
        X509_CRL *crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size()));
        benchmark::DoNotOptimize(crl);
        X509_CRL_free(crl);
    }
}
BENCHMARK(BM_LibcryptoCrl20Entries);

void BM_LibcryptoSignedDataWithToken(benchmark::State &state)
{
    const Bytes &der = SignedData();
    for (auto _ : state) {
        const unsigned char *p = der.data();
        CMS_ContentInfo *cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.size()));
        benchmark::DoNotOptimize(cms);
        CMS_ContentInfo_free(cms);
    }
}
BENCHMARK(BM_LibcryptoSignedDataWithToken);

} // namespace

BENCHMARK_MAIN();
