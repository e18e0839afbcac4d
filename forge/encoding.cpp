// SPDX-License-Identifier: Apache-2.0
/* Files, PEM armour, and key and certificate loading: the pieces every
 * forge command shares (DER assembly, digests and signatures are in
 * der_build.cpp). */
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "forge.h"

namespace forge {

namespace {

struct FreeBio { void operator()(BIO *p) const { BIO_free(p); } };
using BioPtr = std::unique_ptr<BIO, FreeBio>;

BioPtr MemBio(const Bytes &data)
{
    return BioPtr(BIO_new_mem_buf(data.data(), static_cast<int>(data.size())));
}

} // namespace

void ReportCrypto(const char *what)
{
    unsigned long e = ERR_get_error();
    char text[256] = {0};
    if (e != 0) {
        ERR_error_string_n(e, text, sizeof(text));
    }
    Fail("%s failed%s%s", what, e != 0 ? ": " : "", text);
    ERR_clear_error();
}

/* ---- files ------------------------------------------------------------ */

uint32_t ReadFile(const std::string &path, Bytes *out)
{
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        Fail("cannot open %s", path.c_str());
        return kErrIo;
    }
    out->clear();
    uint8_t chunk[65536];
    size_t n = 0;
    while ((n = fread(chunk, 1, sizeof(chunk), f)) > 0) {
        out->insert(out->end(), chunk, chunk + n);
    }
    bool bad = ferror(f) != 0;
    fclose(f);
    if (bad) {
        Fail("cannot read %s", path.c_str());
        return kErrIo;
    }
    return kOk;
}

uint32_t WriteFile(const std::string &path, const Bytes &data)
{
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) {
        Fail("cannot create %s", path.c_str());
        return kErrIo;
    }
    size_t n = data.empty() ? 0 : fwrite(data.data(), 1, data.size(), f);
    bool bad = n != data.size();
    if (fclose(f) != 0) {
        bad = true;
    }
    if (bad) {
        Fail("cannot write %s", path.c_str());
        return kErrIo;
    }
    return kOk;
}

/* ---- PEM -------------------------------------------------------------- */

Bytes PemArmour(const char *label, const Bytes &der)
{
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text = std::string("-----BEGIN ") + label + "-----\n";
    std::string line;
    for (size_t i = 0; i < der.size(); i += 3) {
        uint32_t n = static_cast<uint32_t>(der[i]) << 16;
        size_t left = der.size() - i;
        if (left > 1) {
            n |= static_cast<uint32_t>(der[i + 1]) << 8;
        }
        if (left > 2) {
            n |= der[i + 2];
        }
        line += kAlphabet[(n >> 18) & 63];
        line += kAlphabet[(n >> 12) & 63];
        line += left > 1 ? kAlphabet[(n >> 6) & 63] : '=';
        line += left > 2 ? kAlphabet[n & 63] : '=';
        if (line.size() == 64) {
            text += line + "\n";
            line.clear();
        }
    }
    if (!line.empty()) {
        text += line + "\n";
    }
    text += std::string("-----END ") + label + "-----\n";
    return Bytes(text.begin(), text.end());
}

bool LooksLikePem(const Bytes &data)
{
    static const char kBegin[] = "-----BEGIN ";
    const size_t n = sizeof(kBegin) - 1;
    return std::search(data.begin(), data.end(), kBegin, kBegin + n) != data.end();
}

uint32_t PemBlocks(const Bytes &text, std::vector<PemBlock> *out)
{
    BioPtr bio = MemBio(text);
    if (!bio) {
        ReportCrypto("BIO_new_mem_buf");
        return kErrCrypto;
    }
    for (;;) {
        char *name = nullptr;
        char *header = nullptr;
        unsigned char *data = nullptr;
        long len = 0;
        if (PEM_read_bio(bio.get(), &name, &header, &data, &len) != 1) {
            ERR_clear_error(); /* end of the text */
            break;
        }
        out->push_back(PemBlock{name, Bytes(data, data + len)});
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    return kOk;
}

/* ---- keys and certificates -------------------------------------------- */

uint32_t LoadPrivateKey(const std::string &path, PkeyPtr *out)
{
    if (IsPkcs11Uri(path)) {
        return LoadPkcs11Key(path, out);
    }
    Bytes data;
    uint32_t rc = ReadFile(path, &data);
    if (rc != kOk) {
        return rc;
    }
    BioPtr bio = MemBio(data);
    out->reset(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!*out) {
        ReportCrypto(("reading the private key " + path).c_str());
        return kErrInput;
    }
    return kOk;
}

uint32_t LoadAnyKey(const std::string &path, PkeyPtr *out)
{
    if (IsPkcs11Uri(path)) {
        return LoadPkcs11Key(path, out);
    }
    Bytes data;
    uint32_t rc = ReadFile(path, &data);
    if (rc != kOk) {
        return rc;
    }
    BioPtr bio = MemBio(data);
    out->reset(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!*out) {
        ERR_clear_error();
        bio = MemBio(data);
        out->reset(bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    }
    if (!*out) {
        ReportCrypto(("reading the key " + path).c_str());
        return kErrInput;
    }
    return kOk;
}

uint32_t LoadCert(const std::string &path, X509Ptr *out)
{
    Bytes data;
    uint32_t rc = ReadFile(path, &data);
    if (rc != kOk) {
        return rc;
    }
    if (LooksLikePem(data)) {
        BioPtr bio = MemBio(data);
        out->reset(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    } else {
        const unsigned char *p = data.data();
        out->reset(d2i_X509(nullptr, &p, static_cast<long>(data.size())));
    }
    if (!*out) {
        ReportCrypto(("reading the certificate " + path).c_str());
        return kErrInput;
    }
    return kOk;
}

uint32_t CertDer(X509 *cert, Bytes *out)
{
    unsigned char *der = nullptr;
    int len = i2d_X509(cert, &der);
    if (len <= 0) {
        ReportCrypto("i2d_X509");
        return kErrCrypto;
    }
    out->assign(der, der + len);
    OPENSSL_free(der);
    return kOk;
}

uint32_t CrlDer(X509_CRL *crl, Bytes *out)
{
    unsigned char *der = nullptr;
    int len = i2d_X509_CRL(crl, &der);
    if (len <= 0) {
        ReportCrypto("i2d_X509_CRL");
        return kErrCrypto;
    }
    out->assign(der, der + len);
    OPENSSL_free(der);
    return kOk;
}

uint32_t WriteForm(const std::string &path, const std::string *form, const char *pemLabel,
                   const Bytes &der)
{
    if (form == nullptr || *form == "der") {
        return WriteFile(path, der);
    }
    if (*form == "pem") {
        return WriteFile(path, PemArmour(pemLabel, der));
    }
    Fail("--form must be der or pem, not '%s'", form->c_str());
    return kErrUsage;
}

const EVP_MD *DigestByName(const std::string &name)
{
    if (name == "sha1") {
        return EVP_sha1();
    }
    if (name == "sha256") {
        return EVP_sha256();
    }
    if (name == "sha384") {
        return EVP_sha384();
    }
    if (name == "sha512") {
        return EVP_sha512();
    }
    Fail("unknown digest '%s' (sha1, sha256, sha384, sha512)", name.c_str());
    return nullptr;
}

const char *DigestOid(const EVP_MD *md)
{
    switch (EVP_MD_get_type(md)) {
    case NID_sha1:
        return "1.3.14.3.2.26";
    case NID_sha256:
        return "2.16.840.1.101.3.4.2.1";
    case NID_sha384:
        return "2.16.840.1.101.3.4.2.2";
    case NID_sha512:
        return "2.16.840.1.101.3.4.2.3";
    default:
        return nullptr;
    }
}

bool IsTimeText(const std::string &text)
{
    size_t digits = text.size() - 1;
    if (text.size() < 2 || text.back() != 'Z' || (digits != 12 && digits != 14)) {
        return false;
    }
    for (size_t i = 0; i < digits; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
    }
    /* Let libcrypto judge the calendar fields. */
    ASN1_TIME *t = ASN1_TIME_new();
    bool ok = t != nullptr && ASN1_TIME_set_string(t, text.c_str()) == 1 &&
              ASN1_TIME_check(t) == 1;
    ASN1_TIME_free(t);
    ERR_clear_error();
    return ok;
}

uint32_t ParseSerial(const std::string &text, Bytes *asn1IntegerDer)
{
    BIGNUM *bn = nullptr;
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::string digits = hex ? text.substr(2) : text;
    int used = digits.empty() ? 0
               : hex         ? BN_hex2bn(&bn, digits.c_str())
                             : BN_dec2bn(&bn, digits.c_str());
    if (used <= 0 || static_cast<size_t>(used) != digits.size()) {
        BN_free(bn);
        Fail("not a serial number: '%s'", text.c_str());
        return kErrUsage;
    }
    ASN1_INTEGER *ai = BN_to_ASN1_INTEGER(bn, nullptr);
    BN_free(bn);
    unsigned char *der = nullptr;
    int len = ai != nullptr ? i2d_ASN1_INTEGER(ai, &der) : -1;
    ASN1_INTEGER_free(ai);
    if (len <= 0) {
        ReportCrypto("encoding a serial number");
        return kErrCrypto;
    }
    asn1IntegerDer->assign(der, der + len);
    OPENSSL_free(der);
    return kOk;
}

} // namespace forge
