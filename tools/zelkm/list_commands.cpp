// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands that show what is stored: 'list', 'export', 'show' and 'aliases', and 'who', which
// shows which objects a subject may use, and who may use an object.

#include <algorithm>
#include <iostream>

#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "session.h"

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

const std::vector<std::string> kShownColumns = {"CREATOR", "ALIAS", "ACCESSOR"};

struct WhoOptions {
    std::string subject;
    std::string object;
    bool nobody = false;
    Format format = Format::kTable;
};

// Who is let in by an item of ACCESSOR.
std::string letIn(const std::string& pattern) {
    if (const auto reason = patternProblem(pattern)) {
        return "nobody: " + *reason;
    }
    if (pattern == "*") {
        return "everybody";
    }
    const size_t dots = pattern.find("..");
    const bool is_range = pattern[0] == '[' && pattern.find(']') == pattern.size() - 1;
    if (is_range && dots != pattern.npos) {
        const std::string low = pattern.substr(1, dots - 1);
        const std::string high = pattern.substr(dots + 2, pattern.size() - dots - 3);
        return "numbers from " + (low.empty() ? "0" : low) + " to " +
               (high.empty() ? "4294967295" : high);
    }
    const bool is_name = pattern.find_first_of("[*") == pattern.npos;
    return is_name ? "only " + pattern : "names of this pattern";
}

// One line for each item of the object's ACCESSOR.
std::vector<Row> accessorsOf(const Row& object) {
    std::vector<Row> lines;
    for (const std::string_view item : split(object[2], ',')) {
        if (!item.empty()) {
            lines.push_back({object[1], object[0], std::string(item), letIn(std::string(item))});
        }
    }
    return lines;
}

bool isForNobody(const Row& object) {
    const std::vector<Row> lines = accessorsOf(object);
    return std::all_of(lines.begin(), lines.end(),
                       [](const Row& line) { return patternProblem(line[2]).has_value(); });
}

void who(const SessionOptions& session_options, const WhoOptions& options) {
    const bool of_subject = !options.subject.empty();
    const bool of_object = !options.object.empty();
    if (of_subject + of_object + options.nobody != 1) {
        throw WrongUsage("who: give one of SUBJECT, --object and --nobody");
    }
    if (options.subject == "*") {
        throw WrongUsage("the subject * matches every object that has accessors");
    }
    std::vector<Condition> conditions;
    if (of_subject) {
        conditions.push_back(parseCondition("ACCESSOR=" + options.subject));
    }
    std::vector<Row> objects;
    Table shown = {kShownColumns, {}};
    {
        Session session(session_options, Session::Use::kStore);
        objects = select(session, {}, {"ALIAS", "CREATOR", "ACCESSOR"});
        if (of_subject) {
            shown.rows = select(session, conditions, kShownColumns);
        }
    }
    if (options.nobody) {
        for (const Row& object : objects) {
            if (isForNobody(object)) {
                shown.rows.push_back({object[1], object[0], object[2]});
            }
        }
    } else if (of_object) {
        shown.columns.emplace_back("WHO");
        for (const size_t i : findNamed(objects, options.object)) {
            const std::vector<Row> lines = accessorsOf(objects[i]);
            shown.rows.insert(shown.rows.end(), lines.begin(), lines.end());
        }
    }
    print(shown, options.format);
    const auto named = std::find_if(objects.begin(), objects.end(), [&](const Row& object) {
        return object[0] == options.subject || nameOf(object) == options.subject;
    });
    if (named != objects.end() && of_subject) {
        note(session_options, "these are the objects that " + escape(options.subject) +
                                  " may use; who may use the object is: zelkm who --object " +
                                  escape(nameOf(*named)));
    }
}

// Adds --json, --csv and --count to a command.
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

}  // namespace

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

void defineWho(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "who", "Show who may use which objects", who);
    addOption(command, "SUBJECT", options.subject, "", "A uid or another name, such as 10042");
    addOption(command, "--object", options.object, "CREATOR::ALIAS",
              "Show who may use this object");
    command.add_flag("--nobody", options.nobody, "Show the objects that nobody may use");
    defineFormats(command, options.format);
    command.footer(R"(With SUBJECT: the objects whose ACCESSOR has a pattern that matches it. With
--object: the patterns of that object, and who matches each.)");
}

}  // namespace zelkm_tool
