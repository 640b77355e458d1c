// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// zelkm: the library at an engineer's desk. This file defines what all commands have in common;
// each command is in a file of its own, with its options.

#include <zelkeymaster_operation.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <new>
#include <regex>
#include <streambuf>
#include <string_view>

#include "command_line.h"
#include "failure.h"
#include "store_values.h"

namespace {

using namespace zelkm_tool;

constexpr char kFooter[] = R"(The keymaster is SOFTWARE and protects nothing.

A store is a directory. The first 'add' makes secure_objects.db in it, its key
blob edbk, and the root key of the software keymaster, which encrypts that blob:
soft_keymaster_root.key. The root key of attestations is beside it:
soft_keymaster_root.key.attest. The library's errors are kept in zelko_err.txt.

Values are bytes and are returned as given. The store has no escaping, so these
are refused: an empty value, a value that begins with a comma, one with " AND "
in it, the bytes 0x1f, 0x1e, line feed and NUL; and, as a value to store in any
column but ACCESSOR, "*".

Columns: ALIAS, CREATOR, CREATOR_UID and PRIV_ACC compare exactly. ADMIN is a
list, ACCESSOR a list of patterns: ADMIN=1000 matches objects that list 1000 as
an admin, ACCESSOR=1000 those with a pattern that matches 1000. Patterns:
[lo..hi] is a range of numbers, a final * matches any rest, *# and *_ anything
up to that character. A condition with * matches every object (for ADMIN and
ACCESSOR, every object that has any).

zelkm works at the patch level of the store's key. --patch-level simulates a
system update: --upgrade then allows the library to upgrade the key. That is
irreversible.

Only one zelkm at a time uses a directory. Others wait up to --wait seconds.

'zelkm help COMMAND' shows the options of a command.

Exit status:
  0  done
  1  refused or failed, with the result code and its meaning
  2  invalid command line; nothing was touched
  3  'doctor' found nothing wrong, but could not check everything

Examples:
  zelkm --dir store add --alias key1 --creator app --accessor '[10000..19999]'
  zelkm --dir store list --where ACCESSOR=15000
  zelkm --dir store list --columns ALIAS,CREATOR --json
  zelkm --dir store remove --where ALIAS=key1 --where CREATOR=app
  zelkm --dir store query 'SELECT (ALIAS) WHERE CREATOR=\x1fapp\x1f'
  zelkm info store)";

// What people are shown passes through here, wherever it comes from: names of files, arguments,
// stored values, messages of other libraries. None of them may give orders to a terminal. Passes
// complete lines, and what there is at a flush, on as printable() makes them.
class ShownText : public std::streambuf {
  public:
    // Takes the place of the stream's buffer until it is destroyed.
    explicit ShownText(std::ostream& stream) : stream_(stream), behind_(stream.rdbuf(this)) {}
    ~ShownText() override {
        passOn();
        stream_.rdbuf(behind_);
    }
    ShownText(const ShownText&) = delete;
    ShownText& operator=(const ShownText&) = delete;

  protected:
    int_type overflow(int_type c) override {
        pending_ += traits_type::to_char_type(c);
        return c == '\n' && !passOn() ? traits_type::eof() : c;
    }

    int sync() override { return passOn() && behind_->pubsync() == 0 ? 0 : -1; }

  private:
    // Throws nothing, even without memory: streams also flush in destructors.
    bool passOn() {
        try {
            const std::string shown = printable(pending_);
            pending_.clear();
            const auto shown_len = static_cast<std::streamsize>(shown.size());
            return behind_->sputn(shown.data(), shown_len) == shown_len;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    std::ostream& stream_;
    std::streambuf* const behind_;
    std::string pending_;
};

// Refuses options such as "--admin=". The parser would take the next argument as their value.
void refuseEmptyValues(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg.substr(0, 2) == "--" && arg.find('=') == arg.size() - 1) {
            throw WrongUsage(std::string(arg) + ": the value is missing");
        }
    }
}

// Why the text is no patch level; empty when it is one.
std::string patchLevelProblem(std::string& text) {
    static const std::regex level("[2-9][0-9]{3}(0[1-9]|1[0-2])");
    return std::regex_match(text, level) ? "" : "a patch level is a year and a month, YYYYMM";
}

// Where to read on after a wrong command line: the help of the command that it has.
std::string seeHelp(const CLI::App& app) {
    const auto commands = app.get_subcommands();
    return "; see 'zelkm help" + (commands.empty() ? "" : " " + commands.front()->get_name()) + "'";
}

// Why the parser refused the arguments: names the first unknown option, or else the first argument
// left over.
std::string argumentProblem(const CLI::App& app) {
    const std::vector<std::string> left = app.remaining(/*recurse=*/true);
    const auto option = std::find_if(left.begin(), left.end(),
                                     [](const std::string& arg) { return arg[0] == '-'; });
    if (option != left.end()) {
        return "unknown option " + escape(*option);
    }
    return (app.get_subcommands().empty() ? "unknown command " : "unexpected argument ") +
           escape(left.empty() ? "" : left.front());
}

int run(int argc, char** argv) {
    refuseEmptyValues(argc, argv);

    CLI::App app("Manages stores of secure objects, and keys, with libzelkeymaster.", "zelkm");
    app.formatter(helpFormatter());
    app.set_version_flag("--version", "zelkm " ZELKEYMASTER_VERSION);
    app.footer(kFooter);
    app.require_subcommand(0, 1);  // a missing one is reported below
    app.fallthrough();

    SessionOptions session;
    app.add_option("--dir", session.dir, "The store; default: $ZELKM_DIR or this directory")
        ->type_name("DIR")
        ->envname("ZELKM_DIR");
    app.add_option("--wait", session.wait, "Seconds to wait for another zelkm; default: 5")
        ->type_name("N");
    app.add_option("--patch-level", session.patch_level, "Patch level of the software keymaster")
        ->type_name("YYYYMM")
        ->check(CLI::Validator(patchLevelProblem, ""));
    app.add_flag("--upgrade", session.upgrade, "Upgrade the store's key to that level");
    app.add_flag("--quiet", session.quiet, "Print only results and errors");
    // The library's debug lines hold every command with its values.
    app.add_flag_callback("--verbose", showLog, "Print the library's whole log, values included");

    for (Define* const define :
         {defineAdd, defineList, defineShow, defineWho, defineAliases, defineSet, defineRemove,
          defineImport, defineExport, defineQuery, defineInfo, defineDoctor, defineExplain,
          defineCsr, defineAttest, defineVerifyChain, definePassword, defineCheck, defineHelp}) {
        define(app, session);
    }

    int status = kExitDone;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ExtrasError&) {
        throw WrongUsage(argumentProblem(app) + seeHelp(app));
    } catch (const CLI::RuntimeError& ended) {
        status = ended.get_exit_code();
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            throw WrongUsage(error.what() + seeHelp(app));
        }
        app.exit(error);  // prints the help, or the version
        return kExitDone;
    }
    if (app.get_subcommands().empty()) {
        throw WrongUsage("a command is missing" + seeHelp(app));
    }
    std::cout.flush();
    if (!std::cout) {
        throw Refused("standard output: write failed");
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    captureLog();
    const ShownText shown(std::cout);
    const ShownText shown_errors(std::cerr);
    return exitStatusOf([&] { return run(argc, argv); });
}
