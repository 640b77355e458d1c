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

struct ShowOptions {
    std::string name;
    bool json = false;
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

void listAliases(const SessionOptions& session_options, const ListOptions&) {
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

void showObjects(const SessionOptions& session_options, const ShowOptions& options) {
    const Table all = selectTable(session_options, parseColumns(""));
    Table found = {all.columns, {}};
    for (const size_t i : findNamed(all.rows, options.name)) {
        found.rows.push_back(all.rows[i]);
    }
    if (options.json) {
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
    const auto [command, options] =
        addCommand(app, session, "list", "Show objects: all, or those that match", listObjects);
    addOption(command, "--where", options.where, "COLUMN=VALUE", kWhereHelp);
    addOption(command, "--columns", options.columns, "COLUMN,...", "Columns to show; default all");
    defineFormats(command, options.format);
    command.footer(
        R"(The table shows bytes that are not printable as \xNN, and a backslash as \\. On
a terminal, long values are cut to fit its width, with an ellipsis.

JSON is an array of objects keyed by column name; a value that is not UTF-8 is
{"hex": "..."} there. CSV is RFC 4180, with the raw bytes of the values, except
on a terminal; a spreadsheet treats a value that begins with = + - @ as a
formula.)");
}

void defineShow(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "show", "Show one object, column by column", showObjects);
    addOption(command, "NAME", options.name, "", "CREATOR::ALIAS, as aliases shows it")->required();
    command.add_flag("--json", options.json, "Print JSON, as list does");
    command.footer(R"(If several objects have this name, all are shown.)");
}

void defineAliases(CLI::App& app, const SessionOptions& session) {
    CLI::App& command =
        addCommand(app, session, "aliases", "Show creator::alias of every object", listAliases)
            .first;
    command.footer(R"(Bytes that are not printable appear as \xNN, a backslash as \\. With :: in a
creator or an alias, two objects can look alike: list --columns CREATOR,ALIAS.)");
}

void defineExport(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "export", "Print the whole store", listObjects);
    options.format = Format::kJson;
    CLI::Option* csv = command.add_flag_callback(
        "--csv", [&format = options.format] { format = Format::kCsv; }, "Print CSV");
    command.add_flag("--json", "Print JSON; the default")->excludes(csv);
    command.footer(R"(An import restores every value byte for byte:

  zelkm --dir store export > objects.json
  zelkm --dir other import --as-is objects.json)");
}

}  // namespace zelkm_tool
