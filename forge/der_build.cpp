// SPDX-License-Identifier: Apache-2.0
/* DER assembly, digests and RSA signatures for the structures forge
 * builds by hand. */
#include <string.h>

#include <algorithm>

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include "forge.h"

namespace forge {

/* ---- DER -------------------------------------------------------------- */

void DerAppendHeader(Bytes &out, uint8_t tag, size_t len)
{
    out.push_back(tag);
    DerAppendLength(out, len);
}

void DerAppendLength(Bytes &out, size_t len)
{
    if (len < 0x80) {
        out.push_back(static_cast<uint8_t>(len));
        return;
    }
    uint8_t octets[sizeof(size_t)];
    size_t n = 0;
    for (size_t v = len; v != 0; v >>= 8) {
        octets[n++] = static_cast<uint8_t>(v & 0xFF);
    }
    out.push_back(static_cast<uint8_t>(0x80 | n));
    while (n > 0) {
        out.push_back(octets[--n]);
    }
}

Bytes DerTlv(uint8_t tag, const Bytes &content)
{
    Bytes out;
    out.reserve(content.size() + 6);
    DerAppendHeader(out, tag, content.size());
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes DerCat(std::initializer_list<const Bytes *> parts)
{
    Bytes out;
    for (const Bytes *p : parts) {
        out.insert(out.end(), p->begin(), p->end());
    }
    return out;
}

Bytes DerOid(const char *dotted)
{
    Bytes out;
    ASN1_OBJECT *obj = OBJ_txt2obj(dotted, 1);
    unsigned char *der = nullptr;
    int len = obj != nullptr ? i2d_ASN1_OBJECT(obj, &der) : -1;
    if (len > 0) {
        out.assign(der, der + len);
    }
    OPENSSL_free(der);
    ASN1_OBJECT_free(obj);
    return out; /* the callers pass literals; an empty result shows up at once */
}

Bytes DerUint(uint64_t value)
{
    Bytes content;
    for (int shift = 56; shift >= 0; shift -= 8) {
        uint8_t b = static_cast<uint8_t>(value >> shift);
        if (content.empty() && b == 0 && shift != 0) {
            continue;
        }
        if (content.empty() && (b & 0x80) != 0) {
            content.push_back(0); /* stay positive */
        }
        content.push_back(b);
    }
    return DerTlv(kTagInteger, content);
}

Bytes DerNull()
{
    return Bytes{0x05, 0x00};
}

Bytes DerOctets(const Bytes &content)
{
    return DerTlv(kTagOctets, content);
}

Bytes DerTime(const std::string &text)
{
    uint8_t tag = text.size() == 13 ? 0x17 : 0x18;
    return DerTlv(tag, Bytes(text.begin(), text.end()));
}

Bytes DerSetOf(std::vector<Bytes> members)
{
    /* X.690: compare as octet strings, the shorter padded with zeros. */
    std::sort(members.begin(), members.end(), [](const Bytes &a, const Bytes &b) {
        size_t n = std::max(a.size(), b.size());
        for (size_t i = 0; i < n; ++i) {
            uint8_t x = i < a.size() ? a[i] : 0;
            uint8_t y = i < b.size() ? b[i] : 0;
            if (x != y) {
                return x < y;
            }
        }
        return false;
    });
    Bytes content;
    for (const Bytes &m : members) {
        content.insert(content.end(), m.begin(), m.end());
    }
    return DerTlv(kTagSet, content);
}

Bytes AlgId(const char *oid, bool nullParams)
{
    Bytes o = DerOid(oid);
    if (nullParams) {
        Bytes n = DerNull();
        return DerTlv(kTagSequence, DerCat({&o, &n}));
    }
    return DerTlv(kTagSequence, o);
}

/* ---- digests and signatures ------------------------------------------- */

uint32_t Digest(const EVP_MD *md, const uint8_t *data, size_t len, Bytes *out)
{
    unsigned char buf[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    if (EVP_Digest(data, len, buf, &n, md, nullptr) != 1) {
        ReportCrypto("EVP_Digest");
        return kErrCrypto;
    }
    out->assign(buf, buf + n);
    return kOk;
}

uint32_t RsaSign(EVP_PKEY *key, const EVP_MD *md, const Bytes &data, Bytes *sig)
{
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    size_t len = 0;
    bool ok = ctx != nullptr && EVP_DigestSignInit(ctx, nullptr, md, nullptr, key) == 1 &&
              EVP_DigestSign(ctx, nullptr, &len, data.data(), data.size()) == 1;
    if (ok) {
        sig->resize(len);
        ok = EVP_DigestSign(ctx, sig->data(), &len, data.data(), data.size()) == 1;
        sig->resize(len);
    }
    EVP_MD_CTX_free(ctx);
    if (!ok) {
        ReportCrypto("RSA signature");
        return kErrCrypto;
    }
    return kOk;
}

} // namespace forge
