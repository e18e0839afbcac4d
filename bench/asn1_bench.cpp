// SPDX-License-Identifier: Apache-2.0
/* Decoding cost per input kind, on the forge fixtures: the signer's
 * certificate, the root's CRL with 20 entries, and the valid image's
 * SignedData (two certificates and a time-stamp token). libcrypto's own parse
 * of the same bytes runs beside each for scale. */
#include <benchmark/benchmark.h>

#include <openssl/cms.h>
#include <openssl/x509.h>

#include "testdata.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"

namespace {

using bench::Bytes;

const Bytes &Certificate()
{
    static const Bytes der = bench::Load("pki/signer.der");
    return der;
}

const Bytes &Crl()
{
    static const Bytes der = bench::Load("crl/root_20_entries.crl");
    return der;
}

const Bytes &SignedData()
{
    static const Bytes der = bench::Load("sig/valid.der");
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
