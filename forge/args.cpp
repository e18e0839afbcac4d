// SPDX-License-Identifier: Apache-2.0
/* Command-line parsing shared by all forge commands: "--name value",
 * "--name=value" and bare flags, checked against the command's table. */
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "forge.h"

namespace forge {

void Fail(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    fputs("forge: ", stderr);
    vfprintf(stderr, fmt, ap);
    fputc('\n', stderr);
    va_end(ap);
}

static const OptSpec *FindSpec(const Command &cmd, const std::string &name)
{
    for (size_t i = 0; i < cmd.optCount; ++i) {
        if (name == cmd.opts[i].name) {
            return &cmd.opts[i];
        }
    }
    return nullptr;
}

uint32_t ParseArgs(const Command &cmd, int argc, char **argv, Args *out)
{
    for (int i = 0; i < argc; ++i) {
        std::string word = argv[i];
        if (word.size() < 3 || word.compare(0, 2, "--") != 0) {
            out->positional.push_back(word);
            continue;
        }
        std::string name = word.substr(2);
        std::string value;
        bool inlineValue = false;
        size_t eq = name.find('=');
        if (eq != std::string::npos) {
            value = name.substr(eq + 1);
            name.resize(eq);
            inlineValue = true;
        }
        const OptSpec *def = FindSpec(cmd, name);
        if (def == nullptr) {
            Fail("%s: unknown option --%s (see forge %s --help)", cmd.name, name.c_str(), cmd.name);
            return kErrUsage;
        }
        if (def->meta == nullptr) {
            if (inlineValue) {
                Fail("%s: --%s takes no value", cmd.name, name.c_str());
                return kErrUsage;
            }
        } else if (!inlineValue) {
            if (i + 1 >= argc) {
                Fail("%s: --%s needs a value (%s)", cmd.name, name.c_str(), def->meta);
                return kErrUsage;
            }
            value = argv[++i];
        }
        out->opts.push_back(OptValue{name, value});
    }
    return kOk;
}

void PrintCommandHelp(const Command &cmd)
{
    printf("usage: forge %s %s\n\n%s\n\noptions:\n", cmd.name, cmd.synopsis, cmd.description);
    for (size_t i = 0; i < cmd.optCount; ++i) {
        std::string left = std::string("--") + cmd.opts[i].name;
        if (cmd.opts[i].meta != nullptr) {
            left += " ";
            left += cmd.opts[i].meta;
        }
        printf("  %-28s %s\n", left.c_str(), cmd.opts[i].help);
    }
}

const std::string *FindOpt(const Args &args, const char *name)
{
    const std::string *found = nullptr;
    for (const OptValue &o : args.opts) {
        if (o.name == name) {
            found = &o.value;
        }
    }
    return found;
}

bool HasFlag(const Args &args, const char *name)
{
    for (const OptValue &o : args.opts) {
        if (o.name == name) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> FindAllOpts(const Args &args, const char *name)
{
    std::vector<std::string> all;
    for (const OptValue &o : args.opts) {
        if (o.name == name) {
            all.push_back(o.value);
        }
    }
    return all;
}

uint32_t RequireOpt(const Args &args, const char *name, const std::string **out)
{
    *out = FindOpt(args, name);
    if (*out == nullptr) {
        Fail("missing --%s", name);
        return kErrUsage;
    }
    return kOk;
}

uint32_t ParseU64(const std::string &text, uint64_t *out)
{
    if (text.empty() || text[0] == '-' || text[0] == '+') {
        Fail("not a number: '%s'", text.c_str());
        return kErrUsage;
    }
    /* Decimal, or hex after "0x"; a leading zero does not mean octal. */
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    char *end = nullptr;
    errno = 0;
    unsigned long long v = strtoull(text.c_str(), &end, hex ? 16 : 10);
    if (errno != 0 || end == text.c_str() || *end != '\0') {
        Fail("not a number: '%s'", text.c_str());
        return kErrUsage;
    }
    *out = v;
    return kOk;
}

uint32_t ParseU32(const std::string &text, uint32_t *out)
{
    uint64_t v = 0;
    uint32_t rc = ParseU64(text, &v);
    if (rc != kOk) {
        return rc;
    }
    if (v > 0xFFFFFFFFull) {
        Fail("number too large for 32 bits: '%s'", text.c_str());
        return kErrUsage;
    }
    *out = static_cast<uint32_t>(v);
    return kOk;
}

} // namespace forge
