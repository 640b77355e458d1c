// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The pages from which the tool explains messages, result codes and findings have what the sources
// log and name, and what the headers number.

#include "../tools/zelkm/messages.h"

#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <tuple>

#include "../tools/zelkm/doctor_report.h"
#include "../tools/zelkm/log_reader.h"
#include "temp_dir.h"

namespace {

using namespace zelkm_tool;
using Statement = std::tuple<std::string, char, std::string>;  // source, level, format

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

// What a source logs through its macros, without line feeds at the end.
std::set<Statement> statements(const std::string& source) {
    const std::string code = sourceFile("common/src/zelkeymaster_helper/" + source);
    std::set<Statement> result;
    for (const std::string macro : {"LOG_ERROR(", "LOG_WARNING(", "LOG_DEBUG("}) {
        for (size_t at = 0; (at = code.find(macro, at)) != code.npos;) {
            const std::string line = code.substr(code.rfind('\n', at) + 1, 8);
            at += macro.size();
            if (const auto format = literals(code, at)) {
                result.emplace(source, macro[4], format->substr(0, format->find('\n')));
            } else {
                EXPECT_EQ(line, "#define ") << "not a literal: " << code.substr(at, 40);
            }
        }
    }
    return result;
}

TEST(Messages, AreTheOnesThatTheSourcesLog) {
    std::set<Statement> logged = statements(kObjectSource);
    logged.merge(statements(kEngineSource));
    std::set<Statement> listed;
    for (const Message& message : messages()) {
        EXPECT_TRUE(listed.emplace(message.source, message.level, message.format).second)
            << message.format;
        EXPECT_FALSE(message.meaning.empty() || message.advice.empty()) << message.format;
    }
    EXPECT_GT(logged.size(), 80u);
    EXPECT_EQ(listed, logged);
}

// A message as the library would log it, and the texts of its arguments.
std::pair<std::string, std::vector<std::string>> sample(const Message& message) {
    const std::map<char, std::string> values = {{'s', "a (1) b(2"}, {'d', "-30"},
                                                {'p', "0x7ffd"},    {'c', "%"},
                                                {'u', "12"},        {'x', "00c0ffee"}};
    const std::map<std::string, std::string> words = {{"%s(%d) : L%d", "invalid column name"},
                                                      {"%s error(%d)", "DELETE"}};
    std::string text;
    std::vector<std::string> arguments;
    for (const char* at = message.format.c_str(); *at != '\0'; ++at) {
        if (*at != '%') {
            text += *at;
            continue;
        }
        at += std::string_view(at).find_first_of("sdpcux");
        const auto word = words.find(message.format);
        arguments.push_back(*at == 's' && word != words.end() ? word->second : values.at(*at));
        text += arguments.back();
    }
    return {text, arguments};
}

TEST(Messages, AreFoundAgainInALog) {
    const std::map<char, std::string> levels = {{'E', "ERR"}, {'W', "WRN"}, {'D', "DBG"}};
    for (const Message& message : messages()) {
        const auto [text, arguments] = sample(message);
        LogReader reader([&, &text = text, &arguments = arguments](const LogEvent& event) {
            EXPECT_EQ(event.message, &message) << text;
            EXPECT_EQ(event.arguments, arguments) << text;
        });
        reader.read("[" + levels.at(message.level) + "] (" + message.source + ":1) " + text + "\n");
        reader.endInput();
        reader.end();
        EXPECT_EQ(reader.unknown().count, 0u) << text;
        for (const std::string& asked : {text, message.format}) {
            bool found = message.format == "%s" && asked == text;
            for (const FoundMessage& f : findMessages(asked)) {
                found |= f.message == &message;
            }
            EXPECT_TRUE(found) << asked;
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
            const ResultCode* result = findResultCode(std::to_string(number));
            ASSERT_NE(result, nullptr) << name;
            // One code has a meaning of the library's own beside the keymaster's.
            if (name != "ZELKM_UNSUPPORTED_COLUMN_TYPE") {
                EXPECT_TRUE(name == result->name || name == prefix + result->name)
                    << name << " is " << result->name;
            }
            ++num_named;
        }
    }
    EXPECT_GT(num_named, 40u);
    // The table has no gaps but those of the interface.
    for (int code = 0; code >= -72; --code) {
        EXPECT_EQ(findResultCode(std::to_string(code)) != nullptr, code != -42 && code != -43)
            << code;
    }
}

// A finding of another name would end the doctor.
TEST(Findings, AreNamedAsOnTheirPage) {
    const std::regex name("\"([a-z]+(-[a-z]+)+|disguised|unreadable)\"");
    size_t num_named = 0;
    for (const char* part : {"diagnosis", "log", "report", "store"}) {
        const std::string code = sourceFile(std::string("tools/zelkm/doctor_") + part + ".cpp");
        for (std::sregex_iterator found(code.begin(), code.end(), name), end; found != end;
             ++found, ++num_named) {
            const Finding finding = {(*found)[1], "", ""};
            EXPECT_NO_THROW(finding.kind()) << finding.name;
        }
    }
    EXPECT_GT(num_named, 50u);
}

}  // namespace
