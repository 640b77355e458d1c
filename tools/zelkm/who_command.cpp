// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'who': which objects a subject may use, and who may use an object.

#include <algorithm>
#include <memory>

#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "store_access.h"

namespace zelkm_tool {
namespace {

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

}  // namespace

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
