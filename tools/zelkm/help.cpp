// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The helps, the command 'help', and the manual page, which is made of the helps and so never
// differs from them.

#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <sstream>

#include "bytes.h"
#include "command_line.h"
#include "failure.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr size_t kWidth = 80;
constexpr size_t kHelpColumn = 28;  // of descriptions

std::string filled(const std::string& text, size_t width) {
    std::istringstream words(text);
    std::string result;
    size_t len = 0;  // of the last line
    for (std::string word; words >> word; result += word) {
        const bool fits = len + 1 + word.size() <= width;
        result += len == 0 ? "" : fits ? " " : "\n";
        len = len != 0 && fits ? len + 1 + word.size() : word.size();
    }
    return result;
}

// Fills all lines to the width of a terminal, but for those of a footer that begin with two blanks.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_footer(const CLI::App* app) const override {
        const std::string footer = app->get_footer() + "\n";
        std::string result;
        std::string paragraph;
        for (const std::string_view line : split(footer, '\n')) {
            if (!line.empty() && line.substr(0, 2) != "  ") {
                paragraph += " " + std::string(line);
                continue;
            }
            result += paragraph.empty() ? "" : filled(paragraph, kWidth) + "\n";
            result += std::string(line) + "\n";
            paragraph.clear();
        }
        result.erase(result.find_last_not_of('\n') + 1);
        return result + (result.empty() ? "" : "\n");
    }

    // Without the options that exclude each other: a wrong command line names them.
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool is_list = option->get_expected_max() == CLI::detail::expected_max_vector_size;
        const std::string type = option->get_type_size() == 0 ? "" : option->get_type_name();
        return (type.empty() ? "" : " " + type) + (is_list ? " ..." : "") +
               (option->get_required() ? " REQUIRED" : "");
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        return filled(option->get_description(), kWidth - get_column_width());
    }
};

// Escapes a line so that man(1) prints it unchanged.
std::string roffLine(std::string_view line) {
    std::string result = line.substr(0, 1).find_first_of(".'") == line.npos ? "" : "\\&";
    for (const char c : line) {
        result += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return result;
}

// Makes roff of a help, or of a part of one. A line that ends with a colon and has others below it,
// which stay as they are, is a heading where there are sections.
std::string roff(const std::string& help, bool with_sections) {
    std::string page;
    bool after_empty_line = true;
    const std::vector<std::string_view> lines = split(help, '\n');
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        const size_t start = std::min(line.find_first_not_of(' '), line.size());
        const size_t name_end = std::min(line.find(' ', start), line.size());
        const std::string_view behind = line.substr(name_end);
        const bool is_item = start == 2 && (line[2] == '-' || behind.substr(0, 2) == "  " ||
                                            behind.substr(0, 10) == " REQUIRED ");
        const bool begins = after_empty_line && !line.empty() && !is_item;
        after_empty_line = line.empty();
        if (with_sections && start == 0 && !line.empty() && line.back() == ':' &&
            lines[i + 1].substr(0, 2) == "  ") {
            std::string heading(line.substr(0, line.size() - 1));
            std::transform(heading.begin(), heading.end(), heading.begin(), ::toupper);
            page += ".SH " + heading + "\n";
            continue;
        }
        page += begins ? ".PP\n" : "";
        if (is_item) {  // "  NAME TYPE  MEANING"
            const size_t type_end = std::min(line.find("  ", name_end), line.size());
            const size_t meaning = std::min(line.find_first_not_of(' ', type_end), line.size());
            page += ".TP\n\\fB" + roffLine(line.substr(2, name_end - 2)) + "\\fR" +
                    roffLine(line.substr(name_end, type_end - name_end)) + "\n";
            page += meaning == line.size() ? "" : roffLine(line.substr(meaning)) + "\n";
        } else if (start == 2) {
            // Examples begin further left, so that they fit.
            page += ".nf\n.in -3n\n" + roffLine(line.substr(2)) + "\n.in\n.fi\n";
        } else if (!line.empty()) {
            page += roffLine(line.substr(start)) + "\n";
        }
    }
    return page;
}

std::string manPage(const CLI::App& app) {
    const HelpFormatter formatter;
    const std::string footer = roff(formatter.make_footer(&app), /*with_sections=*/true);
    const size_t sections = std::min(footer.find(".SH "), footer.size());
    const std::string options = formatter.make_groups(&app, CLI::AppFormatMode::Normal);
    std::string page =
        ".TH ZELKM 1 \"\" \"" + roffLine(app.version()) + "\" \"User Commands\"\n" +
        ".ad l\n.nh\n.SH NAME\nzelkm \\- work on a store of secure objects, and on keys\n" +
        ".SH SYNOPSIS\n\\fBzelkm\\fR [\\fIoptions\\fR] \\fIcommand\\fR " +
        "[\\fIoptions\\fR] [\\fIarguments\\fR]\n" + ".SH DESCRIPTION\n" +
        roffLine(app.get_description()) + "\n" + footer.substr(0, sections) +
        ".SH OPTIONS\nOf all commands; they may stand before a command or after it.\n" +
        roff(options.substr(options.find("  ")), /*with_sections=*/false) + ".SH COMMANDS\n";
    for (const CLI::App* command :
         app.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); })) {
        page += ".SS " + roffLine(command->get_name()) + " [\\fIoptions\\fR]";
        for (const CLI::Option* operand :
             command->get_options([](const CLI::Option* each) { return each->get_positional(); })) {
            page += " " + roffLine(formatter.make_option_usage(operand));
        }
        page +=
            "\n" + roff(command->get_description() + ".\n" + formatter.make_positionals(command) +
                            formatter.make_groups(command, CLI::AppFormatMode::Sub) + "\n" +
                            formatter.make_footer(command),
                        /*with_sections=*/false);
    }
    return page + footer.substr(sections) +
           ".SH FILES\nThe pages that messages name, such as docs/diagnostics.md, are in " +
           "share/doc/zelkeymaster, beside the folder of this program.\n";
}

}  // namespace

std::shared_ptr<CLI::FormatterBase> helpFormatter() {
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kHelpColumn);
    return formatter;
}

void defineHelp(CLI::App& app, const SessionOptions&) {
    auto name = std::make_shared<std::string>();
    CLI::App& command = *app.add_subcommand("help", "Show help for a command");
    addOption(command, "COMMAND", *name, "", "The command; default: an overview of all");
    command.callback([&app, name] {
        const auto found =
            app.get_subcommands([&](CLI::App* each) { return each->get_name() == *name; });
        if (found.empty() && !name->empty()) {
            throw WrongUsage("unknown command " + escape(*name) + "; see 'zelkm help'");
        }
        // The application's own help() would show that of the command given, which is this one.
        std::cout << (found.empty() ? app.get_formatter()->make_help(&app, app.get_name(),
                                                                     CLI::AppFormatMode::Normal)
                                    : found.front()->help(app.get_name()));
    });

    // The build makes the manual page with this command, which no help names.
    app.add_subcommand("man-page")->group("")->callback([&app] { std::cout << manPage(app); });
}

}  // namespace zelkm_tool
