// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool's tables of messages and result codes agree with the sources that log the messages, the
// headers that number the codes, and the page that explains both.

#include "../tools/zelkm/messages.h"

#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "../tools/zelkm/log_reader.h"
#include "temp_dir.h"

namespace {

using namespace zelkm_tool;
using Statement = std::tuple<Source, Level, std::string>;

std::string sourceFile(const std::string& name) {
    const auto content = test::readFile(std::string(ZELKM_SOURCE_DIR) + "/" + name);
    EXPECT_TRUE(content && !content->empty()) << name;
    return std::string(content->begin(), content->end());
}

// The adjacent string literals at this place of the code, as one text. Nothing when there is none.
std::optional<std::string> literals(const std::string& code, size_t at) {
    std::optional<std::string> result;
    while ((at = code.find_first_not_of(" \n", at)) != code.npos && code[at] == '"') {
        result = result.value_or("");
        for (++at; code[at] != '"'; ++at) {
            if (code[at] == '\\') {
                ++at;
                EXPECT_NE(std::string("n\"\\").find(code[at]), std::string::npos) << "an escape";
            }
            *result += code[at] == 'n' && code[at - 1] == '\\' ? '\n' : code[at];
        }
        ++at;
    }
    return result;
}

// What a source logs through its macros.
std::set<Statement> statements(Source source) {
    const std::string code =
        sourceFile(std::string("common/src/zelkeymaster_helper/") + sourceName(source));
    std::set<Statement> result;
    for (const auto& [macro, level] :
         {std::pair("LOG_ERROR(", Level::kError), std::pair("LOG_WARNING(", Level::kWarning),
          std::pair("LOG_DEBUG(", Level::kDebug)}) {
        for (size_t at = 0; (at = code.find(macro, at)) != code.npos;) {
            const std::string line = code.substr(code.rfind('\n', at) + 1, 8);
            at += std::string(macro).size();
            const auto format = literals(code, at);
            if (format) {
                result.emplace(source, level, *format);
            } else {
                EXPECT_EQ(line, "#define ") << "not a literal: " << code.substr(at, 40);
            }
        }
    }
    return result;
}

TEST(Messages, AreTheOnesThatTheSourcesLog) {
    std::set<Statement> logged = statements(Source::kObject);
    logged.merge(statements(Source::kEngine));
    std::set<Statement> listed;
    for (const MessageGroup& group : messageGroups()) {
        for (const Message& message : group.messages) {
            EXPECT_TRUE(
                listed.emplace(message.source, message.level, std::string(message.format)).second)
                << message.format;
        }
    }
    EXPECT_GT(logged.size(), 80u);
    for (const auto& statement : logged) {
        EXPECT_EQ(listed.count(statement), 1u) << "no entry: " << std::get<2>(statement);
    }
    for (const auto& statement : listed) {
        EXPECT_EQ(logged.count(statement), 1u) << "not logged: " << std::get<2>(statement);
    }
}

// A message as the library would log it, and the texts of its arguments.
std::pair<std::string, std::vector<std::string>> sample(const Message& message) {
    const std::map<char, std::string> values = {{'s', "a (1) b(2"}, {'d', "-30"},
                                                {'p', "0x7ffd"},    {'c', "%"},
                                                {'u', "12"},        {'x', "00c0ffee"}};
    std::string text;
    std::vector<std::string> arguments;
    for (const char* at = message.format; *at != '\0'; ++at) {
        if (*at != '%') {
            text += *at;
            continue;
        }
        at += std::string_view(at).find_first_of("sdpcux");
        std::string value = values.at(*at);
        if (*at == 's' && message.words != nullptr) {
            value = std::string_view(message.words).substr(0, std::string(message.words).find('|'));
        }
        text += value;
        arguments.push_back(value);
    }
    return {text, arguments};
}

TEST(Messages, AreFoundAgainInALog) {
    for (const MessageGroup& group : messageGroups()) {
        for (const Message& message : group.messages) {
            const auto [text, arguments] = sample(message);
            const char* const level = message.level == Level::kError     ? "ERR"
                                      : message.level == Level::kWarning ? "WRN"
                                                                         : "DBG";
            LogReader reader([&, &text = text, &arguments = arguments](const LogEvent& event) {
                EXPECT_STREQ(event.message->format, message.format) << text;
                EXPECT_EQ(event.arguments, arguments) << text;
            });
            reader.read(std::string("[") + level + "] (" + sourceName(message.source) + ":1) " +
                        text + "\n");
            reader.endInput();
            reader.end();
            EXPECT_EQ(reader.unknown().count, 0u) << text;
            for (const std::string& asked : {text, std::string(message.format)}) {
                bool found = message.format == std::string("%s") && asked == text;
                for (const FoundMessage& f : findMessages(asked)) {
                    found |= f.message == &message;
                }
                EXPECT_TRUE(found) << asked;
            }
        }
    }
}

TEST(ResultCodes, AreTheOnesOfTheHeaders) {
    size_t num_named = 0;
    for (const auto& [file, scope, prefix] :
         {std::tuple("include/zelkeymaster_result.h", "enum zelkm_result", "ZELKM_"),
          std::tuple("platform/host/include/android/hardware/keymaster/4.0/types.h",
                     "enum class ErrorCode", "")}) {
        std::string code = sourceFile(file);
        code.erase(0, code.find(scope));
        code.erase(code.find('}'));
        for (size_t at = 0; (at = code.find("= ", at)) != code.npos; ++at) {
            const size_t end = code.find_last_not_of(" =", at) + 1;
            const size_t start =
                code.find_last_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789", end - 1) + 1;
            const std::string name = code.substr(start, end - start);
            const int number = std::stoi(code.substr(at + 1));
            const ResultCode* result = findResultCode(number);
            ASSERT_NE(result, nullptr) << name;
            // One code has a meaning of the library's own beside the keymaster's.
            if (name != "ZELKM_UNSUPPORTED_COLUMN_TYPE") {
                EXPECT_TRUE(name == result->name() || name == std::string(prefix) + result->name())
                    << name << " is " << result->name();
            }
            ++num_named;
        }
    }
    EXPECT_GT(num_named, 40u);
    // The table has no gaps but those of the interface.
    for (int code = 0; code >= -72; --code) {
        EXPECT_EQ(findResultCode(code) != nullptr, code != -42 && code != -43) << code;
    }
}

TEST(Diagnostics, PageHasTheTables) {
    const std::string page = sourceFile("docs/diagnostics.md");
    EXPECT_NE(page.find(markdownTables()), page.npos)
        << "docs/diagnostics.md must hold what 'zelkm explain --all' prints";
}

}  // namespace
