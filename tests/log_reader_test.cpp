// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool's reading of logs: which kind of line it knows, and which it leaves alone.

#include "../tools/zelkm/log_reader.h"

#include <unistd.h>

#include "child.h"
#include "temp_dir.h"
#include "zelkeymaster_operation.h"

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
        // A line from a viewer that shows escapes, or drops only the escape character.
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

// The ids of the events, with how often an error file has each.
std::string idsOf(const Log& log) {
    std::string ids;
    for (const LogEvent& event : log.events) {
        ids += (ids.empty() ? "" : " ") + std::string(event.message->id);
        ids += event.count > 1 ? "*" + std::to_string(event.count) : "";
    }
    return ids;
}

std::string error(const std::string& message) {
    return std::string(kFile) + kOrigin + message + "\n";
}

TEST(LogReader, TakesWhatBelongsTogetherAndCountsTheRest) {
    const std::string tag = "11-21 15:20:56.951  1  1 E keymaster_tee: ";
    const std::string engine = tag + "[ERR] (velt_secure_db.cpp:383) ";
    struct {
        std::string log;
        std::string ids;
        size_t unknown;
        size_t foreign;
    } const cases[] = {
        // Lines of several objects; the same event at another time; the same lines in a logcat.
        {error("invalid tag") + error("invalid tag") + error("no key") + error("invalid tag"),
         "no-tag*2 no-converted-key no-tag", 0, 0},
        {error("invalid tag") + "2026-11-21 15:20:56.952 " + kOrigin + "invalid tag\n",
         "no-tag no-tag", 0, 0},
        {engine + "db size error\n" + engine + "db size error\n", "store-too-short store-too-short",
         0, 0},
        // Messages with line feeds, in a file and in a dump; an item that is a line feed or a NUL.
        {error("4017:error::x:f.c:1:\n(22, (nil))") + error("4017:error::x:f.c:1:\n(22, (nil))"),
         "libcrypto-error-text*2", 0, 0},
        {tag + "[ERR] (zelkeymaster_operation.cpp:1) 4017:error::x:\n" + tag + "(22, 0x0)\n",
         "libcrypto-error-text", 0, 0},
        {error("Not all data has been consumed. Consumed 1 of 2 bytes\n") + error("no key"),
         "not-all-consumed no-converted-key", 0, 0},
        {engine + "err: state:(1)  t->token=0x7f0, *p(0x7f1)=\n" + tag + ", len=0\n" + engine +
             "err: state:(1)  t->token=0x7f0, *p(0x7f1)=\n" + engine + "db size error\n",
         "list-rules list-rules store-too-short", 0, 0},
        // Lines of others between the library's, and lines that only look like the library's.
        {"--------- beginning of main\n11-21 15:20:56.951  7  7 I other: [ERR] (f.cpp:1) no key\n" +
             error("no key") + "\nnoise\n" + tag + "new words\n" + error("other words") + engine +
             "foo error(-3)\n" + engine + "no key\n",
         "no-converted-key", 4, 3},
        {"[ 11-21 15:20:56.951  1:  1 I/other ]\nwords\n\n", "", 0, 2},
        // A value that looks like a line, and cut or bent ones.
        {"[DBG] (velt_secure_db.cpp:54) x [ERR] (velt_secure_db.cpp:1) db size error\n"
         "[DBG] (velt_secure_db.cpp:54) x(1) : L2\n[DBG] (velt_secure_db.cpp:54) command(3) : L2\n",
         "dump-text dump-text dump", 0, 0},
        {"[XXX] (velt_secure_db.cpp:54) db size error\n[ERR] (velt_secure_db.cpp:) db size error\n"
         "(velt_secure_db.cpp:54) db size error\n] (velt_secure_db.cpp:54) db size error\n" +
             std::string(kFile) +
             "ERROR [x] [log_to_file@106] zelkeymaster_operation.cpp(1) :no key",
         "", 5, 0},
        {std::string("\0\n\xff\xfe\n\033[\n[ ]\n", 10), "", 0, 4},
    };
    for (const auto& c : cases) {
        const Log log = read(c.log);
        EXPECT_EQ(idsOf(log), c.ids) << c.log;
        EXPECT_EQ(log.unknown.count, c.unknown) << c.log;
        EXPECT_EQ(log.foreign.count, c.foreign) << c.log;
    }
    const Log log = readLog({error("no key"), error("no key") + "\n" + error("what?")});
    EXPECT_EQ(idsOf(log), "no-converted-key*2");  // rolled between the two
    EXPECT_EQ(log.unknown.input, 1u);
    EXPECT_EQ(log.unknown.line, 3u);
}

TEST(LogReader, OrdersEventsByTime) {
    const auto at = [](const std::string& time, const std::string& message) {
        return time + "  1  1 E keymaster_tee: [ERR] (zelkeymaster_operation.cpp:1) " + message +
               "\n";
    };
    const auto order = [](const std::string& text) {
        Log log = read(text);
        sortByTime(&log.events);
        return idsOf(log);
    };
    const std::string sorted = "no-converted-key no-tag";
    const std::string as_found = "no-tag no-converted-key";
    EXPECT_EQ(
        order(at("2026-02-28 23:59:59.999", "invalid tag") + at("2026-02-28 10:00:00.5", "no key")),
        sorted);
    EXPECT_EQ(order(at("2026-02-28 12:00:00 +0100", "invalid tag") +
                    at("2026-02-28 10:00:00 -0030", "no key")),
              sorted);
    EXPECT_EQ(order(at("10.500", "invalid tag") + at("9.500", "no key")), sorted);
    EXPECT_EQ(order(at("03-01 00:00:00", "invalid tag") + at("02-29 23:00:00", "no key")), sorted);
    // A new year; clocks that differ; none.
    EXPECT_EQ(order(at("12-31 23:00:00", "invalid tag") + at("01-01 01:00:00", "no key")),
              as_found);
    EXPECT_EQ(order(at("2026-12-31 23:00:00", "invalid tag") + at("01-01 01:00:00", "no key")),
              as_found);
    EXPECT_EQ(order(at("2026-13-31 23:00:00", "invalid tag") + at("2026-01-01 24:00:00", "no key")),
              as_found);
    EXPECT_EQ(read(at("1970-01-02 00:00:01.25", "no key")).events[0].time.micros, 86401250000);
    EXPECT_EQ(read(at("2000-01-01 01:00:00 +0100", "no key")).events[0].time.micros,
              read(at("946684800.0", "no key")).events[0].time.micros);
}

TEST(LogReader, ReadsWhatAProcessWithTwoObjectsWrote) {
    class Folder : public test::InTempDir {
        void TestBody() override {}
    } folder;
    const pid_t child = test::startChild([] {
        const ZelKeymasterOperation first(nullptr, false);
        const ZelKeymasterOperation second(nullptr, false);
        uint8_t* data = nullptr;
        uint32_t len = 0;
        bool done = ZelKeymasterOperation::load_data("a\nb", &data, &len) == ZELKM_OK;
        done &= ZelKeymasterOperation::validateAttestChain({}, true) == ZELKM_VERIFICATION_FAILED;
        return done ? 0 : 1;
    });
    ASSERT_EQ(test::exitStatus(child), 0);
    const Log log = read(test::text("zelko_err.txt"));
    EXPECT_EQ(idsOf(log), "no-file*2 chain-too-short*2");
    EXPECT_EQ(log.foreign.count, 2u);  // of a name that no line can hold
    EXPECT_EQ(log.events.back().thread, std::to_string(child));
}

// The test would not end if one of these took quadratic time.
TEST(LogReader, TakesLinearTime) {
    constexpr size_t kLen = 4000000;
    const std::string prefix = "[ERR] (zelkeymaster_operation.cpp:1) ";
    for (const std::string piece :
         {"(", "1(2, 0x3)", "%s", "\033[", "] (velt_secure_db.cpp:1", " [log_to_file@", "(1)\n"}) {
        std::string text = prefix;
        while (text.size() < kLen) {
            text += piece;
        }
        read(text);
        read(text + "(5, 0x6)");
    }
}

}  // namespace
