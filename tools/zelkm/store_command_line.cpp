// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on secure objects; see command_line.h.

#include <memory>

#include "command_line.h"
#include "store_commands.h"

namespace zelkm_tool {
namespace {

constexpr char kWhereHelp[] = "A condition; if several are given, all must hold";

void defineAdd(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<AddOptions>();
    CLI::App* command = app.add_subcommand("add", "Store an object");
    command->add_option("--alias", options->alias, "Name of the key")
        ->required()
        ->type_name("VALUE");
    command->add_option("--creator", options->creator, "Its creator")
        ->required()
        ->type_name("VALUE");
    command->add_option("--admin", options->admin, "Its administrators")->type_name("A,B");
    command->add_option("--accessor", options->accessor, "Who may use it: patterns")
        ->type_name("A,B");
    command->add_option("--creator-uid", options->creator_uid, "The creator's uid")->type_name("N");
    command->add_flag("--privileged", options->privileged, "Mark it for privileged access");
    command->add_flag("--duplicate", options->duplicate, "Add it even if it exists already");
    command->add_flag("--as-is", options->as_is, "Accept any value that the store can hold");
    command->footer(
        "The library does not require unique aliases. zelkm refuses a second object with the\n"
        "same creator and alias, unless --duplicate is given.\n"
        "\n"
        "Useless values are refused, too: those that no condition can match; in --accessor,\n"
        "patterns that never match, such as [9..1], [1..5 or 10*00; blanks around an item of\n"
        "a list. --as-is stores them anyway.");
    command->callback([&session, options] { addObject(session, *options); });
}

void defineList(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = app.add_subcommand("list", "Show objects: all, or those that match");
    command->add_option("--where", options->where, kWhereHelp)->type_name("COLUMN=VALUE");
    command->add_option("--columns", options->columns, "Columns to show; default all")
        ->type_name("COLUMN,...");
    defineFormats(*command, options->format);
    command->footer(
        "The table shows bytes that are not printable as \\xNN, and a backslash as \\\\. On a\n"
        "terminal, long values are cut to fit its width, with an ellipsis.\n"
        "\n"
        "JSON is an array of objects keyed by column name; a value that is not UTF-8 is\n"
        "{\"hex\": \"...\"} there. CSV is RFC 4180, with the raw bytes of the values, except on a\n"
        "terminal; a spreadsheet treats a value that begins with = + - @ as a formula.");
    command->callback([&session, options] { listObjects(session, *options); });
}

void defineShow(CLI::App& app, const SessionOptions& session) {
    auto name = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("show", "Show one object, column by column");
    command->add_option("NAME", *name, "CREATOR::ALIAS, as aliases shows it")
        ->required()
        ->type_name("");
    command->add_flag("--json", *json, "Print JSON, as list does");
    command->footer("If several objects have this name, all are shown.");
    command->callback([&session, name, json] { showObjects(session, *name, *json); });
}

void defineExport(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<ListOptions>();
    options->format = Format::kJson;
    CLI::App* command = app.add_subcommand("export", "Print the whole store");
    CLI::Option* csv = command->add_flag_callback(
        "--csv", [options] { options->format = Format::kCsv; }, "Print CSV");
    command->add_flag("--json", "Print JSON; the default")->excludes(csv);
    command->footer(
        "An import restores every value byte for byte:\n"
        "\n"
        "  zelkm --dir store export > objects.json\n"
        "  zelkm --dir other import --as-is objects.json");
    command->callback([&session, options] { listObjects(session, *options); });
}

void defineRemove(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<RemoveOptions>();
    CLI::App* command = app.add_subcommand("remove", "Delete the objects that match");
    command->add_option("--where", options->where, kWhereHelp)->type_name("COLUMN=VALUE");
    command->add_flag("--all", options->all, "Remove every object, or allow careless conditions");
    command->add_flag("--dry-run", options->dry_run, "Only show what would be removed");
    command->footer(
        "Without --where, --all is needed: it removes every object. Careless conditions\n"
        "need it, too: an unknown column (the store skips the condition), the value *\n"
        "(every object matches), the operators < <= > >= (the store knows them, but no\n"
        "object ever matches). It is no error if no object matches.");
    command->callback([&session, options] { removeObjects(session, *options); });
}

void defineAliases(CLI::App& app, const SessionOptions& session) {
    CLI::App* command = app.add_subcommand("aliases", "Show creator::alias of every object");
    command->footer(
        "Bytes that are not printable appear as \\xNN, a backslash as \\\\. With :: in a creator\n"
        "or an alias, two objects can look alike: list --columns CREATOR,ALIAS.");
    command->callback([&session] { listAliases(session); });
}

}  // namespace

void defineFormats(CLI::App& command, Format& format) {
    const std::pair<const char*, Format> formats[] = {
        {"--json", Format::kJson}, {"--csv", Format::kCsv}, {"--count", Format::kCount}};
    CLI::Option* group[3] = {};
    const char* const descriptions[] = {"Print JSON", "Print CSV", "Print the number of objects"};
    for (size_t i = 0; i < 3; ++i) {
        group[i] = command.add_flag_callback(
            formats[i].first, [&format, value = formats[i].second] { format = value; },
            descriptions[i]);
        for (size_t other = 0; other < i; ++other) {
            group[i]->excludes(group[other]);
        }
    }
}

void defineStoreCommands(CLI::App& app, const SessionOptions& session) {
    defineAdd(app, session);
    defineList(app, session);
    defineShow(app, session);
    defineWho(app, session);
    defineAliases(app, session);
    defineSet(app, session);
    defineRemove(app, session);
    defineImport(app, session);
    defineExport(app, session);
    defineQuery(app, session);
}

}  // namespace zelkm_tool
