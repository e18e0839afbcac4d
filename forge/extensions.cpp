// SPDX-License-Identifier: Apache-2.0
/* Any further extension of a certificate or CRL, given as NAME=VALUE in
 * libcrypto's configuration syntax: name constraints, policies,
 * distribution points, delta CRL indicators, or raw DER under any
 * identifier. Tests use them to build paths a verifier must refuse. */
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

uint32_t AddConfExtensions(const Args &args, X509 *issuer, X509 *cert, X509_CRL *crl)
{
    for (const std::string &spec : FindAllOpts(args, "ext")) {
        const size_t eq = spec.find('=');
        if (eq == std::string::npos || eq == 0 || eq + 1 == spec.size()) {
            Fail("--ext wants NAME=VALUE, not '%s'", spec.c_str());
            return kErrUsage;
        }
        const std::string name = spec.substr(0, eq);
        const std::string value = spec.substr(eq + 1);
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, issuer, cert, nullptr, crl, 0);
        X509_EXTENSION *ext = X509V3_EXT_nconf(nullptr, &ctx, name.c_str(), value.c_str());
        if (ext == nullptr) {
            ERR_clear_error();
            Fail("--ext '%s': libcrypto cannot make that extension", spec.c_str());
            return kErrUsage;
        }
        const int added = cert != nullptr ? X509_add_ext(cert, ext, -1) : X509_CRL_add_ext(crl, ext, -1);
        X509_EXTENSION_free(ext);
        if (added != 1) {
            return kErrCrypto;
        }
    }
    return kOk;
}

} // namespace forge
