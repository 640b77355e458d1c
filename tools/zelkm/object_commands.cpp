// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands 'add' and 'set': they take the values of one object from the command line.

#include <algorithm>
#include <memory>
#include <optional>

#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "store_access.h"
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
        throw Refused(numObjects(found.size()) + " named " + escape(options.name) +
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

}  // namespace zelkm_tool
