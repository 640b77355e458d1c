// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "explain_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "disguise.h"
#include "failure.h"
#include "files.h"
#include "log_reader.h"
#include "message_text.h"
#include "result_codes.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;

void printField(const char* name, const std::string& text) {
    if (!text.empty()) {
        std::cout << "    " << name << text << '\n';
    }
}

void printReasons(const std::string& cause, const std::string& advice) {
    printField("cause   ", cause);
    printField("to do   ", advice);
}

// Prints cause and advice. When a message only passes a code on, those of the code are printed.
void printReasons(const FoundMessage& found) {
    const ResultCode* code = codeIn(found);
    if (code != nullptr && found.message->advice == std::string_view(kLookUpCode)) {
        printReasons(causeOf(*code), adviceOf(*code));
    } else {
        printReasons(found.message->cause, found.message->advice);
    }
}

// Cause and advice, those of the code when the message only passes one on.
Json withReasons(Json json, const FoundMessage& found) {
    const ResultCode* code = codeIn(found);
    const bool of_code = code != nullptr && found.message->advice == std::string_view(kLookUpCode);
    json["level"] = std::string(1, letterOf(found.message->level));
    json["meaning"] = escape(describe(found, /*with_code=*/false));
    json["code"] = code != nullptr ? Json(code->code) : Json();
    json["cause"] = of_code ? causeOf(*code) : found.message->cause;
    json["advice"] = of_code ? adviceOf(*code) : found.message->advice;
    return json;
}

void printCode(const ResultCode& result, bool json) {
    if (json) {
        const Json object = {{"code", result.code},
                             {"name", result.name()},
                             {"meaning", result.meaning},
                             {"cause", causeOf(result)},
                             {"advice", adviceOf(result)}};
        std::cout << object.dump(2) << '\n';
        return;
    }
    std::cout << nameAndMeaning(result) << '\n';
    printReasons(causeOf(result), adviceOf(result));
}

// The code with this number or name; null when there is none. A positive number stands for its
// negative.
const ResultCode* findCode(const std::string& text) {
    const size_t digits = text.find_first_not_of("+-") == 1 ? 1 : 0;
    constexpr size_t kMaxDigits = 6;
    if (!text.empty() && text.find_first_not_of("0123456789", digits) == text.npos &&
        text.size() - digits <= kMaxDigits && text.size() > digits) {
        const int code = std::stoi(text);
        const ResultCode* result = findResultCode(code);
        return result != nullptr ? result : findResultCode(-code);
    }
    const auto& codes = resultCodes();
    const auto named = std::find_if(codes.begin(), codes.end(), [&text](const ResultCode& result) {
        return text == result.name() || text == std::string("ZELKM_") + result.name();
    });
    return named != codes.end() ? &*named : nullptr;
}

bool isNumber(const std::string& text) {
    return text.find_first_not_of("+-0123456789") == text.npos &&
           text.find_first_of("0123456789") != text.npos;
}

void printMessage(const FoundMessage& found) {
    const Message& message = *found.message;
    const std::string_view format = message.format;
    std::cout << letterOf(message.level) << ' ' << sourceName(message.source) << ": "
              << format.substr(0, format.find_last_not_of('\n') + 1) << '\n';
    printField("means   ", describe(found, /*with_code=*/true));
    printReasons(found);
    printField("result  ", message.result);
}

void printJson(const std::vector<FoundMessage>& messages) {
    Json array = Json::array();
    for (const FoundMessage& found : messages) {
        array.push_back(withReasons({{"source", sourceName(found.message->source)},
                                     {"format", found.message->format},
                                     {"result", found.message->result}},
                                    found));
    }
    std::cout << array.dump(2) << '\n';
}

class EventPrinter {
  public:
    // JSON has the reasons at every event, and each event in a line of its own.
    void printJson(const LogEvent& event, const std::string& file) {
        std::cout << (count_++ == 0 ? "\n" : ",\n")
                  << withReasons({{"file", escape(file)},
                                  {"line", event.line},
                                  {"time", escape(event.time)},
                                  {"text", escape(event.text)},
                                  {"count", event.count}},
                                 {event.message, event.arguments})
                         .dump();
    }

    // Prints the reasons only below the first event of its kind and code.
    void print(const LogEvent& event, const std::string& file) {
        const FoundMessage found = {event.message, event.arguments};
        std::cout << file << ':' << event.line << ": "
                  << (event.time.empty() ? "" : event.time + ' ') << letterOf(event.message->level)
                  << ' ' << escape(event.text)
                  << (event.count > 1 ? " (" + std::to_string(event.count) + " times)" : "")
                  << '\n';
        if (event.message->level == Level::kDebug) {
            return;
        }
        printField("means   ", describe(found, /*with_code=*/true));
        if (explained_.emplace(event.message, codeIn(found)).second) {
            printReasons(found);
        }
    }

  private:
    size_t count_ = 0;
    std::set<std::pair<const Message*, const ResultCode*>> explained_;
};

void printOthers(const OtherLines& others, const char* what,
                 const std::vector<std::string>& files) {
    if (others.count != 0) {
        std::cout << others.count << (others.count == 1 ? " line of " : " lines of ") << what
                  << "; the first is " << files[others.input] << ':' << others.line << ": "
                  << escape(others.text) << '\n';
    }
}

// Refuses a log that is packed, by its first bytes.
void refuseContainer(std::string_view first, const std::string& file) {
    if (const Container* container = containerOf(first)) {
        throw Refused(file + " is " + container->name + ": " + container->undo);
    }
}

void explainLog(const std::vector<std::string>& files, bool json) {
    EventPrinter printer;
    std::cout << (json ? "{\"events\": [" : "");
    size_t num_events = 0;
    LogReader reader([&](const LogEvent& event) {
        if (json) {
            printer.printJson(event, files[event.input]);
        } else {
            printer.print(event, files[event.input]);
        }
        ++num_events;
    });
    for (const std::string& file : files) {
        bool is_first = true;
        readPieces(openInput(file).get(), file, [&](std::string_view piece) {
            if (is_first) {
                refuseContainer(piece, file);
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
        std::cout << num_events << (num_events == 1 ? " event\n" : " events\n");
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

}  // namespace

void explain(const ExplainOptions& options) {
    if (options.all) {
        std::cout << markdownTables();
        return;
    }
    if (options.what.empty()) {
        throw WrongUsage("explain: give a result code, a message or a log");
    }
    const std::string& what = options.what.front();
    const bool one = options.what.size() == 1;
    if (const ResultCode* result = one ? findCode(what) : nullptr) {
        printCode(*result, options.json);
        return;
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
    if (options.json) {
        return printJson(found);
    }
    for (const FoundMessage& message : found) {
        printMessage(message);
    }
}

}  // namespace zelkm_tool
