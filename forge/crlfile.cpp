// SPDX-License-Identifier: Apache-2.0
/* forge crlfile: the CRL file a device reads, from CRLs and certificates
 * in DER or PEM, in the order given. */
#include <string.h>

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

namespace {

const OptSpec kCrlFileOpts[] = {
    {"form", "der|pem", "der concatenates the DER encodings, pem writes "
                        "\"X509 CRL\" and \"CERTIFICATE\" blocks (default der)"},
    {"trailing-zeros", "N", "append N zero bytes (DER form only)"},
    {"out", "FILE", "where to write the CRL file"},
};

/* One input element: certificate or CRL, as DER. */
struct FileItem {
    bool isCrl;
    Bytes der;
};

uint32_t ClassifyDer(const Bytes &der, const std::string &path, FileItem *out)
{
    const unsigned char *p = der.data();
    X509 *cert = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
    if (cert != nullptr && p == der.data() + der.size()) {
        X509_free(cert);
        *out = FileItem{false, der};
        return kOk;
    }
    X509_free(cert);
    ERR_clear_error();
    p = der.data();
    X509_CRL *crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size()));
    bool whole = crl != nullptr && p == der.data() + der.size();
    X509_CRL_free(crl);
    ERR_clear_error();
    if (!whole) {
        /* Deliberately malformed CRLs (no nextUpdate, no version) still
         * parse here; anything else is not a CRL file member. */
        Fail("%s is neither one certificate nor one CRL", path.c_str());
        return kErrInput;
    }
    *out = FileItem{true, der};
    return kOk;
}

uint32_t CollectItems(const std::string &path, std::vector<FileItem> *items)
{
    Bytes data;
    uint32_t rc = ReadFile(path, &data);
    if (rc != kOk) {
        return rc;
    }
    if (!LooksLikePem(data)) {
        /* DER input may itself be a CRL file: walk its elements. */
        size_t at = 0;
        while (at < data.size()) {
            const unsigned char *p = data.data() + at;
            long len = 0;
            int tag = 0, cls = 0;
            int flags = ASN1_get_object(&p, &len, &tag, &cls, static_cast<long>(data.size() - at));
            if ((flags & 0x80) != 0 || flags == 0x21) { /* error, or indefinite length */
                ERR_clear_error();
                Fail("%s: no DER element at offset %zu", path.c_str(), at);
                return kErrInput;
            }
            size_t end = static_cast<size_t>(p - data.data()) + static_cast<size_t>(len);
            FileItem item;
            rc = ClassifyDer(Bytes(data.begin() + static_cast<long>(at), data.begin() + static_cast<long>(end)),
                             path, &item);
            if (rc != kOk) {
                return rc;
            }
            items->push_back(item);
            at = end;
        }
        return kOk;
    }
    std::vector<PemBlock> blocks;
    rc = PemBlocks(data, &blocks);
    if (rc != kOk) {
        return rc;
    }
    for (const PemBlock &b : blocks) {
        if (b.label == "X509 CRL") {
            items->push_back(FileItem{true, b.der});
        } else if (b.label == "CERTIFICATE") {
            items->push_back(FileItem{false, b.der});
        } else {
            Fail("%s: PEM block '%s' is neither a certificate nor a CRL", path.c_str(),
                 b.label.c_str());
            return kErrInput;
        }
    }
    return kOk;
}

} // namespace

uint32_t RunCrlFile(const Args &args)
{
    const std::string *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "out", &outPath);
    if (rc != kOk) {
        return rc;
    }
    if (args.positional.empty()) {
        Fail("crlfile: name the CRLs and certificates to put in the file");
        return kErrUsage;
    }
    const std::string *form = FindOpt(args, "form");
    bool pem = form != nullptr && *form == "pem";
    if (form != nullptr && !pem && *form != "der") {
        Fail("--form must be der or pem");
        return kErrUsage;
    }
    uint32_t zeros = 0;
    if (const std::string *z = FindOpt(args, "trailing-zeros")) {
        rc = ParseU32(*z, &zeros);
        if (rc != kOk) {
            return rc;
        }
        if (pem) {
            Fail("--trailing-zeros applies to the DER form only");
            return kErrUsage;
        }
    }
    std::vector<FileItem> items;
    for (const std::string &path : args.positional) {
        rc = CollectItems(path, &items);
        if (rc != kOk) {
            return rc;
        }
    }
    Bytes out;
    for (const FileItem &item : items) {
        Bytes part = pem ? PemArmour(item.isCrl ? "X509 CRL" : "CERTIFICATE", item.der) : item.der;
        out.insert(out.end(), part.begin(), part.end());
    }
    out.insert(out.end(), zeros, 0);
    return WriteFile(*outPath, out);
}

const Command kCrlFileCommand = {
    "crlfile",
    "[--form der|pem] --out FILE INPUT...",
    "Makes a CRL file from CRLs and certificates (each INPUT DER, or PEM with any number of\n"
    "blocks), keeping their order.",
    kCrlFileOpts,
    sizeof(kCrlFileOpts) / sizeof(kCrlFileOpts[0]),
    RunCrlFile,
};

} // namespace forge
