// SPDX-License-Identifier: Apache-2.0
/* forge inspect --crl FILE --root FILE: the verification of checktool 3,
 * run in process through the vexa library with the given root in place of
 * the built-in one, and its verdict explained: the result code with its
 * name, the exit status checktool 3 gives, the library's diagnostics inside
 * out (through the public observer), and the failing rule in plain words
 * with the certificate and CRL concerned, judged at the token's genTime. */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include <nlohmann/json.hpp>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "forge.h"
#include "inspect.h"
#include "vexa/vexa_log.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_verify.h"

namespace {

std::vector<std::string> &ServiceLines()
{
    static std::vector<std::string> lines;
    return lines;
}

} // namespace

/* The library's services report into the device's operation log; forge
 * keeps those lines for the report instead of writing any log. */
extern "C" void get_time_str(uint32_t size, char *buf)
{
    if (buf != nullptr && size != 0) {
        buf[0] = '\0';
    }
}

extern "C" void write_log(const char *format, ...)
{
    char line[1024];
    va_list ap;
    va_start(ap, format);
    vsnprintf(line, sizeof(line), format, ap);
    va_end(ap);
    const char *text = strstr(line, "CHECK_TOOL: ");
    std::string message = text != nullptr ? text + strlen("CHECK_TOOL: ") : line;
    while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
        message.pop_back();
    }
    ServiceLines().push_back(message);
}

namespace forge {

namespace {


struct CodeName {
    const char *name;
    uint32_t value;
};

constexpr CodeName kCodeNames[] = {
#include "result_names.inc"
};

const char *NameOf(uint32_t code)
{
    for (const CodeName &c : kCodeNames) {
        if (c.value == code) {
            return c.name;
        }
    }
    return "unknown";
}

/* What each refusal means for a device maker. */
constexpr struct {
    uint32_t code;
    const char *rule;
} kRules[] = {
    {VEXA_ERR_REVOKED, "a certificate of a path is revoked by the CRL chosen for it"},
    {VEXA_ERR_NOT_YET_VALID, "a certificate of a path was not yet valid at genTime"},
    {VEXA_ERR_EXPIRED, "a certificate of a path had expired at genTime"},
    {VEXA_ERR_NO_CRL, "no CRL of the CRL file qualifies for a certificate of a path (issuer, current at genTime)"},
    {VEXA_ERR_NO_ROOT, "no issuer in the store verifies a certificate of a path, up to the root"},
    {VEXA_ERR_KEY_USAGE, "a key usage or the first extended key usage is not the one its role needs"},
    {VEXA_ERR_CMS_FORMAT, "the signature block does not decode as the DER CMS SignedData checktool reads"},
    {VEXA_ERR_CMS_SIGNATURE, "the signature does not verify over the content block"},
    {VEXA_ERR_PATH_TOO_DEEP, "CRL signers nest more than 11 deep"},
    {VEXA_ERR_UNPROCESSED_CRITICAL,
     "a certificate of a path below the root carries a critical extension checktool does not process"},
    {VEXA_ERR_PATH_LENGTH, "a CA of a path has more CA certificates below it than its pathLenConstraint allows"},
    {VEXA_ERR_PARAM, "a required part is missing: the signer's time-stamp token, or an input"},
    {VEXA_ERR_TS_DIGEST, "the token's imprint uses a hash checktool does not accept (SHA-1)"},
    {VEXA_ERR_TSA_NOT_FOUND, "the TSA's certificate is neither in the token nor in the CRL file"},
    {VEXA_ERR_TS_IMPRINT, "the token's imprint is not the hash of the signer's signature value"},
    {VEXA_ERR_TS_SIGNATURE, "the token's signature does not verify over its TSTInfo (changed after signing?)"},
    {VEXA_ERR_FILE_OPEN, "the CRL file cannot be opened as a regular file"},
    {VEXA_ERR_FILE_EMPTY, "an input file is empty"},
    {VEXA_ERR_FILE_TOO_LARGE, "the CRL file is larger than 2,000,000 bytes"},
};

Json &Records()
{
    static Json records = Json::array();
    return records;
}

void Observe(uint32_t level, const char *function, uint32_t line, uint32_t code, const char *message)
{
    char hex[16];
    snprintf(hex, sizeof(hex), "0x%08X", code);
    Records().push_back({{"level", level == VEXA_LOG_ERROR ? "error" : "warning"},
                         {"function", function != nullptr ? function : ""},
                         {"line", line},
                         {"code", hex},
                         {"message", message != nullptr ? message : ""}});
}

/* A CRL or certificate input as checktool reads it: DER concatenated or
 * PEM blocks. */
void ReadCrlFile(const Bytes &data, std::vector<X509_CRL *> *crls, std::vector<X509 *> *certs)
{
    std::vector<Bytes> items;
    if (LooksLikePem(data)) {
        std::vector<PemBlock> pem;
        (void)PemBlocks(data, &pem);
        for (const PemBlock &b : pem) {
            items.push_back(b.der);
        }
    } else {
        BerParser parser{data, {}, 0, false};
        for (size_t pos = 0; pos < data.size();) {
            BerNode node;
            if (!ParseBer(&parser, pos, data.size(), 0, &node)) {
                break;
            }
            items.push_back(Bytes(data.begin() + static_cast<long>(pos), data.begin() + static_cast<long>(node.end)));
            pos = node.end;
        }
    }
    for (const Bytes &item : items) {
        const unsigned char *p = item.data();
        if (X509_CRL *crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(item.size()))) {
            crls->push_back(crl);
            continue;
        }
        p = item.data();
        if (X509 *cert = d2i_X509(nullptr, &p, static_cast<long>(item.size()))) {
            certs->push_back(cert);
        }
    }
}

/* The file checks read_input_file makes, with its codes. */
uint32_t ReadInput(const std::string &path, Bytes *data)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || ReadFile(path, data) != kOk) {
        return VEXA_ERR_FILE_OPEN;
    }
    if (data->empty()) {
        return VEXA_ERR_FILE_EMPTY;
    }
    return data->size() > 2000000 ? VEXA_ERR_FILE_TOO_LARGE : VEXA_OK;
}

} // namespace

uint32_t VerifyLikeChecktool(const VerifyInputs &in, Json *report)
{
    Bytes crlFile;
    Bytes root;
    uint32_t code = in.layoutCode;
    if (code == VEXA_OK) {
        code = ReadInput(in.crlPath, &crlFile);
    }
    if (ReadFile(in.rootPath, &root) != kOk || root.empty()) {
        Fail("inspect: cannot read the root %s", in.rootPath.c_str());
        return kErrIo;
    }
    Records() = Json::array();
    ServiceLines().clear();
    VexaLogSetObserver(Observe);
    uint32_t verdict = 0;
    if (code == VEXA_OK) {
        VexaVerifyCtxParams params = {};
        params.size = sizeof(params);
        VexaVerifyCtx *ctx = nullptr;
        code = VexaVerifyCreateCtx(&ctx, &params);
        if (code == VEXA_OK) code = VexaVerifyAddCert(ctx, root.data(), static_cast<uint32_t>(root.size()));
        if (code == VEXA_OK) code = VexaVerifyAddCrl(ctx, crlFile.data(), static_cast<uint32_t>(crlFile.size()));
        if (code == VEXA_OK) code = VexaVerifyDetachSignatureBegin(ctx, in.signature.data(), static_cast<uint32_t>(in.signature.size()));
        if (code == VEXA_OK) code = VexaVerifyDetachSignatureUpdate(ctx, in.content.data(), static_cast<uint32_t>(in.content.size()));
        if (code == VEXA_OK && (VexaVerifyDetachSignatureFinal(ctx, &verdict) != VEXA_OK || verdict != 1)) {
            code = VEXA_ERR_CMS_SIGNATURE; /* as checktool: only a clean verdict 1 verifies */
        }
        (void)VexaVerifyDestroyCtx(ctx);
    }
    VexaLogSetObserver(nullptr);

    char hex[16];
    snprintf(hex, sizeof(hex), "0x%08X", code);
    Json v = {{"verdict", code == VEXA_OK ? "verified" : "refused"},
              {"code", hex},
              {"name", NameOf(code)},
              {"exitStatus", code & 0xFF}};
    ASN1_TIME *genTime = nullptr;
    if (!in.genTimeRaw.empty()) {
        genTime = ASN1_GENERALIZEDTIME_new();
        if (ASN1_GENERALIZEDTIME_set_string(genTime, in.genTimeRaw.c_str()) != 1) {
            ASN1_GENERALIZEDTIME_free(genTime);
            genTime = nullptr;
        }
    }
    const std::string judged = genTime != nullptr ? IsoTime(genTime) : "";
    if (!judged.empty()) {
        v["judgedAt"] = judged + " (genTime of the signer's time-stamp token)";
    }
    if (code != VEXA_OK) {
        v["rule"] = "the check named by the innermost diagnostic below failed";
    }
    for (const auto &r : kRules) {
        if (r.code == code) {
            v["rule"] = r.rule;
        }
    }
    if (code == in.layoutCode && code != VEXA_OK) {
        v["rule"] = "the image layout is invalid: a block lies outside the file or past its room, or the magic is missing";
    }
    std::vector<X509_CRL *> crls;
    std::vector<X509 *> fileCerts;
    ReadCrlFile(crlFile, &crls, &fileCerts);
    std::vector<X509 *> path = in.pathCerts;
    path.insert(path.end(), fileCerts.begin(), fileCerts.end());
    const std::vector<std::string> concerned = Concerned(code, path, crls, genTime);
    if (!concerned.empty()) {
        std::string reason;
        for (const std::string &c : concerned) {
            reason += (reason.empty() ? "" : "; ") + c;
        }
        v["reason"] = reason + (judged.empty() ? "" : "; judged at genTime " + judged);
    }
    ASN1_GENERALIZEDTIME_free(genTime);
    for (X509_CRL *crl : crls) {
        X509_CRL_free(crl);
    }
    for (X509 *cert : fileCerts) {
        X509_free(cert);
    }
    v["diagnostics"] = Records();
    Json service = Json::array();
    for (const std::string &line : ServiceLines()) {
        service.push_back(line);
    }
    v["serviceMessages"] = service;
    (*report)["verification"] = v;
    return code;
}

} // namespace forge
