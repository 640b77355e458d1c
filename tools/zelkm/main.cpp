// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// zelkm: the library at an engineer's desk. This file defines what all commands have in common,
// their helps, and the manual page, which is made of the helps and so never differs from them. The
// commands are in other files, with their options.

#include <zelkeymaster_operation.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <new>
#include <streambuf>
#include <string_view>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

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

constexpr size_t kHelpColumn = 28;  // of descriptions, of which 52 characters fit

class HelpFormatter : public CLI::Formatter {
  public:
    // Without the options that exclude each other: a wrong command line names them.
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool is_list = option->get_expected_max() == CLI::detail::expected_max_vector_size;
        const std::string type = option->get_type_size() == 0 ? "" : option->get_type_name();
        return (type.empty() ? "" : " " + type) + (is_list ? " ..." : "") +
               (option->get_required() ? " REQUIRED" : "");
    }
};

// A heading, and a text that man(1) shows as it is.
std::string section(const std::string& heading, const std::string& text) {
    std::string page = heading + "\n.nf\n.in 0\n";
    for (const std::string_view line : split(text, '\n')) {
        page += line.substr(0, 1).find_first_of(".'") == line.npos ? "" : "\\&";
        for (const char c : line) {
            page += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
        }
        page += '\n';
    }
    return page + ".fi\n";
}

// The application's own help() would show that of the command given.
std::string overview(const CLI::App& app) {
    return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

std::string manPage(const CLI::App& app) {
    const std::string help = overview(app);
    const size_t options = help.find("Options:");
    const size_t about = help.find(app.get_footer());
    const std::string status_heading = "Exit status:\n";
    const std::string examples_heading = "Examples:\n";
    const size_t status = help.find(status_heading);
    const size_t examples = help.find(examples_heading);
    std::string page = ".TH ZELKM 1 \"\" \"" + app.version() + "\" \"User Commands\"\n" +
                       ".SH NAME\nzelkm \\- work on a store of secure objects, and on keys\n" +
                       section(".SH SYNOPSIS", "zelkm [options] command [options] [arguments]") +
                       section(".SH DESCRIPTION", help.substr(about, status - about)) +
                       section(".SH OPTIONS", help.substr(options, about - options)) +
                       ".SH COMMANDS\n";
    for (const CLI::App* command :
         app.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); })) {
        page += section(".SS " + command->get_name(), command->help(app.get_name()));
    }
    const size_t status_text = status + status_heading.size();
    return page + section(".SH EXIT STATUS", help.substr(status_text, examples - status_text)) +
           section(".SH EXAMPLES", help.substr(examples + examples_heading.size())) +
           section(".SH FILES",
                   "The pages that messages name, such as docs/diagnostics.md, are in\n"
                   "share/doc/zelkeymaster, beside the folder of this program.");
}

struct HelpOptions {
    const CLI::App* app = nullptr;
    std::string command;
};

void help(const SessionOptions&, const HelpOptions& options) {
    const auto found = options.app->get_subcommands(
        [&](const CLI::App* each) { return each->get_name() == options.command; });
    if (found.empty() && !options.command.empty()) {
        throw WrongUsage("unknown command " + escape(options.command) + "; see 'zelkm help'");
    }
    std::cout << (found.empty() ? overview(*options.app)
                                : found.front()->help(options.app->get_name()));
}

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
    const bool is_number = text.size() == 6 && text.find_first_not_of("0123456789") == text.npos;
    const std::string month = is_number ? text.substr(4) : "";
    return is_number && text[0] >= '2' && month >= "01" && month <= "12"
               ? ""
               : "a patch level is a year and a month, YYYYMM";
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

void defineHelp(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "help", "Show help for a command", help);
    options.app = &app;
    addOption(command, "COMMAND", options.command, "", "The command; default: an overview of all");
    command.footer("");  // not that of all commands

    // The build makes the manual page with this command, which no help names.
    app.add_subcommand("man-page")->group("")->callback([&app] { std::cout << manPage(app); });
}

int run(int argc, char** argv) {
    refuseEmptyValues(argc, argv);

    CLI::App app("Manages stores of secure objects, and keys, with libzelkeymaster.", "zelkm");
    const auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kHelpColumn);
    app.formatter(formatter);  // commands take it when they are added
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
}  // namespace zelkm_tool

int main(int argc, char** argv) {
    using namespace zelkm_tool;
    try {
        captureLog();
        const ShownText shown(std::cout);
        const ShownText shown_errors(std::cerr);
        return exitStatusOf([&] { return run(argc, argv); });
    } catch (...) {  // there is no memory for a message either
        return kExitRefused;
    }
}
