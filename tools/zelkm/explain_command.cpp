// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that explains a result code, a message of the library, or a log: what it means, its
// cause, and what to do.

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "bytes.h"
#include "command_line.h"
#include "doctor_report.h"
#include "failure.h"
#include "files.h"
#include "log_reader.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;

struct ExplainOptions {
    std::vector<std::string> what;  // one code or one text; or the files of a log
    bool all = false;               // print every message and code instead
    bool json = false;
};

void printField(const char* name, const std::string& text) {
    if (!text.empty()) {
        std::cout << "    " << name << text << '\n';
    }
}

void printReasons(const Json& of) {
    printField("cause   ", of["cause"]);
    printField("to do   ", of["advice"]);
}

// What a message means, why it came, and what to do: that of the code if it only passes one on.
Json withReasons(Json json, const FoundMessage& found) {
    const Message& message = *found.message;
    const ResultCode* code = codeIn(found);
    const bool passes_on = code != nullptr && message.advice == kLookUpCode;
    json["level"] = std::string(1, message.level);
    json["meaning"] = escape(describe(found, /*with_code=*/false));
    json["code"] = code != nullptr ? Json(code->code) : Json();
    json["cause"] = passes_on ? code->cause : message.cause;
    json["advice"] = passes_on ? code->advice : message.advice;
    return json;
}

bool isNumber(const std::string& text) {
    return text.find_first_not_of("+-0123456789") == text.npos &&
           text.find_first_of("0123456789") != text.npos;
}

void printOthers(const OtherLines& others, const char* what,
                 const std::vector<std::string>& files) {
    if (others.count != 0) {
        std::cout << counted(others.count, "line") << " of " << what << "; the first is "
                  << files[others.input] << ':' << others.line << ": " << escape(others.text)
                  << '\n';
    }
}

void explainLog(const std::vector<std::string>& files, bool json) {
    std::cout << (json ? "{\"events\": [" : "");
    size_t num_events = 0;
    std::set<std::pair<const Message*, const ResultCode*>> explained;
    LogReader reader([&](const LogEvent& event) {
        const std::string& file = files[event.input];
        ++num_events;
        if (json) {  // each event in a line of its own
            std::cout << (num_events == 1 ? "\n" : ",\n")
                      << withReasons({{"file", escape(file)},
                                      {"line", event.line},
                                      {"time", escape(event.time)},
                                      {"text", escape(event.text)},
                                      {"count", event.count}},
                                     event)
                             .dump();
            return;
        }
        std::cout << file << ':' << event.line << ": "
                  << (event.time.empty() ? "" : event.time + ' ') << event.message->level << ' '
                  << escape(event.text)
                  << (event.count > 1 ? " (" + std::to_string(event.count) + " times)" : "")
                  << '\n';
        if (event.message->level != 'D') {
            printField("means   ", describe(event, /*with_code=*/true));
            // The reasons stand only below the first event of its kind and code.
            if (explained.emplace(event.message, codeIn(event)).second) {
                printReasons(withReasons({}, event));
            }
        }
    });
    for (const std::string& file : files) {
        bool is_first = true;
        readPieces(openInput(file).get(), file, [&](std::string_view piece) {
            const std::string container = is_first ? containerOf(piece).words : "";
            if (!container.empty()) {
                throw Refused(file + " " + container);
            }
            is_first = false;
            reader.read(piece);
        });
        reader.endInput();
    }
    reader.end();
    if (json) {
        std::cout << "],\n\"unknown\": " << reader.unknown().count
                  << ", \"others\": " << reader.foreign().count << "}\n";
    } else {
        std::cout << counted(num_events, "event") << '\n';
        printOthers(reader.unknown(), "the library unknown to this version", files);
        printOthers(reader.foreign(), "others", files);
    }
    if (num_events == 0) {
        throw Refused("no library message in " + files.front());
    }
}

bool isFile(const std::string& name) {
    std::error_code ignored;
    return name == "-" || std::filesystem::exists(name, ignored);
}

void explain(const SessionOptions&, const ExplainOptions& options) {
    if (options.all) {
        // The sections with the tables.
        const size_t start = kDiagnosticsPage.find("### ");
        std::cout << kDiagnosticsPage.substr(start, kDiagnosticsPage.find("\n## ", start) - start);
        return;
    }
    if (options.what.empty()) {
        throw WrongUsage("explain: give a result code, a message or a log");
    }
    const std::string& what = options.what.front();
    const bool one = options.what.size() == 1;
    for (const std::string& code : {what, '-' + what}) {  // 49 stands for -49
        if (const ResultCode* result = one ? findResultCode(code) : nullptr) {
            const Json json = {{"code", result->code},
                               {"name", result->name},
                               {"meaning", result->meaning},
                               {"cause", result->cause},
                               {"advice", result->advice}};
            std::cout << (options.json ? json.dump(2) : result->nameAndMeaning()) << '\n';
            if (!options.json) {
                printReasons(json);
            }
            return;
        }
    }
    if (one && isNumber(what)) {
        throw Refused("no result code " + what);
    }
    const auto missing = std::find_if_not(options.what.begin(), options.what.end(), isFile);
    if (missing == options.what.end()) {
        explainLog(options.what, options.json);
        return;
    }
    if (!one) {
        throw WrongUsage(*missing + ": no such file; a message with spaces needs quotes");
    }
    const std::vector<FoundMessage> found = findMessages(what);
    if (found.empty()) {
        throw Refused("neither a file nor a known message: " + escape(what));
    }
    Json array = Json::array();
    for (const FoundMessage& each : found) {
        const Message& message = *each.message;
        array.push_back(withReasons(
            {{"source", message.source}, {"format", message.format}, {"result", message.result}},
            each));
        if (!options.json) {
            std::cout << message.level << ' ' << message.source << ": " << message.format << '\n';
            printField("means   ", describe(each, /*with_code=*/true));
            printReasons(array.back());
            printField("result  ", message.result);
        }
    }
    std::cout << (options.json ? array.dump(2) + '\n' : "");
}

}  // namespace

void defineExplain(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "explain", "Explain a result code, a message or a log", explain);
    CLI::Option* what = addOption(command, "WHAT", options.what, "",
                                  "A result code, message or logs; - is standard input");
    command.add_flag("--all", options.all, "Every message and code, as Markdown")->excludes(what);
    command.add_flag("--json", options.json, "Print JSON; for a log, one event per line");
    command.footer(
        R"(A number is a result code (write -- before a negative one), and so is the name
of one. An existing file, or -, is a log: an error file, a logcat dump, or the
output of zelkm --verbose. Anything else is a message or a part of one: as
logged, or as it appears in the source, with or without the prefix of a log
line. Several files are one log; give rotated ones oldest first.

The events of a log, of any length, are shown in order. Cause and remedy follow
the first event of each kind. Lines that look like the library's but match no
known message are counted. Exit status 1: nothing was recognised.

  zelkm explain -- -49
  zelkm explain 'error in finish process : -30'
  zelkm explain zelko_err.2.txt zelko_err.1.txt zelko_err.txt
  adb logcat -d | zelkm explain -)");
}

}  // namespace zelkm_tool
