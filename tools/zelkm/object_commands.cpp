// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands that change objects: 'add' and 'set', which take the values of one from the command
// line, 'remove', and 'import', which stores many in one change, from a file.

#include <algorithm>
#include <iostream>
#include <optional>
#include <set>
#include <utility>

#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "object_reader.h"
#include "output.h"
#include "session.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

constexpr size_t kAccessor = 3;
constexpr size_t kPrivAcc = 5;

constexpr struct {
    const char* name;
    const char* type;
    const char* what;
} kValueOptions[kPrivAcc] = {{"--alias", "VALUE", "Name of the key"},
                             {"--creator", "VALUE", "Its creator"},
                             {"--admin", "A,B", "Its administrators"},
                             {"--accessor", "A,B", "Who may use it: patterns"},
                             {"--creator-uid", "N", "The creator's uid"}};

struct ObjectOptions {
    std::optional<std::string> values[kPrivAcc];  // in the order of the columns
    bool as_is = false;                           // also store values that no condition can ask for
    // Of 'add'.
    bool mark = false;
    bool duplicate = false;
    // Of 'set'.
    std::string name;
    std::string add_accessor;
    std::string remove_accessor;
    std::optional<bool> privileged;
    bool dry_run = false;
};

void checkValue(const std::string& option, size_t column, const std::string& value, bool as_is) {
    if (const auto reason = storedValueProblem(kColumnNames[column], value, as_is)) {
        throw WrongUsage(option + ": " + *reason);
    }
}

void addObject(const SessionOptions& session_options, const ObjectOptions& options) {
    Row object;
    for (size_t i = 0; i < kPrivAcc; ++i) {
        if (options.values[i]) {
            checkValue(kValueOptions[i].name, i, *options.values[i], options.as_is);
        }
        object.push_back(options.values[i].value_or(""));
    }
    object.push_back(options.mark ? kPrivileged : "");

    Session session(session_options, Session::Use::kStore);
    // Reads all columns: a store that cannot be read back correctly must not be written again.
    std::vector<Row> objects = select(session);
    const auto same_name = [&](const Row& row) {
        return row[0] == object[0] && row[1] == object[1];
    };
    if (!options.duplicate && std::any_of(objects.begin(), objects.end(), same_name)) {
        throw Refused("creator " + escape(object[1]) + " already has an object with the alias " +
                      escape(object[0]) + "; --duplicate adds another one");
    }
    objects.push_back(object);
    checkStoreLen(session_options, plainStore(objects).size());
    SODOperationParam param = paramOf(object);
    session.change("adding the object", objects.size(),
                   [&] { return session.operation().SodInsert(param); });
    confirm(session_options, "added " + escape(nameOf(object)));
}

// The list without the items of another one.
std::string without(std::string_view list, std::string_view others) {
    const std::vector<std::string_view> out = split(others, ',');
    std::string left;
    for (const std::string_view item : split(list, ',')) {
        if (std::find(out.begin(), out.end(), item) == out.end()) {
            left += (left.empty() ? "" : ",") + std::string(item);
        }
    }
    return left;
}

Row changed(Row object, const ObjectOptions& options) {
    for (size_t i = 0; i < kPrivAcc; ++i) {
        object[i] = options.values[i].value_or(object[i]);
    }
    std::string& accessor = object[kAccessor];
    if (!options.remove_accessor.empty()) {
        accessor = without(accessor, options.remove_accessor);
    }
    const std::string added = without(options.add_accessor, accessor);
    accessor += (accessor.empty() || added.empty() ? "" : ",") + added;
    if (options.privileged) {
        object[kPrivAcc] = *options.privileged ? kPrivileged : "";
    }
    return object;
}

void setObject(const SessionOptions& session_options, const ObjectOptions& options) {
    for (size_t i = 0; i < kPrivAcc; ++i) {
        const bool removes = i >= 2 && options.values[i] == "";
        if (options.values[i] && !removes) {
            checkValue(kValueOptions[i].name, i, *options.values[i], options.as_is);
        }
    }
    if (!options.add_accessor.empty()) {
        checkValue("--add-accessor", kAccessor, options.add_accessor, options.as_is);
    }

    Session session(session_options, Session::Use::kStore);
    std::vector<Row> objects = select(session);
    const std::vector<size_t> found = findNamed(objects, options.name);
    if (found.size() != 1) {
        throw Refused(counted(found.size(), "object") + " named " + escape(options.name) +
                      ": 'export' them, change the text, 'remove' them and 'import' it");
    }
    Row& object = objects[found[0]];
    const Row before = object;
    object = changed(before, options);
    const std::string name = escape(nameOf(object));
    const auto same_name = [&](const Row& row) { return nameOf(row) == nameOf(object); };
    if (nameOf(before) != nameOf(object) && !options.as_is &&
        std::count_if(objects.begin(), objects.end(), same_name) != 1) {
        throw Refused("there is already an object " + name);
    }
    Table changes = {{"COLUMN", "BEFORE", "AFTER"}, {}};
    for (size_t i = 0; i < object.size(); ++i) {
        if (object[i] != before[i]) {
            changes.rows.push_back({std::string(kColumnNames[i]), before[i], object[i]});
        }
    }
    if (changes.rows.empty()) {
        return confirm(session_options, "nothing to change in " + name);
    }
    if (options.dry_run) {
        confirm(session_options, "would change " + escape(nameOf(before)));
        return print(changes, Format::kTable);
    }
    storeObjects(session, objects, "nothing was changed");
    confirm(session_options, "changed " + name);
}

void defineValues(CLI::App& command, ObjectOptions& options, bool is_new) {
    for (size_t i = 0; i < kPrivAcc; ++i) {
        const auto& [name, type, what] = kValueOptions[i];
        addOption(command, name, options.values[i], type, what)->required(is_new && i < 2);
    }
    command.add_flag("--as-is", options.as_is, "Accept any value that the store can hold");
}

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
        confirm(session_options, "would remove " + counted(reached.size(), "object"));
        return;
    }
    if (!reached.empty()) {
        SODOperationParam param = paramWith(conditions);
        session.change("removing", session.numObjects() - reached.size(),
                       [&] { return session.operation().SodDelete(param); });
    }
    confirm(session_options, "removed " + counted(reached.size(), "object"));
}

constexpr size_t kMaxNamed = 20;  // this many bad objects are named in a message

struct ImportOptions {
    std::string file;         // "-" is standard input
    bool keep_going = false;  // leave out objects that cannot be stored, and store the others
    bool as_is = false;       // also store what 'add' refuses without --as-is
};

std::string importProblem(const Row& values, bool as_is) {
    for (size_t i = 0; i < values.size(); ++i) {
        const std::string column(kColumnNames[i]);
        if (values[i].empty() && i < 2 && !as_is) {
            return column + " is missing";
        }
        const auto reason = storedValueProblem(column, values[i], as_is);
        if (!values[i].empty() && reason) {
            return column + ": " + *reason;
        }
    }
    const bool empty = std::all_of(values.begin(), values.end(),
                                   [](const std::string& value) { return value.empty(); });
    return empty ? "no value at all" : "";
}

void import(const SessionOptions& session_options, const ImportOptions& options) {
    const std::string file = options.file == "-" ? "standard input" : options.file;
    const std::string text = readInput(options.file);
    Session session(session_options, Session::Use::kStore);
    std::vector<Row> objects = select(session);
    const size_t before = objects.size();
    std::set<std::pair<std::string, std::string>> names;
    for (const Row& row : objects) {
        names.emplace(row[0], row[1]);
    }

    size_t num_bad = 0;
    const auto take = [&](const std::string& place, Row&& values, std::string problem) {
        if (problem.empty()) {
            problem = importProblem(values, options.as_is);
        }
        if (problem.empty() && !options.as_is && !names.emplace(values[0], values[1]).second) {
            problem = "creator " + escape(values[1]) + " already has an object with the alias " +
                      escape(values[0]);
        }
        if (problem.empty()) {
            objects.push_back(std::move(values));
        } else if (++num_bad <= kMaxNamed) {
            std::cerr << "zelkm: " << file << ": " << place << ": " << problem << '\n';
        }
    };
    try {
        readObjects(text, take);
    } catch (const Refused& refused) {
        throw Refused(file + ": " + refused.what());
    }
    if (num_bad > kMaxNamed) {
        std::cerr << "zelkm: and " << num_bad - kMaxNamed << " more\n";
    }
    if (num_bad != 0 && !options.keep_going) {
        throw Refused("nothing was stored; --keep-going leaves out " + counted(num_bad, "object"));
    }
    const size_t imported = objects.size() - before;
    if (imported != 0) {
        storeObjects(session, objects, "storing the objects");
    }
    confirm(session_options, "imported " + counted(imported, "object"));
    if (num_bad != 0) {
        throw Refused("left out " + counted(num_bad, "object"));
    }
}

}  // namespace

void defineAdd(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] = addCommand(app, session, "add", "Store an object", addObject);
    defineValues(command, options, /*is_new=*/true);
    command.add_flag("--privileged", options.mark, "Mark it for privileged access");
    command.add_flag("--duplicate", options.duplicate, "Add it even if it exists already");
    command.footer(
        R"(The library does not require unique aliases. zelkm refuses a second object with
the same creator and alias, unless --duplicate is given.

Useless values are refused, too: those that no condition can match; in
--accessor, patterns that never match, such as [9..1], [1..5 or 10*00; blanks
around an item of a list. --as-is stores them anyway.)");
}

void defineSet(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "set", "Change an object: its name, or who may use it", setObject);
    addOption(command, "NAME", options.name, "", "CREATOR::ALIAS, as aliases shows it")->required();
    defineValues(command, options, /*is_new=*/false);
    addOption(command, "--add-accessor", options.add_accessor, "A,B", "Patterns to add");
    addOption(command, "--remove-accessor", options.remove_accessor, "A,B", "Patterns to remove");
    addOption(command, "--privileged", options.privileged, "yes|no",
              "Whether it has privileged access");
    command.add_flag("--dry-run", options.dry_run, "Only show what would change");
    command.footer(
        R"(An empty value, as in --admin '', removes the old one. The change is atomic: an
interruption leaves the old object or the new one.

  zelkm --dir store set app::key1 --add-accessor 10042
  zelkm --dir store set app::key1 --alias key2 --dry-run)");
}

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

void defineImport(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "import", "Store objects from a file", import);
    addOption(command, "FILE", options.file, "", "CSV or JSON; - is standard input")->required();
    command.add_flag("--keep-going", options.keep_going, "Skip objects that cannot be stored");
    command.add_flag("--as-is", options.as_is,
                     "Accept duplicates, and any value the store can hold");
    command.footer(R"(Reads what list and export print. CSV begins with the column names, in any
order; commas, semicolons or tabs separate the values. JSON is an array, or
objects one after the other. A missing value is the same as an empty one.

All objects are checked first, as by add: if one is refused, its line is
reported and nothing is stored. Then all are stored in one atomic change: after
an interruption the store has all of them, or none.)");
}

}  // namespace zelkm_tool
