// SPDX-License-Identifier: Apache-2.0
/* forge's entry point: "forge COMMAND [options]". */
#include <stdio.h>
#include <string.h>

#include "forge.h"

namespace {

const forge::Command *const kCommands[] = {
    &forge::kKeyCommand,   &forge::kCertCommand,  &forge::kCrlCommand,  &forge::kCrlFileCommand,
    &forge::kSignCommand,  &forge::kTokenCommand, &forge::kBodyCommand, &forge::kImageCommand,
    &forge::kNormalizeCommand, &forge::kInspectCommand, &forge::kManifestCommand,
};

const forge::Command *FindCommand(const char *name)
{
    for (const forge::Command *cmd : kCommands) {
        if (strcmp(cmd->name, name) == 0) {
            return cmd;
        }
    }
    return nullptr;
}

void PrintOverview()
{
    printf("usage: forge COMMAND [options]   (forge COMMAND --help for its options)\n\n"
           "Makes test PKIs, CRLs, time-stamped detached CMS signatures and signed images.\n"
           "Times are YYMMDDHHMMSSZ (encoded as UTCTime) or YYYYMMDDHHMMSSZ (GeneralizedTime).\n"
           "Serial numbers are decimal or 0x-prefixed hex. Outputs are DER unless --form says\n"
           "otherwise.\n\ncommands:\n");
    for (const forge::Command *cmd : kCommands) {
        printf("  %-9s %s\n", cmd->name, cmd->synopsis);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 ||
        strcmp(argv[1], "help") == 0) {
        if (argc >= 3) {
            const forge::Command *cmd = FindCommand(argv[2]);
            if (cmd != nullptr) {
                forge::PrintCommandHelp(*cmd);
                return 0;
            }
        }
        PrintOverview();
        return argc < 2 ? static_cast<int>(forge::kErrUsage) : 0;
    }
    const forge::Command *cmd = FindCommand(argv[1]);
    if (cmd == nullptr) {
        forge::Fail("unknown command '%s' (forge --help lists them)", argv[1]);
        return static_cast<int>(forge::kErrUsage);
    }
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            forge::PrintCommandHelp(*cmd);
            return 0;
        }
    }
    forge::Args args;
    uint32_t rc = forge::ParseArgs(*cmd, argc - 2, argv + 2, &args);
    if (rc == forge::kOk) {
        rc = cmd->run(args);
    }
    return static_cast<int>(rc);
}
