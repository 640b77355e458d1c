// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'remove'.

#include <iostream>
#include <memory>

#include "command_line.h"
#include "failure.h"
#include "store_access.h"

namespace zelkm_tool {
namespace {

struct RemoveOptions {
    std::vector<std::string> where;
    bool all = false;
    bool dry_run = false;
};

void removeObjects(const SessionOptions& session_options, const RemoveOptions& options) {
    if (options.where.empty() && !options.all) {
        throw WrongUsage("no condition: every object would be removed; --all does that");
    }
    const std::vector<Condition> conditions =
        parseConditions(options.where, /*careless=*/options.all, /*star_is_careless=*/true);

    Session session(session_options, Session::Use::kStore);
    const std::vector<Row> reached = select(session, conditions);
    if (options.dry_run) {
        for (const Row& object : reached) {
            std::cout << "would remove " << escape(nameOf(object)) << '\n';
        }
        confirm(session_options, "would remove " + numObjects(reached.size()));
        return;
    }
    if (!reached.empty()) {
        SODOperationParam param = paramWith(conditions);
        session.change("removing", session.numObjects() - reached.size(),
                       [&] { return session.operation().SodDelete(param); });
    }
    confirm(session_options, "removed " + numObjects(reached.size()));
}

}  // namespace

void defineRemove(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "remove", "Delete the objects that match", removeObjects);
    addOption(command, "--where", options.where, "COLUMN=VALUE", kWhereHelp);
    command.add_flag("--all", options.all, "Remove every object, or allow careless conditions");
    command.add_flag("--dry-run", options.dry_run, "Only show what would be removed");
    command.footer(R"(Without --where, --all is needed: it removes every object. Careless conditions
need it, too: an unknown column (the store skips the condition), the value *
(every object matches), the operators < <= > >= (the store knows them, but no
object ever matches). It is no error if no object matches.)");
}

}  // namespace zelkm_tool
