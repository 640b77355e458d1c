// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// zelkm: the library at an engineer's desk. This file defines the command line, and nothing else.

#include <android/log.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string_view>

#include "chain_command.h"
#include "doctor_command.h"
#include "failure.h"
#include "info_command.h"
#include "key_commands.h"
#include "password_command.h"
#include "store_commands.h"

namespace {

using namespace zelkm_tool;

// Of the option names in a help text, so that descriptions fit beside them.
constexpr size_t kHelpColumn = 28;

constexpr char kFooter[] = R"(
The keymaster is SOFTWARE and protects nothing.

A store is a directory. The first 'add' makes secure_objects.db in it, its key
blob edbk, and the root key of the software keymaster, under which that blob
lies: soft_keymaster_root.key. The library's errors are kept in zelko_err.txt.

Values are bytes and come back as they were given. The store has no escaping,
so these are refused: an empty value, a value that begins with a comma, one
with " AND " in it, the bytes 0x1f, 0x1e, line feed and NUL; and, as a value to
store in any column but ACCESSOR, "*".

Columns: ALIAS, CREATOR, CREATOR_UID and PRIV_ACC compare exactly. ADMIN is a
list, ACCESSOR a list of patterns: ADMIN=1000 asks who lists 1000 as an admin,
ACCESSOR=1000 whose patterns let 1000 in. Patterns: [lo..hi] is a range of
numbers, a final * any rest, *# and *_ anything up to that character. The
question for * matches every object (for ADMIN and ACCESSOR, if not empty).

--patch-level plays a system update: with a newer level than that of the
store's key, the library upgrades the key. From then on, say the new level.

Exit status: 0 done; 1 refused or failed, with the result code and its meaning;
2 the command line was not accepted, and nothing was touched.

Examples:
  zelkm --dir store add --alias key1 --creator app --accessor '1000,[10000..19999]'
  zelkm --dir store list --where ACCESSOR=15000
  zelkm --dir store list --columns ALIAS,CREATOR --json
  zelkm --dir store remove --where ALIAS=key1 --where CREATOR=app
  zelkm --dir store query 'SELECT (ALIAS) WHERE CREATOR=\x1fapp\x1f'
  zelkm info store

'zelkm COMMAND --help' tells more about each.)";

constexpr char kWhereHelp[] = "A condition; several must all hold";

void defineAdd(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<AddOptions>();
    CLI::App* command = app.add_subcommand("add", "Store an object");
    command->add_option("--alias", options->alias, "Name of the key")
        ->required()
        ->type_name("VALUE");
    command->add_option("--creator", options->creator, "Who made it")
        ->required()
        ->type_name("VALUE");
    command->add_option("--admin", options->admin, "Who administers it")->type_name("A,B");
    command->add_option("--accessor", options->accessor, "Who uses it: patterns")->type_name("A,B");
    command->add_option("--creator-uid", options->creator_uid, "The creator's uid")->type_name("N");
    command->add_flag("--privileged", options->privileged, "Mark it for privileged access");
    command->add_flag("--duplicate", options->duplicate, "Add it even if it is there already");
    command->footer(
        "Aliases need not be unique to the library; an object with this creator and this\n"
        "alias is refused here all the same, unless --duplicate is given.");
    command->callback([&session, options] { addObject(session, *options); });
}

void defineList(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand("list", "Show objects: all, or those that match");
    command->add_option("--where", options->where, kWhereHelp)->type_name("COLUMN=VALUE");
    command->add_option("--columns", options->columns, "Columns to show; default all")
        ->type_name("A,B");
    CLI::Option* json = command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--csv", options->csv, "Print CSV")->excludes(json);
    command->footer(
        "The table shows bytes that are not printable as \\xNN, and a backslash as \\\\.\n"
        "JSON is an array of objects keyed by column name; a value that is no UTF-8 is\n"
        "{\"hex\": \"...\"} there. CSV is RFC 4180, its values the bytes that they are.");
    command->callback([&session, options] { listObjects(session, *options); });
}

void defineRemove(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<RemoveOptions>();
    CLI::App* command = app.add_subcommand("remove", "Delete the objects that match");
    command->add_option("--where", options->where, kWhereHelp)->type_name("COLUMN=VALUE");
    command->add_flag("--all", options->all, "Every object; or careless conditions, see below");
    command->footer(
        "Without --where, --all is needed: it removes every object. Careless conditions\n"
        "need it, too: an unknown column (the store skips the condition), the value *\n"
        "(every object matches), the operators < <= > >= (the store knows them, but no\n"
        "object ever matches). That no object matches is no failure.");
    command->callback([&session, options] { removeObjects(session, *options); });
}

void defineAliases(CLI::App& app, const SessionOptions& session) {
    CLI::App* command = app.add_subcommand("aliases", "Show creator::alias of every object");
    command->footer("Bytes that are not printable appear as \\xNN, a backslash as \\\\.");
    command->callback([&session] { listAliases(session); });
}

void defineQuery(CLI::App& app, const SessionOptions& session) {
    auto text = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("query", "Run one command text of the engine");
    command->add_option("TEXT", *text, "The command; \\xNN is the byte NN, \\\\ a backslash")
        ->required()
        ->type_name("");
    command->footer(
        "Shows the status and the result; a command that changes the store is stored.\n"
        "Nothing is checked here: an unknown column in a condition, no condition at all\n"
        "or the value * reaches every object, and a value with a separator in it can\n"
        "make the store unreadable.\n"
        "\n"
        "  INSERT (ALIAS,CREATOR) VALUE (\\x1fkey 1\\x1f,app)\n"
        "  SELECT (CREATOR,ALIAS) WHERE ADMIN=1000 AND CREATOR=app\n"
        "  DELETE WHERE ALIAS=\\x1fkey 1\\x1f");
    command->callback([&session, text] { runQuery(session, *text); });
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("info", "Show what a store directory holds");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->footer(
        "Needs no key. Shows the headers of secure_objects.db, its .bak and its .tmp,\n"
        "the rows of a plaintext payload, the size of the key blob, whether edbk_digest\n"
        "matches it, and the last lines of the error file.");
    command->callback([&session, dir] { printInfo(dir->empty() ? session.dir : *dir); });
}

void defineDoctor(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::string>();
    auto repair = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("doctor", "Tell what a crash left of a store");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->add_flag("--repair", *repair, "Put it right, and keep copies");
    command->footer(
        "Looks at the store, the key and its digest, with their .bak and .tmp, and says what\n"
        "happened and what can be done. All is tried on a copy, with the library and the\n"
        "software keymaster; without its root key, nothing encrypted is.\n"
        "\n"
        "--repair changes something only if the store reads afterwards, and keeps a copy of\n"
        "every file that it touches in doctor-YYYYMMDD-HHMMSS. Nothing else may use the store\n"
        "meanwhile. Exit status 1 says that something is wrong, and stays so.\n"
        "\n"
        "  zelkm doctor store\n"
        "  zelkm doctor --repair store");
    command->callback([&session, dir, repair] {
        SessionOptions options = session;
        if (!dir->empty()) {
            options.dir = *dir;
        }
        runDoctor(options, *repair);
    });
}

void defineKeyOptions(CLI::App& command, KeyOptions& options) {
    CLI::Option* key =
        command.add_option("--key", options.file, "The key's blob; without it, a new key")
            ->type_name("FILE");
    command.add_flag("--rsa", options.rsa, "A new key is RSA-2048; default EC P-256")
        ->excludes(key);
}

void defineCsr(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<CsrOptions>();
    CLI::App* command = app.add_subcommand("csr", "Make a certificate signing request");
    command->add_option("--out", options->out, "The request; - is standard output")
        ->required()
        ->type_name("FILE");
    command->add_flag("--der", options->der, "Write DER instead of PEM");
    defineKeyOptions(*command, options->key);
    command->footer(
        "The blob of a new key is written to FILE.keyblob, never over another one.\n"
        "\n"
        "  zelkm --dir store csr --out request.pem\n"
        "  openssl req -in request.pem -verify -noout");
    command->callback([&session, options] { makeCsr(session, *options); });
}

void defineAttest(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<AttestOptions>();
    CLI::App* command = app.add_subcommand("attest", "Write the attestation chain of a key");
    command->add_option("--out-dir", options->out_dir, "Where to; made when missing")
        ->required()
        ->type_name("DIR");
    command->add_option("--challenge", options->challenge, "To be attested; default random")
        ->type_name("TEXT");
    command->add_flag("--der", options->der, "Write DER instead of PEM");
    defineKeyOptions(*command, options->key);
    command->footer(
        "Writes cert-1 (the key's), cert-2, ... up to the root, and shows the challenge in\n"
        "hexadecimal. The blob of a new key is written to key.keyblob there, never over\n"
        "another one.\n"
        "\n"
        "  zelkm --dir store attest --out-dir chain\n"
        "  zelkm verify-chain chain/cert-1.pem chain/cert-2.pem chain/cert-3.pem");
    command->callback([&session, options] { attestKey(session, *options); });
}

void defineVerifyChain(CLI::App& app) {
    auto options = std::make_shared<VerifyChainOptions>();
    CLI::App* command = app.add_subcommand("verify-chain", "Check an attestation chain");
    command->add_option("FILE", options->files, "Leaf first, root last; - is standard input")
        ->required()
        ->type_name("");
    command->add_flag("--separate-first", options->separate_first,
                      "The first is signed by the second's key, and not on the path");
    command->footer(
        "Each file is PEM or DER and holds one certificate or several; at least three are\n"
        "needed. Success does NOT mean trust: the last certificate is taken as the root\n"
        "whoever made it, so compare it with the roots that you trust. Dates of validity\n"
        "are not looked at, on purpose; nor is revocation.");
    command->callback([options] { verifyChain(*options); });
}

void definePassword(CLI::App& app, const SessionOptions& session, bool wraps) {
    auto options = std::make_shared<PasswordOptions>();
    CLI::App* command = app.add_subcommand(
        wraps ? "wrap" : "unwrap", wraps ? "Convert key material under the password hardware key"
                                         : "Convert wrapped key material back");
    for (size_t i = 0; i < options->inputs.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        command->add_option("--in" + number, options->inputs[i], "Input " + number)
            ->required()
            ->type_name("FILE");
    }
    command->add_option("--material", options->material, "The material to convert")
        ->required()
        ->type_name("FILE");
    command->add_option("--tag", options->tag, wraps ? "Where to write the tag" : "The tag")
        ->required()
        ->type_name("FILE");
    command->add_option("--out", options->out, "Where to write the converted material")
        ->required()
        ->type_name("FILE");
    command->add_option("--rot", options->rot, "Where to write the hardware's value")
        ->type_name("FILE");
    command->footer(
        "One file to read can be - (standard input), one to write - (standard output).\n"
        "Files are made readable for their owner only. None to read may be empty.\n"
        "\n"
        "  zelkm wrap   --in1 a --in2 b --in3 c --in4 d --material key --out key.w --tag t\n"
        "  zelkm unwrap --in1 a --in2 b --in3 c --in4 d --material key.w --out key --tag t");
    command->callback([&session, options, wraps] {
        if (wraps) {
            wrap(session, *options);
        } else {
            unwrap(session, *options);
        }
    });
}

// The parser would take the next argument for the value of "--admin=".
void refuseEmptyValues(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg.substr(0, 2) == "--" && arg.find('=') == arg.size() - 1) {
            throw WrongUsage(std::string(arg) + ": the value is missing");
        }
    }
}

int run(int argc, char** argv) {
    refuseEmptyValues(argc, argv);

    CLI::App app("Works on a store of secure objects, and on keys, with libzelkeymaster.", "zelkm");
    app.get_formatter()->column_width(kHelpColumn);
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();

    SessionOptions session;
    app.add_option("--dir", session.dir, "The store; default the working directory")
        ->type_name("DIR");
    app.add_option("--patch-level", session.patch_level, "Of the software keymaster, YYYYMM")
        ->type_name("N");
    // The library's debug lines hold every command with its values.
    app.add_flag_callback(
        "--verbose", [] { __android_log_set_minimum_priority(ANDROID_LOG_DEBUG); },
        "The library's whole log, values included");

    defineAdd(app, session);
    defineList(app, session);
    defineRemove(app, session);
    defineAliases(app, session);
    defineQuery(app, session);
    defineInfo(app, session);
    defineDoctor(app, session);
    defineCsr(app, session);
    defineAttest(app, session);
    defineVerifyChain(app);
    definePassword(app, session, /*wraps=*/true);
    definePassword(app, session, /*wraps=*/false);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kExitDone : kExitWrongUsage;
    }
    std::cout.flush();
    if (!std::cout) {
        throw Refused("standard output: write failed");
    }
    return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    try {
        return run(argc, argv);
    } catch (const WrongUsage& error) {
        std::cerr << "zelkm: " << error.what() << '\n';
        return kExitWrongUsage;
    } catch (const std::exception& error) {
        std::cerr << "zelkm: " << error.what() << '\n';
        return kExitRefused;
    }
}
