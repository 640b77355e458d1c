// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands that show what is stored: 'list', 'export', 'show' and 'aliases'.

#include <iostream>
#include <memory>

#include "command_line.h"
#include "output.h"
#include "store_access.h"

namespace zelkm_tool {
namespace {

struct ListOptions {
    std::vector<std::string> where;
    std::string columns;  // "A,B"; empty for all
    Format format = Format::kTable;
};

// The session ends before anything is printed. A reader who pages through the output keeps no lock.
Table selectTable(const SessionOptions& session_options, const std::vector<std::string>& columns,
                  const std::vector<Condition>& conditions = {}) {
    Session session(session_options, Session::Use::kStore);
    return {columns, select(session, conditions, columns)};
}

void listObjects(const SessionOptions& session_options, const ListOptions& options) {
    const std::vector<Condition> conditions =
        parseConditions(options.where, /*careless=*/false, /*star_is_careless=*/false);
    print(selectTable(session_options, parseColumns(options.columns), conditions), options.format);
}

void listAliases(const SessionOptions& session_options) {
    bool ambiguous = false;
    for (const Row& row : selectTable(session_options, {"CREATOR", "ALIAS"}).rows) {
        const std::string name = row[0] + kBetween + row[1];
        std::cout << escape(name) << '\n';
        ambiguous = ambiguous || name.find(kBetween) != name.rfind(kBetween);
    }
    if (ambiguous) {
        note(session_options,
             "a creator or an alias has :: in it; 'zelkm list --columns CREATOR,ALIAS' tells them "
             "apart");
    }
}

void showObjects(const SessionOptions& session_options, const std::string& name, bool json) {
    const Table all = selectTable(session_options, parseColumns(""));
    Table found = {all.columns, {}};
    for (const size_t i : findNamed(all.rows, name)) {
        found.rows.push_back(all.rows[i]);
    }
    if (json) {
        return print(found, Format::kJson);
    }
    for (const Row& row : found.rows) {
        Table lines = {{"COLUMN", "VALUE"}, {}};
        for (size_t i = 0; i < row.size(); ++i) {
            lines.rows.push_back({found.columns[i], row[i]});
        }
        std::cout << (&row == &found.rows.front() ? "" : "\n");
        printTable(std::cout, lines);
    }
}

}  // namespace

void defineFormats(CLI::App& command, Format& format) {
    const struct {
        const char* name;
        Format format;
        const char* what;
    } formats[] = {{"--json", Format::kJson, "Print JSON"},
                   {"--csv", Format::kCsv, "Print CSV"},
                   {"--count", Format::kCount, "Print the number of objects"}};
    std::vector<CLI::Option*> others;
    for (const auto& each : formats) {
        CLI::Option* option = command.add_flag_callback(
            each.name, [&format, value = each.format] { format = value; }, each.what);
        for (CLI::Option* other : others) {
            option->excludes(other);
        }
        others.push_back(option);
    }
}

void defineList(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<ListOptions>();
    CLI::App& command = *app.add_subcommand("list", "Show objects: all, or those that match");
    addOption(command, "--where", options->where, "COLUMN=VALUE", kWhereHelp);
    addOption(command, "--columns", options->columns, "COLUMN,...", "Columns to show; default all");
    defineFormats(command, options->format);
    command.footer(
        "The table shows bytes that are not printable as \\xNN, and a backslash as \\\\. On a\n"
        "terminal, long values are cut to fit its width, with an ellipsis.\n"
        "\n"
        "JSON is an array of objects keyed by column name; a value that is not UTF-8 is\n"
        "{\"hex\": \"...\"} there. CSV is RFC 4180, with the raw bytes of the values, except on a\n"
        "terminal; a spreadsheet treats a value that begins with = + - @ as a formula.");
    command.callback([&session, options] { listObjects(session, *options); });
}

void defineShow(CLI::App& app, const SessionOptions& session) {
    auto name = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    CLI::App& command = *app.add_subcommand("show", "Show one object, column by column");
    addOption(command, "NAME", *name, "", "CREATOR::ALIAS, as aliases shows it")->required();
    command.add_flag("--json", *json, "Print JSON, as list does");
    command.footer("If several objects have this name, all are shown.");
    command.callback([&session, name, json] { showObjects(session, *name, *json); });
}

void defineAliases(CLI::App& app, const SessionOptions& session) {
    CLI::App& command = *app.add_subcommand("aliases", "Show creator::alias of every object");
    command.footer(
        "Bytes that are not printable appear as \\xNN, a backslash as \\\\. With :: in a creator\n"
        "or an alias, two objects can look alike: list --columns CREATOR,ALIAS.");
    command.callback([&session] { listAliases(session); });
}

void defineExport(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<ListOptions>();
    options->format = Format::kJson;
    CLI::App& command = *app.add_subcommand("export", "Print the whole store");
    CLI::Option* csv = command.add_flag_callback(
        "--csv", [options] { options->format = Format::kCsv; }, "Print CSV");
    command.add_flag("--json", "Print JSON; the default")->excludes(csv);
    command.footer(
        "An import restores every value byte for byte:\n"
        "\n"
        "  zelkm --dir store export > objects.json\n"
        "  zelkm --dir other import --as-is objects.json");
    command.callback([&session, options] { listObjects(session, *options); });
}

}  // namespace zelkm_tool
