// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'import': stores many objects in one change, from a file.

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "command_line.h"
#include "failure.h"
#include "files.h"
#include "object_reader.h"
#include "store_access.h"

namespace zelkm_tool {
namespace {

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
        throw Refused("nothing was stored; --keep-going leaves out " + numObjects(num_bad));
    }
    const size_t imported = objects.size() - before;
    if (imported != 0) {
        storeObjects(session, objects, "storing the objects");
    }
    confirm(session_options, "imported " + numObjects(imported));
    if (num_bad != 0) {
        throw Refused("left out " + numObjects(num_bad));
    }
}

}  // namespace

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
