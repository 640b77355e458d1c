// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on secure objects. See command_line.h.

#include <memory>

#include "command_line.h"
#include "store_commands.h"

namespace zelkm_tool {
namespace {

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

}  // namespace

void defineStoreCommands(CLI::App& app, const SessionOptions& session) {
    defineAdd(app, session);
    defineList(app, session);
    defineRemove(app, session);
    defineAliases(app, session);
    defineQuery(app, session);
}

}  // namespace zelkm_tool
