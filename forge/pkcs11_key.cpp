// SPDX-License-Identifier: Apache-2.0
/* Private keys that stay in a hardware token: wherever forge takes a key
 * file, an RFC 7512 URI "pkcs11:token=...;object=...?module-path=...&
 * pin-value=..." names a key in a PKCS#11 token instead. libp11 loads the
 * module, logs in and hands back a key whose signatures are made by the
 * token; the key never leaves it. */
#include <stdlib.h>
#include <string.h>

#include <libp11.h>

#include "forge.h"

namespace forge {

namespace {

constexpr char kScheme[] = "pkcs11:";

/* The one module forge talks to in a run, loaded on first use and kept
 * until the process ends: the keys it hands out sign through it. */
struct Pkcs11Session {
    std::string defaultModule;
    std::string loadedModule;
    PKCS11_CTX *ctx = nullptr;
    PKCS11_SLOT *slots = nullptr;
    unsigned int slotCount = 0;
};

Pkcs11Session &Session()
{
    static Pkcs11Session session;
    return session;
}

void ReleaseSession()
{
    Pkcs11Session &s = Session();
    if (s.ctx != nullptr) {
        if (s.slots != nullptr) {
            PKCS11_release_all_slots(s.ctx, s.slots, s.slotCount);
        }
        PKCS11_CTX_unload(s.ctx);
        PKCS11_CTX_free(s.ctx);
        s.ctx = nullptr;
    }
}

int HexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool PercentDecode(const std::string &in, std::string *out)
{
    out->clear();
    for (size_t i = 0; i < in.size(); i++) {
        if (in[i] != '%') {
            out->push_back(in[i]);
            continue;
        }
        if (i + 2 >= in.size()) {
            return false;
        }
        const int hi = HexValue(in[i + 1]);
        const int lo = HexValue(in[i + 2]);
        if (hi < 0 || lo < 0) {
            return false;
        }
        out->push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
    }
    return true;
}

/* The attributes forge uses; others are accepted and ignored. */
struct Pkcs11Uri {
    std::string token;
    std::string object;
    std::string id; /* raw octets */
    std::string modulePath;
    std::string pin;
    bool hasPin = false;
};

bool ParseAttrs(const std::string &text, char separator, Pkcs11Uri *uri)
{
    size_t start = 0;
    while (start <= text.size() && !text.empty()) {
        size_t end = text.find(separator, start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string attr = text.substr(start, end - start);
        const size_t eq = attr.find('=');
        std::string value;
        if (eq == std::string::npos || !PercentDecode(attr.substr(eq + 1), &value)) {
            return false;
        }
        const std::string name = attr.substr(0, eq);
        if (name == "token") uri->token = value;
        else if (name == "object") uri->object = value;
        else if (name == "id") uri->id = value;
        else if (name == "module-path") uri->modulePath = value;
        else if (name == "pin-value") { uri->pin = value; uri->hasPin = true; }
        start = end + 1;
    }
    return true;
}

bool ParseUri(const std::string &text, Pkcs11Uri *uri)
{
    const std::string rest = text.substr(strlen(kScheme));
    const size_t query = rest.find('?');
    return ParseAttrs(rest.substr(0, query), ';', uri) &&
           (query == std::string::npos || ParseAttrs(rest.substr(query + 1), '&', uri));
}

uint32_t Refuse(const std::string &uri, const std::string &why)
{
    Fail("%s: %s", uri.c_str(), why.c_str());
    return kErrInput;
}

uint32_t LoadModule(const std::string &uriText, const std::string &module)
{
    Pkcs11Session &s = Session();
    if (s.ctx != nullptr) {
        return s.loadedModule == module ? kOk : Refuse(uriText, "a second PKCS#11 module in one run");
    }
    s.ctx = PKCS11_CTX_new();
    if (s.ctx == nullptr || PKCS11_CTX_load(s.ctx, module.c_str()) != 0) {
        PKCS11_CTX_free(s.ctx);
        s.ctx = nullptr;
        return Refuse(uriText, "cannot load the PKCS#11 module " + module);
    }
    if (PKCS11_enumerate_slots(s.ctx, &s.slots, &s.slotCount) != 0) {
        return Refuse(uriText, "the PKCS#11 module lists no slots");
    }
    s.loadedModule = module;
    atexit(ReleaseSession);
    return kOk;
}

} // namespace

bool IsPkcs11Uri(const std::string &text)
{
    return text.compare(0, strlen(kScheme), kScheme) == 0;
}

void SetPkcs11Module(const std::string &path)
{
    Session().defaultModule = path;
}

void UsePkcs11Module(const Args &args)
{
    if (const std::string *module = FindOpt(args, "pkcs11-module")) {
        SetPkcs11Module(*module);
    }
}

uint32_t LoadPkcs11Key(const std::string &uriText, PkeyPtr *out)
{
    Pkcs11Uri uri;
    if (!ParseUri(uriText, &uri)) {
        return Refuse(uriText, "not a PKCS#11 URI (RFC 7512)");
    }
    if (uri.object.empty() && uri.id.empty()) {
        return Refuse(uriText, "the URI names no key (object= or id=)");
    }
    const std::string module = !uri.modulePath.empty() ? uri.modulePath : Session().defaultModule;
    if (module.empty()) {
        return Refuse(uriText, "no PKCS#11 module: give module-path in the URI or --pkcs11-module");
    }
    uint32_t rc = LoadModule(uriText, module);
    if (rc != kOk) {
        return rc;
    }
    Pkcs11Session &s = Session();
    PKCS11_SLOT *slot = nullptr;
    for (unsigned int i = 0; i < s.slotCount && slot == nullptr; i++) {
        PKCS11_TOKEN *token = s.slots[i].token;
        if (token != nullptr && token->initialized && (uri.token.empty() || uri.token == token->label)) {
            slot = &s.slots[i];
        }
    }
    if (slot == nullptr) {
        return Refuse(uriText, "no token labelled '" + uri.token + "'");
    }
    const char *envPin = getenv("FORGE_PKCS11_PIN");
    const std::string pin = uri.hasPin ? uri.pin : (envPin != nullptr ? envPin : "");
    int loggedIn = 0;
    if (PKCS11_is_logged_in(slot, 0, &loggedIn) != 0 || loggedIn == 0) {
        if (pin.empty() && slot->token->loginRequired) {
            return Refuse(uriText, "the token needs a PIN: pin-value in the URI or FORGE_PKCS11_PIN");
        }
        if (!pin.empty() && PKCS11_login(slot, 0, pin.c_str()) != 0) {
            return Refuse(uriText, "login to the token failed (wrong PIN?)");
        }
    }
    PKCS11_KEY *keys = nullptr;
    unsigned int keyCount = 0;
    if (PKCS11_enumerate_keys(slot->token, &keys, &keyCount) != 0) {
        return Refuse(uriText, "the token's keys cannot be listed");
    }
    for (unsigned int i = 0; i < keyCount; i++) {
        const PKCS11_KEY &key = keys[i];
        const bool labelMatches = uri.object.empty() || (key.label != nullptr && uri.object == key.label);
        const bool idMatches = uri.id.empty() || (key.id_len == uri.id.size() &&
                                                  memcmp(key.id, uri.id.data(), key.id_len) == 0);
        if (key.isPrivate && labelMatches && idMatches) {
            out->reset(PKCS11_get_private_key(&keys[i]));
            return *out ? kOk : Refuse(uriText, "the token refused to hand out the key");
        }
    }
    return Refuse(uriText, "no private key '" + uri.object + "' on token '" + uri.token + "'");
}

} // namespace forge
