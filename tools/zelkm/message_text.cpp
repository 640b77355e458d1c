// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "messages.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "store_values.h"

namespace zelkm_tool {
namespace {

std::string systemError(const Message& message, const std::string& text,
                        const std::string& number) {
    switch (std::atoi(number.c_str())) {
        case 0:
            return message.id == MessageId::kWriteFailed
                       ? "not all bytes were written, as when the disk is full"
                       : "it ended early";
        case ENOSPC:
            return "the disk is full (" + escape(text) + ")";
        default:
            return escape(text);
    }
}

std::string capitalised(std::string text) {
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text;
}

// Text for a cell of a Markdown table.
std::string cell(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c == '|' ? "\\|" : std::string(1, c);
    }
    return result;
}

std::string formatOf(const Message& message) {
    const std::string_view format = message.format;
    return '`' + std::string(format.substr(0, format.find_last_not_of('\n') + 1)) + '`';
}

std::string row(const Message& message) {
    std::string meaning = capitalised(message.meaning) + '.';
    if (*message.cause != '\0') {
        meaning += std::string(" ") + message.cause;
    }
    return std::string("| ") + letterOf(message.level) + " | " + cell(formatOf(message)) + " | " +
           cell(meaning) + " | " + cell(message.advice) + " | " + message.result + " |\n";
}

}  // namespace

const ResultCode* codeIn(const FoundMessage& found) {
    return found.message->detail == Detail::kResult && !found.arguments.empty()
               ? findResultCode(std::atoi(found.arguments.back().c_str()))
               : nullptr;
}

std::string nameAndMeaning(const ResultCode& result) {
    return std::to_string(result.code) + ' ' + result.name() + ": " + result.meaning;
}

std::string describe(const FoundMessage& found, bool with_code) {
    const Message& message = *found.message;
    const std::vector<std::string>& arguments = found.arguments;
    const std::string meaning = message.meaning;
    if (arguments.empty()) {
        return meaning;
    }
    switch (message.detail) {
        case Detail::kNone:
            break;
        case Detail::kResult: {
            const ResultCode* code = with_code ? codeIn(found) : nullptr;
            return code != nullptr ? meaning + " (" + nameAndMeaning(*code) + ')' : meaning;
        }
        case Detail::kSystemError:
            return meaning + ": " +
                   systemError(message, arguments[arguments.size() - 2], arguments.back());
        case Detail::kText:
            return meaning + ": " + escape(arguments.front());
    }
    return meaning;
}

char letterOf(Level level) {
    return level == Level::kError ? 'E' : level == Level::kWarning ? 'W' : 'D';
}

std::string markdownTables() {
    std::string text;
    for (const MessageGroup& group : messageGroups()) {
        text += std::string("### ") + group.title +
                "\n\n| level | message | meaning and cause | what to do | result |\n"
                "| --- | --- | --- | --- | --- |\n";
        for (const Message& message : group.messages) {
            text += row(message);
        }
        text += '\n';
    }
    text +=
        "### Result codes\n\n| code | name | meaning | cause in this library | what to do |\n"
        "| --- | --- | --- | --- | --- |\n";
    std::string others;
    for (const ResultCode& result : resultCodes()) {
        const std::string code = std::to_string(result.code);
        if (*result.cause != '\0') {
            text += "| " + code + " | `" + result.name() + "` | " + cell(result.meaning) + " | " +
                    cell(result.cause) + " | " + cell(result.advice) + " |\n";
        } else {
            others += (others.empty() ? "" : ", ") + code;
        }
    }
    return text +
           "\nNo call of the library is known to lead to these, so ask the keymaster's vendor: " +
           others + ".\n";
}

}  // namespace zelkm_tool
