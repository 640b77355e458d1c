// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "explain_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
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

void printCode(const ResultCode& result) {
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
        return text == result.name || text == std::string("ZELKM_") + result.name;
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

class EventPrinter {
  public:
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

void explainLog(const std::vector<std::string>& files) {
    EventPrinter printer;
    size_t num_events = 0;
    LogReader reader([&](const LogEvent& event) {
        printer.print(event, files[event.input]);
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
    std::cout << num_events << (num_events == 1 ? " event\n" : " events\n");
    printOthers(reader.unknown(), "the library unknown here", files);
    printOthers(reader.foreign(), "others", files);
    if (num_events == 0) {
        throw Refused("no message of the library in " + files.front());
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
        throw WrongUsage("explain: a result code, a message or a log is needed");
    }
    const std::string& what = options.what.front();
    const bool one = options.what.size() == 1;
    if (const ResultCode* result = one ? findCode(what) : nullptr) {
        printCode(*result);
        return;
    }
    if (one && isNumber(what)) {
        throw Refused("no result code is " + what);
    }
    const auto missing = std::find_if_not(options.what.begin(), options.what.end(), isFile);
    if (missing == options.what.end()) {
        explainLog(options.what);
        return;
    }
    if (!one) {
        throw WrongUsage(*missing + ": no such file; a message with blanks needs quotes");
    }
    const std::vector<FoundMessage> found = findMessages(what);
    if (found.empty()) {
        throw Refused("no file has this name, and no message this text: " + escape(what));
    }
    for (const FoundMessage& message : found) {
        printMessage(message);
    }
}

}  // namespace zelkm_tool
