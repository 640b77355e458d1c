// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'set': changes the values of one object.

#include <algorithm>
#include <memory>
#include <optional>

#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "store_access.h"

namespace zelkm_tool {
namespace {

constexpr size_t kAccessor = 3;
constexpr size_t kPrivAcc = 5;

struct SetOptions {
    std::string name;
    std::optional<std::string> values[5];  // in the order of the columns
    std::string add_accessor;
    std::string remove_accessor;
    std::optional<bool> privileged;
    bool dry_run = false;
    bool as_is = false;
};

constexpr const char* kValueOptions[5] = {"--alias", "--creator", "--admin", "--accessor",
                                          "--creator-uid"};

void check(const std::string& option, size_t column, const std::string& value, bool as_is) {
    if (value.empty() && column >= 2) {
        return;  // removes the value
    }
    if (const auto reason = givenValueProblem(kColumnNames[column], value, as_is)) {
        throw WrongUsage(option + ": " + *reason);
    }
}

// The list without the items of another one.
std::string without(std::string_view list, std::string_view items) {
    const auto forEachItem = [](std::string_view text, const auto& action) {
        while (!text.empty()) {
            const size_t end = std::min(text.find(','), text.size());
            action(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    };
    std::string left;
    forEachItem(list, [&](std::string_view item) {
        bool goes = false;
        forEachItem(items, [&](std::string_view other) { goes = goes || other == item; });
        if (!goes) {
            left += (left.empty() ? "" : ",") + std::string(item);
        }
    });
    return left;
}

Row changed(Row object, const SetOptions& options) {
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

void set(const SessionOptions& session_options, const SetOptions& options) {
    for (size_t i = 0; i < kPrivAcc; ++i) {
        if (options.values[i]) {
            check(kValueOptions[i], i, *options.values[i], options.as_is);
        }
    }
    check("--add-accessor", kAccessor, options.add_accessor, options.as_is);

    Session session(session_options, Session::Use::kStore);
    std::vector<Row> objects = select(session, {}, parseColumns(""));
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
        return printTable(std::cout, changes, terminalWidth());
    }
    storeObjects(session, objects, "nothing was changed");
    confirm(session_options, "changed " + name);
}

}  // namespace

void defineSet(CLI::App& app, const SessionOptions& session) {
    auto options = std::make_shared<SetOptions>();
    CLI::App* command = app.add_subcommand("set", "Change an object: its name, or who may use it");
    command->add_option("NAME", options->name, "CREATOR::ALIAS, as aliases shows it")
        ->required()
        ->type_name("");
    const char* const descriptions[5] = {"New alias", "New creator", "New administrators",
                                         "New list of patterns: who may use it",
                                         "New creator's uid"};
    for (size_t i = 0; i < kPrivAcc; ++i) {
        command->add_option(kValueOptions[i], options->values[i], descriptions[i])
            ->type_name(i == 2 || i == 3 ? "A,B" : "VALUE");
    }
    command->add_option("--add-accessor", options->add_accessor, "Patterns to add")
        ->type_name("A,B");
    command->add_option("--remove-accessor", options->remove_accessor, "Patterns to remove")
        ->type_name("A,B");
    command->add_option("--privileged", options->privileged, "Whether it has privileged access")
        ->type_name("yes|no");
    command->add_flag("--dry-run", options->dry_run, "Only show what would change");
    command->add_flag("--as-is", options->as_is, "Accept any value that the store can hold");
    command->footer(
        "An empty value, as in --admin '', removes the old one. The change is atomic:\n"
        "an interruption leaves the old object or the new one.\n"
        "\n"
        "  zelkm --dir store set app::key1 --add-accessor 10042\n"
        "  zelkm --dir store set app::key1 --alias key2 --dry-run");
    command->callback([&session, options] { set(session, *options); });
}

}  // namespace zelkm_tool
