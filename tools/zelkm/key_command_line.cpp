// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on keys, certificates and key material; see command_line.h.

#include <memory>

#include "command_line.h"
#include "key_commands.h"
#include "password_command.h"

namespace zelkm_tool {
namespace {

void defineKeyOptions(CLI::App& command, KeyOptions& options) {
    CLI::Option* key =
        command.add_option("--key", options.file, "Key blob to use; default: a new key")
            ->type_name("FILE");
    command.add_flag("--rsa", options.rsa, "Make an RSA-2048 key; default: EC P-256")
        ->excludes(key);
}

void defineCsr(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<CsrOptions>();
    CLI::App* command = app.add_subcommand("csr", "Make a certificate signing request");
    command->add_option("--out", options->out, "Output file; - is standard output")
        ->required()
        ->type_name("FILE");
    command->add_flag("--der", options->der, "Write DER instead of PEM");
    defineKeyOptions(*command, options->key);
    command->footer(
        "The blob of a new key is written to FILE.keyblob, which must not exist yet.\n"
        "\n"
        "  zelkm --dir store csr --out request.pem\n"
        "  openssl req -in request.pem -verify -noout");
    command->callback([&session, options] { makeCsr(session, *options); });
}

void defineAttest(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<AttestOptions>();
    CLI::App* command = app.add_subcommand("attest", "Write the attestation chain of a key");
    command->add_option("--out-dir", options->out_dir, "Output directory, created if missing")
        ->required()
        ->type_name("DIR");
    command->add_option("--challenge", options->challenge, "Challenge to attest; default: random")
        ->type_name("TEXT");
    command->add_flag("--der", options->der, "Write DER instead of PEM");
    defineKeyOptions(*command, options->key);
    command->footer(
        "Writes cert-1 (the key's), cert-2, ... up to the root, and shows the challenge in\n"
        "hexadecimal. The blob of a new key is written to key.keyblob there, which\n"
        "must not exist yet.\n"
        "\n"
        "  zelkm --dir store attest --out-dir chain\n"
        "  zelkm verify-chain chain/cert-1.pem chain/cert-2.pem chain/cert-3.pem");
    command->callback([&session, options] { attestKey(session, *options); });
}

void definePassword(CLI::App& app, const SessionOptions& session, bool wraps) {
    auto options = std::make_shared<PasswordOptions>();
    CLI::App* command = app.add_subcommand(
        wraps ? "wrap" : "unwrap", wraps ? "Convert key material with the password hardware key"
                                         : "Convert wrapped key material back");
    for (size_t i = 0; i < options->inputs.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        command->add_option("--in" + number, options->inputs[i], "Input " + number)
            ->required()
            ->type_name("FILE");
    }
    command->add_option("--material", options->material, "Material to convert")
        ->required()
        ->type_name("FILE");
    command->add_option("--tag", options->tag, wraps ? "Output file for the tag" : "The tag")
        ->required()
        ->type_name("FILE");
    command->add_option("--out", options->out, "Output file for the converted material")
        ->required()
        ->type_name("FILE");
    command->add_option("--rot", options->rot, "Output file for the hardware's rot value")
        ->type_name("FILE");
    command->footer(
        "One input can be - (standard input), one output - (standard output). No input may\n"
        "be empty. Outputs are created anew, readable by their owner only, all or none;\n"
        "links are not followed, and no input is overwritten.\n"
        "\n"
        "  zelkm wrap   --in1 a --in2 b --in3 c --in4 d --material key --tag t --out w\n"
        "  zelkm unwrap --in1 a --in2 b --in3 c --in4 d --material w --tag t --out key");
    command->callback([&session, options, wraps] {
        if (wraps) {
            wrap(session, *options);
        } else {
            unwrap(session, *options);
        }
    });
}

}  // namespace

void defineKeyCommands(CLI::App& app, const SessionOptions& session) {
    defineCsr(app, session);
    defineAttest(app, session);
    defineVerifyChain(app);
    definePassword(app, session, /*wraps=*/true);
    definePassword(app, session, /*wraps=*/false);
}

}  // namespace zelkm_tool
