// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "generated_pages.h"

#include <soft_keymaster/fault_keymaster.h>

#include <algorithm>
#include <cctype>
#include <vector>

#include "help_text.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

// Types of values that the completion knows.
constexpr char kColumnsType[] = "COLUMN,...";
constexpr char kConditionType[] = "COLUMN=VALUE";
constexpr char kDirectoryType[] = "DIR";
constexpr char kFaultType[] = "FAULT";

std::vector<const CLI::App*> visibleCommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); });
}

// The positional options, or the others. The --help of each command is left out: the page mentions
// it once.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional) {
    return app.get_options([&](const CLI::Option* each) {
        const bool repeated = app.get_parent() != nullptr && each == app.get_help_ptr();
        return each->get_positional() == positional && !repeated;
    });
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() != 0;
}

// Escapes a text so that man(1) prints it unchanged.
std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool line_start = result.empty() || result.back() == '\n';
        if (line_start && (c == '.' || c == '\'')) {
            result += "\\&";
        }
        if (c == '\\') {
            result += "\\e";
        } else {
            result += c == '-' ? "\\-" : std::string(1, c);
        }
    }
    return result;
}

// "  NAME  MEANING", with two blanks or more between them, is an item of a list.
bool isItem(const std::string& line) {
    const size_t name_end = line.find(' ', 2);
    return line.size() > 2 && line[2] != ' ' && name_end != std::string::npos &&
           line.compare(name_end, 2, "  ") == 0;
}

std::string describeLines(const std::vector<std::string>& lines) {
    const bool is_list = std::all_of(lines.begin(), lines.end(), isItem);
    std::string text = is_list ? "" : ".nf\n";
    for (const std::string& line : lines) {
        const size_t name_end = line.find(' ', 2);
        text += is_list ? ".TP\n\\fB" + quoted(line.substr(2, name_end - 2)) + "\\fR\n" +
                              quoted(line.substr(line.find_first_not_of(' ', name_end))) + "\n"
                        : quoted(line.substr(2)) + "\n";
    }
    return text + (is_list ? "" : ".fi\n");
}

// The text of a footer. A line that ends with a colon and has others below it, which stay as they
// are, is a heading where there are sections.
std::string describeFooter(const std::string& footer, bool with_sections) {
    std::string page;
    const std::vector<HelpText> texts = parseHelp(footer);
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string& first = texts[i].lines.front();
        const bool is_heading = with_sections && !texts[i].as_is && first.back() == ':' &&
                                i + 1 < texts.size() && texts[i + 1].as_is;
        if (is_heading) {
            std::string heading = first.substr(0, first.size() - 1);
            std::transform(heading.begin(), heading.end(), heading.begin(), ::toupper);
            page += ".SH " + heading + "\n";
        } else if (texts[i].as_is) {
            page += (texts[i].follows_empty_line ? ".PP\n" : "") + describeLines(texts[i].lines);
        } else {
            page += ".PP\n" + quoted(first) + "\n";
        }
    }
    return page;
}

std::string namesOf(const CLI::Option& option) {
    return option.get_positional() ? option.get_name(true) : option.get_name(false, true);
}

std::string describe(const CLI::Option& option) {
    const std::string type = option.get_positional() || !takesValue(option)
                                 ? ""
                                 : " \\fI" + quoted(option.get_type_name()) + "\\fR";
    return ".TP\n\\fB" + quoted(namesOf(option)) + "\\fR" + type + "\n" +
           quoted(option.get_description()) + (option.get_required() ? "; required" : "") + ".\n";
}

std::string describe(const std::vector<const CLI::Option*>& options) {
    std::string text;
    for (const CLI::Option* option : options) {
        text += describe(*option);
    }
    return text;
}

std::string describeCommand(const CLI::App& command) {
    std::string title = quoted(command.get_name()) + " [\\fIoptions\\fR]";
    for (const CLI::Option* operand : optionsOf(command, true)) {
        const std::string name = "\\fI" + quoted(namesOf(*operand)) + "\\fR";
        title += " " + (operand->get_required() ? name : "[" + name + "]");
    }
    return ".SS " + title + "\n" + quoted(command.get_description()) + ".\n" +
           describe(optionsOf(command, true)) + describe(optionsOf(command, false)) +
           describeFooter(command.get_footer(), /*with_sections=*/false);
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : optionsOf(app, false)) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

void addValued(const CLI::App& app, const std::string& type, std::vector<std::string>* names) {
    for (const CLI::Option* option : optionsOf(app, false)) {
        if (takesValue(*option) && (type.empty() || option->get_type_name() == type)) {
            for (const std::string& name : option->get_lnames()) {
                names->push_back("--" + name);
            }
        }
    }
}

// A shell pattern of the options, of all commands, whose values have this type. An empty type
// stands for every option that takes a value.
std::string valuedPattern(const CLI::App& app, const std::string& type) {
    std::vector<std::string> names;
    addValued(app, type, &names);
    for (const CLI::App* command : visibleCommands(app)) {
        addValued(*command, type, &names);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return joined(names, "|");
}

}  // namespace

std::string manPage(const CLI::App& app) {
    const std::string footer = describeFooter(app.get_footer(), /*with_sections=*/true);
    const size_t sections = std::min(footer.find(".SH "), footer.size());
    std::string page =
        ".TH ZELKM 1 \"\" \"" + quoted(app.version()) + "\" \"User Commands\"\n" +
        ".ad l\n.nh\n.SH NAME\nzelkm \\- work on a store of secure objects, and on keys\n" +
        ".SH SYNOPSIS\n\\fBzelkm\\fR [\\fIoptions\\fR] \\fIcommand\\fR " +
        "[\\fIoptions\\fR] [\\fIarguments\\fR]\n" + ".SH DESCRIPTION\n" +
        quoted(app.get_description()) + "\n" + footer.substr(0, sections) +
        ".SH OPTIONS\nOf all commands; they may stand before a command or after " + "it.\n" +
        describe(optionsOf(app, false)) + ".SH COMMANDS\n";
    for (const CLI::App* command : visibleCommands(app)) {
        page += describeCommand(*command);
    }
    return page + footer.substr(sections) +
           ".SH FILES\nThe pages that messages name, such as docs/diagnostics.md, are in " +
           "share/doc/zelkeymaster, beside the folder of this program.\n";
}

std::string bashCompletion(const CLI::App& app) {
    const std::string columns = joined({std::begin(kColumnNames), std::end(kColumnNames)}, " ");
    std::string faults;
    for (const soft_keymaster::NamedFault& fault : soft_keymaster::namedFaults()) {
        faults += std::string(" ") + fault.name;
    }
    std::vector<std::string> names;
    std::string cases;
    for (const CLI::App* command : visibleCommands(app)) {
        names.push_back(command->get_name());
        cases += "        " + command->get_name() + ") options+=\" " +
                 joined(optionNames(*command), " ") + "\" ;;\n";
    }
    return R"(# Completion of zelkm's commands and options for bash.

_zelkm() {
    local command="" i cur=${COMP_WORDS[COMP_CWORD]}
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        )" +
           valuedPattern(app, "") +
           R"() ((++i)) ;;
        -*) ;;
        *) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    )" + valuedPattern(app, kDirectoryType) +
           R"() mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
    )" + valuedPattern(app, kFaultType) +
           R"() mapfile -t COMPREPLY < <(compgen -W ")" + faults +
           R"(" -- "$cur"); return ;;
    )" + valuedPattern(app, kColumnsType) +
           R"() local before=${cur%"${cur##*,}"}  # the columns that are there already
        mapfile -t COMPREPLY < <(compgen -P "$before" -W ")" +
           columns + R"(" -- "${cur##*,}")
        compopt -o nospace; return ;;
    )" + valuedPattern(app, kConditionType) +
           R"() mapfile -t COMPREPLY < <(compgen -S = -W ")" + columns + R"(" -- "$cur")
        compopt -o nospace; return ;;
    )" + valuedPattern(app, "") +
           R"() return ;;  # files, by default
    esac
    local options=")" +
           joined(optionNames(app), " ") + R"("
    case $command in
)" + cases +
           R"(    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    elif [[ -z $command || $command == help ]]; then
        mapfile -t COMPREPLY < <(compgen -W ")" +
           joined(names, " ") + R"(" -- "$cur")
    fi
}

complete -o bashdefault -o default -F _zelkm zelkm
)";
}

}  // namespace zelkm_tool
