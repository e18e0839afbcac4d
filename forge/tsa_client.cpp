// SPDX-License-Identifier: Apache-2.0
/* An RFC 3161 client for forge sign --tsa-url: asks a time-stamping
 * service over HTTP or HTTPS (libcurl) for a token over the signer's
 * signature value, and checks the answer before it goes into a signature:
 * status granted, the same imprint and nonce, a token signature that
 * verifies with the TSA certificate it carries, that certificate's critical
 * timeStamping extended key usage, and a genTime of whole seconds, the only
 * form checktool accepts. Any failure names its cause and leaves no token. */
#include <string.h>

#include <curl/curl.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/rand.h>
#include <openssl/ts.h>
#include <openssl/x509v3.h>

#include "forge.h"

namespace forge {

namespace {

constexpr size_t kMaxReply = 1024 * 1024; /* a token is a few KiB */
constexpr int kNonceBytes = 8;
constexpr size_t kGenTimeWholeSeconds = 15; /* YYYYMMDDHHMMSSZ */

struct FreeTsReq { void operator()(TS_REQ *p) const { TS_REQ_free(p); } };
struct FreeTsResp { void operator()(TS_RESP *p) const { TS_RESP_free(p); } };
struct FreeInteger { void operator()(ASN1_INTEGER *p) const { ASN1_INTEGER_free(p); } };
struct FreeCurl { void operator()(CURL *p) const { curl_easy_cleanup(p); } };
struct FreeHeaders { void operator()(curl_slist *p) const { curl_slist_free_all(p); } };

uint32_t Refuse(const std::string &url, const char *fmt, const char *detail = "")
{
    Fail("sign: time-stamping service %s: %s%s", url.c_str(), fmt, detail);
    return kErrInput;
}

/* TimeStampReq: version 1, the imprint, a random nonce, certReq TRUE. */
uint32_t BuildRequest(const EVP_MD *md, const Bytes &hash, std::unique_ptr<ASN1_INTEGER, FreeInteger> *nonce,
                      Bytes *der)
{
    std::unique_ptr<TS_REQ, FreeTsReq> req(TS_REQ_new());
    TS_MSG_IMPRINT *imprint = TS_MSG_IMPRINT_new();
    X509_ALGOR *alg = X509_ALGOR_new();
    unsigned char random[kNonceBytes];
    BIGNUM *bn = nullptr;
    bool ok = req != nullptr && imprint != nullptr && alg != nullptr &&
              X509_ALGOR_set0(alg, OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr) == 1 &&
              TS_MSG_IMPRINT_set_algo(imprint, alg) == 1 &&
              TS_MSG_IMPRINT_set_msg(imprint, const_cast<unsigned char *>(hash.data()),
                                     static_cast<int>(hash.size())) == 1 &&
              TS_REQ_set_version(req.get(), 1) == 1 && TS_REQ_set_msg_imprint(req.get(), imprint) == 1 &&
              RAND_bytes(random, sizeof(random)) == 1;
    random[0] &= 0x7F; /* a positive INTEGER of at most 8 octets */
    if (ok) {
        bn = BN_bin2bn(random, sizeof(random), nullptr);
        nonce->reset(bn != nullptr ? BN_to_ASN1_INTEGER(bn, nullptr) : nullptr);
        ok = *nonce != nullptr && TS_REQ_set_nonce(req.get(), nonce->get()) == 1 &&
             TS_REQ_set_cert_req(req.get(), 1) == 1;
    }
    BN_free(bn);
    X509_ALGOR_free(alg);
    TS_MSG_IMPRINT_free(imprint);
    unsigned char *out = nullptr;
    const int len = ok ? i2d_TS_REQ(req.get(), &out) : -1;
    if (len <= 0) {
        Fail("sign: building the time-stamp request failed");
        return kErrCrypto;
    }
    der->assign(out, out + len);
    OPENSSL_free(out);
    return kOk;
}

size_t Collect(char *data, size_t size, size_t count, void *userp)
{
    Bytes *reply = static_cast<Bytes *>(userp);
    const size_t n = size * count;
    if (n > kMaxReply - reply->size()) {
        return 0; /* stops the transfer: no token is that large */
    }
    reply->insert(reply->end(), data, data + n);
    return n;
}

uint32_t Post(const TsaOptions &opts, const Bytes &request, Bytes *reply)
{
    static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    std::unique_ptr<CURL, FreeCurl> curl(initialised ? curl_easy_init() : nullptr);
    if (curl == nullptr) {
        return Refuse(opts.url, "libcurl could not start");
    }
    std::unique_ptr<curl_slist, FreeHeaders> headers(
        curl_slist_append(nullptr, "Content-Type: application/timestamp-query"));
    headers.reset(curl_slist_append(headers.release(), "Accept: application/timestamp-reply"));
    CURL *c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, opts.url.c_str());
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, request.data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(c, CURLOPT_TIMEOUT, opts.timeoutSeconds);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, reply);
    if (!opts.caFile.empty()) {
        curl_easy_setopt(c, CURLOPT_CAINFO, opts.caFile.c_str());
    }
    const CURLcode rc = curl_easy_perform(c);
    if (rc != CURLE_OK) {
        return Refuse(opts.url, "no answer: ", curl_easy_strerror(rc));
    }
    long status = 0;
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200) {
        const std::string code = std::to_string(status);
        return Refuse(opts.url, "HTTP status ", code.c_str());
    }
    return kOk;
}

/* The token's signature verifies with the certificate it carries, and that
 * certificate is a TSA's: critical extended key usage timeStamping. Trust
 * in the TSA's path is checktool's to judge, against its own root. */
uint32_t CheckTokenSigner(const TsaOptions &opts, PKCS7 *token)
{
    ERR_clear_error();
    if (PKCS7_verify(token, nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY) != 1) {
        return Refuse(opts.url, "the token's signature does not verify");
    }
    STACK_OF(X509) *signers = PKCS7_get0_signers(token, nullptr, 0);
    X509 *tsa = signers != nullptr && sk_X509_num(signers) == 1 ? sk_X509_value(signers, 0) : nullptr;
    sk_X509_free(signers);
    if (tsa == nullptr) {
        return Refuse(opts.url, "the token carries no TSA certificate (certReq was set)");
    }
    const int at = X509_get_ext_by_NID(tsa, NID_ext_key_usage, -1);
    if (at < 0 || X509_EXTENSION_get_critical(X509_get_ext(tsa, at)) != 1 ||
        (X509_get_extended_key_usage(tsa) & XKU_TIMESTAMP) == 0) {
        return Refuse(opts.url, "the TSA certificate lacks the critical timeStamping extended key usage");
    }
    return kOk;
}

uint32_t CheckReply(const TsaOptions &opts, const EVP_MD *md, const Bytes &hash, const ASN1_INTEGER *nonce,
                    const Bytes &reply, Bytes *tokenDer)
{
    const unsigned char *p = reply.data();
    std::unique_ptr<TS_RESP, FreeTsResp> resp(d2i_TS_RESP(nullptr, &p, static_cast<long>(reply.size())));
    if (resp == nullptr || p != reply.data() + reply.size()) {
        return Refuse(opts.url, "the answer is not a TimeStampResp");
    }
    const ASN1_INTEGER *status = TS_STATUS_INFO_get0_status(TS_RESP_get_status_info(resp.get()));
    const long granted = status != nullptr ? ASN1_INTEGER_get(status) : -1;
    if (granted != 0 && granted != 1) {
        const std::string code = std::to_string(granted);
        return Refuse(opts.url, "the request was not granted, PKIStatus ", code.c_str());
    }
    PKCS7 *token = TS_RESP_get_token(resp.get());
    TS_TST_INFO *tst = TS_RESP_get_tst_info(resp.get());
    if (token == nullptr || tst == nullptr) {
        return Refuse(opts.url, "granted, but no token");
    }
    const ASN1_INTEGER *tokenNonce = TS_TST_INFO_get_nonce(tst);
    if (tokenNonce == nullptr || ASN1_INTEGER_cmp(tokenNonce, nonce) != 0) {
        return Refuse(opts.url, "the token's nonce is not the request's (a replayed or foreign answer)");
    }
    TS_MSG_IMPRINT *imprint = TS_TST_INFO_get_msg_imprint(tst);
    const X509_ALGOR *alg = imprint != nullptr ? TS_MSG_IMPRINT_get_algo(imprint) : nullptr;
    const ASN1_OCTET_STRING *msg = imprint != nullptr ? TS_MSG_IMPRINT_get_msg(imprint) : nullptr;
    if (alg == nullptr || msg == nullptr || OBJ_obj2nid(alg->algorithm) != EVP_MD_get_type(md) ||
        static_cast<size_t>(ASN1_STRING_length(msg)) != hash.size() ||
        memcmp(ASN1_STRING_get0_data(msg), hash.data(), hash.size()) != 0) {
        return Refuse(opts.url, "the token's imprint is not the signature value's hash");
    }
    const ASN1_GENERALIZEDTIME *genTime = TS_TST_INFO_get_time(tst);
    const size_t timeLen = genTime != nullptr ? static_cast<size_t>(ASN1_STRING_length(genTime)) : 0;
    if (timeLen != kGenTimeWholeSeconds || ASN1_STRING_get0_data(genTime)[timeLen - 1] != 'Z') {
        const std::string text = genTime != nullptr
                                     ? std::string(reinterpret_cast<const char *>(ASN1_STRING_get0_data(genTime)),
                                                   timeLen)
                                     : std::string("none");
        return Refuse(opts.url, "genTime is not in whole seconds (YYYYMMDDHHMMSSZ), which checktool requires: ",
                      text.c_str());
    }
    uint32_t rc = CheckTokenSigner(opts, token);
    if (rc != kOk) {
        return rc;
    }
    /* The token goes in as the service sent it, and only if that is the DER
     * checktool reads: its bytes are the second element of the reply, after
     * a status of definite length. */
    BerParser parser{reply, {}, 0, false};
    BerNode root;
    const BerNode *statusNode = nullptr;
    const BerNode *sent = nullptr;
    if (ParseBer(&parser, 0, reply.size(), 0, &root) && root.children.size() >= 2) {
        statusNode = &root.children[0];
        sent = &root.children[1];
    }
    unsigned char *der = nullptr;
    const int len = i2d_PKCS7(token, &der);
    const bool same = len > 0 && sent != nullptr && !statusNode->indefinite &&
                      sent->end - sent->start == static_cast<size_t>(len) &&
                      memcmp(reply.data() + sent->start, der, static_cast<size_t>(len)) == 0;
    OPENSSL_free(der);
    if (!same) {
        return Refuse(opts.url, "the token is not DER, which checktool requires");
    }
    tokenDer->assign(reply.begin() + static_cast<long>(sent->start), reply.begin() + static_cast<long>(sent->end));
    return kOk;
}

} // namespace

uint32_t RequestToken(const TsaOptions &opts, const EVP_MD *md, const Bytes &imprintSource, Bytes *token)
{
    Bytes hash;
    uint32_t rc = Digest(md, imprintSource.data(), imprintSource.size(), &hash);
    std::unique_ptr<ASN1_INTEGER, FreeInteger> nonce;
    Bytes request;
    if (rc == kOk) rc = BuildRequest(md, hash, &nonce, &request);
    Bytes reply;
    if (rc == kOk) rc = Post(opts, request, &reply);
    if (rc == kOk) rc = CheckReply(opts, md, hash, nonce.get(), reply, token);
    return rc;
}

} // namespace forge
