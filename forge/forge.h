/* SPDX-License-Identifier: Apache-2.0 */
/* forge: makes test PKIs, CRLs, time-stamped detached CMS signatures and
 * signed images for checktool. Every command is a free function taking the
 * parsed command line and returning a result code (0 = success). */
#ifndef FORGE_FORGE_H
#define FORGE_FORGE_H

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace forge {

/* Result codes; the process exit status is the code. */
constexpr uint32_t kOk = 0;
constexpr uint32_t kErrUsage = 2;   /* bad command line */
constexpr uint32_t kErrIo = 3;      /* a file cannot be read or written */
constexpr uint32_t kErrInput = 4;   /* an input file has the wrong content */
constexpr uint32_t kErrCrypto = 5;  /* a libcrypto call failed */
constexpr uint32_t kErrLayout = 6;  /* the image blocks do not fit */

using Bytes = std::vector<uint8_t>;

/* ---- command line ---------------------------------------------------- */

struct OptSpec {
    const char *name;  /* without the leading "--" */
    const char *meta;  /* value placeholder for --help, null for a flag */
    const char *help;
};

struct OptValue {
    std::string name;
    std::string value; /* empty for a flag */
};

/* Options in command-line order; order matters where an option opens a
 * group (a signer of `sign`). */
struct Args {
    std::vector<OptValue> opts;
    std::vector<std::string> positional;
};

struct Command {
    const char *name;
    const char *synopsis;
    const char *description;
    const OptSpec *opts;
    size_t optCount;
    uint32_t (*run)(const Args &args);
};

uint32_t ParseArgs(const Command &cmd, int argc, char **argv, Args *out);
void PrintCommandHelp(const Command &cmd);
/* Last value of an option, or null when it is absent. */
const std::string *FindOpt(const Args &args, const char *name);
bool HasFlag(const Args &args, const char *name);
std::vector<std::string> FindAllOpts(const Args &args, const char *name);
uint32_t RequireOpt(const Args &args, const char *name, const std::string **out);
uint32_t ParseU64(const std::string &text, uint64_t *out);
uint32_t ParseU32(const std::string &text, uint32_t *out);
void Fail(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
/* Fail with libcrypto's first queued error after "`what` failed". */
void ReportCrypto(const char *what);

/* ---- libcrypto handles ---------------------------------------------- */

struct FreeX509 { void operator()(X509 *p) const { X509_free(p); } };
struct FreeCrl { void operator()(X509_CRL *p) const { X509_CRL_free(p); } };
struct FreePkey { void operator()(EVP_PKEY *p) const { EVP_PKEY_free(p); } };
using X509Ptr = std::unique_ptr<X509, FreeX509>;
using CrlPtr = std::unique_ptr<X509_CRL, FreeCrl>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, FreePkey>;

/* ---- files and encodings -------------------------------------------- */

uint32_t ReadFile(const std::string &path, Bytes *out);
uint32_t WriteFile(const std::string &path, const Bytes &data);
/* PEM armour with a chosen label, 64 characters a line, LF line ends. */
Bytes PemArmour(const char *label, const Bytes &der);
/* Every PEM block of a text: label and DER body, in order. */
struct PemBlock {
    std::string label;
    Bytes der;
};
uint32_t PemBlocks(const Bytes &text, std::vector<PemBlock> *out);
bool LooksLikePem(const Bytes &data);

/* A PEM key file, or a key in a PKCS#11 token named by an RFC 7512 URI
 * ("pkcs11:token=...;object=...", module from its module-path attribute
 * or --pkcs11-module, PIN from pin-value or FORGE_PKCS11_PIN). */
uint32_t LoadPrivateKey(const std::string &path, PkeyPtr *out);
bool IsPkcs11Uri(const std::string &text);
uint32_t LoadPkcs11Key(const std::string &uri, PkeyPtr *out);
void SetPkcs11Module(const std::string &path);
/* Takes --pkcs11-module from a command line, for the keys that follow. */
void UsePkcs11Module(const Args &args);
/* Private or public key: the public half is what a certificate needs. */
uint32_t LoadAnyKey(const std::string &path, PkeyPtr *out);
uint32_t LoadCert(const std::string &path, X509Ptr *out);
uint32_t CertDer(X509 *cert, Bytes *out);
/* Certificate extensions from forge cert's options (extensions.cpp). */
uint32_t AddKeyUsage(X509 *cert, const std::string &list);
uint32_t AddExtKeyUsage(X509 *cert, const std::string &list, bool critical);
uint32_t AddBasicConstraints(X509 *cert, const std::string &ca, const std::string *pathLen);
uint32_t AddKeyIds(X509 *cert, X509 *issuer);
/* The --ext NAME=VALUE options, in libcrypto's configuration syntax, added
 * to `cert` or (when it is null) to `crl`. */
uint32_t AddConfExtensions(const Args &args, X509 *issuer, X509 *cert, X509_CRL *crl);
uint32_t CrlDer(X509_CRL *crl, Bytes *out);
/* Writes DER, or PEM under the given label when form is "pem". */
uint32_t WriteForm(const std::string &path, const std::string *form, const char *pemLabel,
                   const Bytes &der);
const EVP_MD *DigestByName(const std::string &name);
/* Validates "YYMMDDHHMMSSZ" (UTCTime) or "YYYYMMDDHHMMSSZ" (GeneralizedTime);
 * the form of the text chooses the ASN.1 type. */
bool IsTimeText(const std::string &text);
uint32_t ParseSerial(const std::string &text, Bytes *asn1IntegerDer);

/* ---- DER assembly ---------------------------------------------------- */

void DerAppendHeader(Bytes &out, uint8_t tag, size_t len);
void DerAppendLength(Bytes &out, size_t len); /* minimal definite form */
Bytes DerTlv(uint8_t tag, const Bytes &content);
Bytes DerCat(std::initializer_list<const Bytes *> parts);
Bytes DerOid(const char *dotted);
Bytes DerUint(uint64_t value);
Bytes DerNull();
Bytes DerOctets(const Bytes &content);
Bytes DerTime(const std::string &text); /* UTCTime or GeneralizedTime by form */
/* SET OF with the members sorted the way DER wants them. */
Bytes DerSetOf(std::vector<Bytes> members);
Bytes AlgId(const char *oid, bool nullParams);
const char *DigestOid(const EVP_MD *md);

constexpr uint8_t kTagInteger = 0x02;
constexpr uint8_t kTagOctets = 0x04;
constexpr uint8_t kTagSequence = 0x30;
constexpr uint8_t kTagSet = 0x31;
constexpr uint8_t kTagCtx0 = 0xA0; /* [0] constructed */
constexpr uint8_t kTagCtx1 = 0xA1; /* [1] constructed */

uint32_t Digest(const EVP_MD *md, const uint8_t *data, size_t len, Bytes *out);
uint32_t RsaSign(EVP_PKEY *key, const EVP_MD *md, const Bytes &data, Bytes *sig);

/* ---- commands --------------------------------------------------------- */

uint32_t RunKey(const Args &args);
uint32_t RunCert(const Args &args);
uint32_t RunCrl(const Args &args);
uint32_t RunCrlFile(const Args &args);
uint32_t RunSign(const Args &args);
uint32_t RunToken(const Args &args);
uint32_t RunBody(const Args &args);
uint32_t RunImage(const Args &args);
uint32_t RunNormalize(const Args &args);
uint32_t RunInspect(const Args &args);

/* ---- BER reading (normalize, inspect) --------------------------------- */
/* One BER element: where it lies in the input and, when constructed, its
 * elements. */
struct BerNode {
    size_t start = 0;        /* first tag octet */
    size_t end = 0;          /* one past the last octet, end-of-contents included */
    size_t contentStart = 0; /* primitive content */
    size_t contentEnd = 0;
    Bytes tag;               /* the tag octets as written */
    bool constructed = false;
    bool indefinite = false; /* BER: ended by end-of-contents */
    bool longForm = false;   /* the length in the long form (maybe more octets than needed) */
    std::vector<BerNode> children;
};
struct BerParser {
    const Bytes &in;
    std::string why; /* the first refusal, at whyAt */
    size_t whyAt = 0;
    bool signedPart = false; /* normalize: the refusal names a part a signature covers */
};
/* Parses the element at `pos`, which must end by `limit`; nesting is
 * bounded. False with p->why set for anything that is not BER. */
bool ParseBer(BerParser *p, size_t pos, size_t limit, int depth, BerNode *node);
bool BerRefuse(BerParser *p, size_t at, const char *what);

/* ---- time-stamping service client ------------------------------------ */
struct TsaOptions {
    std::string url;
    long timeoutSeconds = 30;
    std::string caFile; /* for HTTPS; the system's CAs when empty */
};
/* A token from an RFC 3161 service over the `md` hash of imprintSource,
 * checked (status, imprint, nonce, signature, TSA key usage, whole-second
 * genTime) before it is returned as DER. */
uint32_t RequestToken(const TsaOptions &opts, const EVP_MD *md, const Bytes &imprintSource, Bytes *token);

extern const Command kKeyCommand;
extern const Command kCertCommand;
extern const Command kCrlCommand;
extern const Command kCrlFileCommand;
extern const Command kSignCommand;
extern const Command kTokenCommand;
extern const Command kBodyCommand;
extern const Command kImageCommand;
extern const Command kNormalizeCommand;
extern const Command kInspectCommand;
extern const Command kManifestCommand;

} // namespace forge

#endif
