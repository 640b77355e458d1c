// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool's reading of logs: what each kind of line is taken for, and what is left alone.

#include "../tools/zelkm/log_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace zelkm_tool;

constexpr char kFile[] = "2026-11-21 15:20:56.951 ";
constexpr char kOrigin[] = "ERROR [24646] [log_to_file@106] zelkeymaster_operation.cpp(803) :";

Log read(const std::string& text) {
    return readLog({text});
}

TEST(LogReader, KnowsTheLibrarysLineInEveryFormat) {
    const std::string message =
        "[\033[31mERR\033[0m] (zelkeymaster_operation.cpp:803) error in begin process : -49";
    struct {
        std::string line;
        Clock clock;
        std::string time;
    } const cases[] = {
        {kFile + std::string(kOrigin) + "error in begin process : -49", Clock::kLocal,
         "2026-11-21 15:20:56.951"},
        {"\xEF\xBB\xBF" + std::string(kFile) + kOrigin + "error in begin process : -49\r",
         Clock::kLocal, "2026-11-21 15:20:56.951"},
        {"keymaster_tee E 11-21 15:20:56  2464  2464 " + message, Clock::kYearless,
         "11-21 15:20:56"},
        {message, Clock::kNone, ""},
        {"E/keymaster_tee( 2464): " + message, Clock::kNone, ""},
        {"E/keymaster_tee: " + message, Clock::kNone, ""},
        {"E( 2464) " + message + "  (keymaster_tee)", Clock::kNone, ""},
        {"E( 2464: 2465) " + message, Clock::kNone, ""},
        {"11-21 15:20:56.951 E/keymaster_tee( 2464): " + message, Clock::kYearless,
         "11-21 15:20:56.951"},
        {"11-21 15:20:56.951  2464  2465 E keymaster_tee: " + message, Clock::kYearless,
         "11-21 15:20:56.951"},
        {"\033[38;5;196m11-21 15:20:56.951  1000  2464  2465 E keymaster_tee: " + message +
             "\033[0m",
         Clock::kYearless, "11-21 15:20:56.951"},
        {"2026-11-21 15:20:56.951123 +0100  2464  2465 E keymaster_tee: " + message, Clock::kUtc,
         "2026-11-21 15:20:56.951123 +0100"},
        {"[ 11-21 15:20:56.951  2464: 2465 E/keymaster_tee ]\n" + message + "\n", Clock::kYearless,
         "11-21 15:20:56.951"},
        {"1795274456.951  2464  2465 E keymaster_tee: " + message, Clock::kUtc, "1795274456.951"},
        {"     1234.500  2464  2465 E keymaster_tee: " + message, Clock::kSinceBoot, "1234.500"},
        // Copied out of a viewer that shows escapes, or drops only the escape character.
        {"[^[[31mERR^[[0m] (zelkeymaster_operation.cpp:803) error in begin process : -49",
         Clock::kNone, ""},
    };
    for (const auto& c : cases) {
        const Log log = read(c.line + "\n");
        ASSERT_EQ(log.events.size(), 1u) << c.line;
        const LogEvent& event = log.events[0];
        EXPECT_STREQ(event.message->id, "begin-refused") << c.line;
        EXPECT_EQ(event.arguments, (std::vector<std::string>{"-49"})) << c.line;
        EXPECT_EQ(event.source_line, 803u) << c.line;
        EXPECT_EQ(event.time.clock, c.clock) << c.line;
        EXPECT_EQ(event.time.text, c.time) << c.line;
        EXPECT_EQ(log.unknown.count + log.foreign.count, 0u) << c.line;
    }
}

}  // namespace
