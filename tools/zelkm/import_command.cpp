// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "import_command.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <utility>
#include <vector>

#include "failure.h"
#include "files.h"
#include "long_work.h"
#include "object_reader.h"
#include "store_access.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMaxNamed = 20;  // this many bad objects are named in a message

using Name = std::pair<std::string, std::string>;  // alias and creator

std::string whyNotImported(const Row& values, bool as_is) {
    for (size_t i = 0; i < values.size(); ++i) {
        const std::string_view column = kColumnNames[i];
        const bool needed = i < 2 && !as_is;
        if (values[i].empty() && !needed) {
            continue;
        }
        const auto reason = as_is ? whyNotWritable(values[i]) : whyNotStored(column, values[i]);
        if (reason) {
            return std::string(column) + ": " + *reason;
        }
    }
    const bool empty = std::all_of(values.begin(), values.end(),
                                   [](const std::string& value) { return value.empty(); });
    return empty ? "no value at all" : "";
}

void nameProblems(const std::string& file, const std::vector<ReadObject>& bad) {
    for (size_t i = 0; i < std::min(bad.size(), kMaxNamed); ++i) {
        std::cerr << "zelkm: " << file << ": " << bad[i].place << ": " << bad[i].problem << '\n';
    }
    if (bad.size() > kMaxNamed) {
        std::cerr << "zelkm: and " << bad.size() - kMaxNamed << " more\n";
    }
}

void storeAll(Session& session, const std::vector<ReadObject>& objects) {
    LongWork work(session.options(), "importing", objects.size());
    const std::string of_all = " of " + numObjects(objects.size());
    for (size_t i = 0; i < objects.size(); ++i) {
        const std::string so_far = std::to_string(i) + of_all + " are stored";
        if (!work.goesOn(i)) {
            throw Refused("interrupted before " + objects[i].place + ": " + so_far);
        }
        session.checkStoreResult(insert(session, objects[i].values),
                                 so_far + "; " + objects[i].place);
    }
}

}  // namespace

void importObjects(const SessionOptions& session_options, const ImportOptions& options) {
    const std::string file = options.file == "-" ? "standard input" : options.file;
    std::vector<ReadObject> objects;
    try {
        objects = readObjects(readInput(options.file));
    } catch (const Refused& refused) {
        throw Refused(file + ": " + refused.what());
    }

    Session session(session_options, Session::Use::kStore);
    std::set<Name> names;
    for (const Row& row : select(session, {}, parseColumns(""))) {
        names.emplace(row[0], row[1]);
    }
    for (ReadObject& object : objects) {
        const Row& values = object.values;
        if (object.problem.empty()) {
            object.problem = whyNotImported(values, options.as_is);
        }
        if (object.problem.empty() && !names.emplace(values[0], values[1]).second &&
            !options.as_is) {
            object.problem = "creator " + escape(values[1]) + " has an object with the alias " +
                             escape(values[0]) + " already";
        }
    }
    const auto first_bad =
        std::stable_partition(objects.begin(), objects.end(),
                              [](const ReadObject& object) { return object.problem.empty(); });
    const std::vector<ReadObject> bad(first_bad, objects.end());
    objects.erase(first_bad, objects.end());
    nameProblems(file, bad);
    if (!bad.empty() && !options.keep_going) {
        throw Refused("nothing was stored; --keep-going leaves out " + numObjects(bad.size()));
    }
    storeAll(session, objects);
    confirm(session_options, "imported " + numObjects(objects.size()));
    if (!bad.empty()) {
        throw Refused("left out " + numObjects(bad.size()));
    }
}

}  // namespace zelkm_tool
