// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_commands.h"

#include <algorithm>
#include <iostream>

#include "failure.h"
#include "output.h"
#include "store_access.h"
#include "store_file.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

// The session ends before anything is printed. A reader who pages through the output keeps no lock.
Table selectTable(const SessionOptions& session_options, const std::vector<Condition>& conditions,
                  const std::vector<std::string>& columns) {
    Session session(session_options, Session::Use::kStore);
    return {columns, select(session, conditions, columns)};
}

}  // namespace

void addObject(const SessionOptions& session_options, const AddOptions& options) {
    const struct {
        const char* option;
        std::optional<std::string> value;
    } given[] = {{"--alias", options.alias},
                 {"--creator", options.creator},
                 {"--admin", options.admin},
                 {"--accessor", options.accessor},
                 {"--creator-uid", options.creator_uid}};
    Row object;
    for (const auto& [option, value] : given) {
        const std::string_view column = kColumnNames[object.size()];
        if (value) {
            if (const auto reason = givenValueProblem(column, *value, options.as_is)) {
                throw WrongUsage(option + (": " + *reason));
            }
        }
        object.push_back(value.value_or(""));
    }
    object.push_back(options.privileged ? kPrivileged : "");

    Session session(session_options, Session::Use::kStore);
    // Reads all columns: a store that cannot be read back correctly must not be written again.
    std::vector<Row> objects = select(session, {}, parseColumns(""));
    for (const Row& row : objects) {
        if (!options.duplicate && row[0] == object[0] && row[1] == object[1]) {
            throw Refused("creator " + escape(object[1]) +
                          " already has an object with the alias " + escape(object[0]) +
                          "; --duplicate adds another one");
        }
    }
    objects.push_back(object);
    checkStoreLen(session_options, plainStore(objects).size());
    session.change("adding the object", objects.size(), [&] { return insert(session, object); });
    confirm(session_options, "added " + escape(nameOf(object)));
}

void listObjects(const SessionOptions& session_options, const ListOptions& options) {
    const std::vector<Condition> conditions = parseConditions(options.where);
    checkConditions(conditions, /*careless=*/false, /*star_is_careless=*/false);
    print(selectTable(session_options, conditions, parseColumns(options.columns)), options.format);
}

void removeObjects(const SessionOptions& session_options, const RemoveOptions& options) {
    const std::vector<Condition> conditions = parseConditions(options.where);
    if (conditions.empty() && !options.all) {
        throw WrongUsage("no condition: every object would be removed; --all does that");
    }
    checkConditions(conditions, /*careless=*/options.all, /*star_is_careless=*/true);

    Session session(session_options, Session::Use::kStore);
    const std::vector<Row> reached = select(session, conditions, parseColumns(""));
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

void listAliases(const SessionOptions& session_options) {
    std::vector<std::string> names;
    for (const Row& row : selectTable(session_options, {}, {"CREATOR", "ALIAS"}).rows) {
        names.push_back(row[0] + kBetween + row[1]);
    }
    bool ambiguous = false;
    for (const std::string& name : names) {
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
    const Table all = selectTable(session_options, {}, parseColumns(""));
    Table found = {all.columns, {}};
    for (const size_t i : findNamed(all.rows, name)) {
        found.rows.push_back(all.rows[i]);
    }
    if (json) {
        return printJson(std::cout, found);
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

}  // namespace zelkm_tool
