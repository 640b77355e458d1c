// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The helps, the command 'help', and the manual page, which is made of the helps and so never
// differs from them.

#include <algorithm>
#include <iostream>
#include <memory>
#include <utility>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

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

}  // namespace

std::shared_ptr<CLI::FormatterBase> helpFormatter() {
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kHelpColumn);
    return formatter;
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

}  // namespace zelkm_tool
