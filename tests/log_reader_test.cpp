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

struct Log {
    std::vector<LogEvent> events;
    OtherLines unknown;
    OtherLines foreign;
};

// Reads the texts as one log, in pieces of `piece` bytes.
Log read(const std::vector<std::string>& texts, size_t piece = 7) {
    Log log;
    LogReader reader([&log](const LogEvent& event) { log.events.push_back(event); });
    for (const std::string& text : texts) {
        for (size_t at = 0; at < text.size(); at += piece) {
            reader.read(std::string_view(text).substr(at, piece));
        }
        reader.endInput();
    }
    reader.end();
    log.unknown = reader.unknown();
    log.foreign = reader.foreign();
    return log;
}

TEST(LogReader, KnowsTheLibrarysLineInEveryFormat) {
    const std::string message =
        "[\033[31mERR\033[0m] (zelkeymaster_operation.cpp:803) error in begin process : -49";
    struct {
        std::string line;
        std::string time;
    } const cases[] = {
        {kFile + std::string(kOrigin) + "error in begin process : -49", "2026-11-21 15:20:56.951"},
        {"\xEF\xBB\xBF" + std::string(kFile) + kOrigin + "error in begin process : -49\r" +
             std::string(2, '\0'),
         "2026-11-21 15:20:56.951"},
        {"keymaster_tee E 11-21 15:20:56  2464  2464 " + message, "11-21 15:20:56"},
        {message, ""},
        {"E/keymaster_tee( 2464): " + message, ""},
        {"E/keymaster_tee: " + message, ""},
        {"E( 2464: 2465) " + message, ""},
        {"11-21 15:20:56.951 E/keymaster_tee( 2464): " + message, "11-21 15:20:56.951"},
        {"11-21 15:20:56.951  2464  2465 E keymaster_tee: " + message, "11-21 15:20:56.951"},
        {"\033[38;5;196m11-21 15:20:56.951  1000  2464  2465 E keymaster_tee: " + message +
             "\033[0m",
         "11-21 15:20:56.951"},
        {"2026-11-21 15:20:56.951123 +0100  2464  2465 E keymaster_tee: " + message,
         "2026-11-21 15:20:56.951123 +0100"},
        {"1795274456.951  2464  2465 E keymaster_tee: " + message, ""},
        {"     1234.500  2464  2465 E keymaster_tee: " + message, ""},
        // A line from a viewer that shows escapes, or drops only the escape character.
        {"[^[[31mERR^[[0m] (zelkeymaster_operation.cpp:803) error in begin process : -49", ""},
    };
    for (const auto& c : cases) {
        const Log log = read({c.line + "\n"});
        ASSERT_EQ(log.events.size(), 1u) << c.line;
        const LogEvent& event = log.events[0];
        EXPECT_EQ(event.message->format, "error in begin process : %d") << c.line;
        EXPECT_EQ(event.arguments, (std::vector<std::string>{"-49"})) << c.line;
        EXPECT_EQ(event.time, c.time) << c.line;
        EXPECT_EQ(log.unknown.count + log.foreign.count, 0u) << c.line;
    }
}

// The formats of the events, with how often an error file has each.
std::string formatsOf(const Log& log) {
    std::string formats;
    for (const LogEvent& event : log.events) {
        formats += (formats.empty() ? "" : ", ") + event.message->format;
        formats += event.count > 1 ? "*" + std::to_string(event.count) : "";
    }
    return formats;
}

std::string error(const std::string& message) {
    return std::string(kFile) + kOrigin + message + "\n";
}

TEST(LogReader, TakesWhatBelongsTogetherAndCountsTheRest) {
    const std::string tag = "11-21 15:20:56.951  1  1 E keymaster_tee: ";
    const std::string engine = tag + "[ERR] (velt_secure_db.cpp:383) ";
    struct {
        std::string log;
        std::string formats;
        size_t unknown;
        size_t foreign;
    } const cases[] = {
        // Lines of several objects; the same event at another time; the same lines in a logcat.
        {error("invalid tag") + error("invalid tag") + error("no key") + error("invalid tag"),
         "invalid tag*2, no key, invalid tag", 0, 0},
        {error("invalid tag") + "2026-11-21 15:20:56.952 " + kOrigin + "invalid tag\n",
         "invalid tag, invalid tag", 0, 0},
        {engine + "db size error\n" + engine + "db size error\n", "db size error, db size error", 0,
         0},
        // Messages with line feeds, in a file and in a dump; an item that is a line feed or a NUL.
        {error("4017:error::x:f.c:1:\n(22, (nil))") + error("4017:error::x:f.c:1:\n(22, (nil))"),
         "%s(%d, %p)*2", 0, 0},
        {tag + "[ERR] (zelkeymaster_operation.cpp:1) 4017:error::x:\n" + tag + "(22, 0x0)\n",
         "%s(%d, %p)", 0, 0},
        {error("Not all data has been consumed. Consumed 1 of 2 bytes\n") + error("no key"),
         "Not all data has been consumed. Consumed %zu of %zu bytes, no key", 0, 0},
        {engine + "err: state:(1)  t->token=0x7f0, *p(0x7f1)=\n" + tag + ", len=0\n" + engine +
             "err: state:(1)  t->token=0x7f0, *p(0x7f1)=\n" + engine + "db size error\n",
         "err: state:(%d)  t->token=%p, *p(%p)=%c, len=%d, err: state:(%d)  t->token=%p, "
         "*p(%p)=%c, len=%d, db size error",
         0, 0},
        // Lines of others between the library's, and lines that only look like the library's.
        {"--------- beginning of main\n11-21 15:20:56.951  7  7 I other: [ERR] (f.cpp:1) no key\n" +
             error("no key") + "\nnoise\n" + tag + "new words\n" + error("other words") + engine +
             "foo error(-3)\n" + engine + "no key\n",
         "no key", 4, 3},
        {"[ 11-21 15:20:56.951  1:  1 I/other ]\nwords\n\n", "", 0, 2},
        // A value that looks like a line, and cut or bent ones.
        {"[DBG] (velt_secure_db.cpp:54) x [ERR] (velt_secure_db.cpp:1) db size error\n"
         "[DBG] (velt_secure_db.cpp:54) x(1) : L2\n[DBG] (velt_secure_db.cpp:54) command(3) : L2\n",
         "%s, %s, %s(%d) : L%d", 0, 0},
        {"[XXX] (velt_secure_db.cpp:54) db size error\n[ERR] (velt_secure_db.cpp:) db size error\n"
         "(velt_secure_db.cpp:54) db size error\n] (velt_secure_db.cpp:54) db size error\n" +
             std::string(kFile) +
             "ERROR [x] [log_to_file@106] zelkeymaster_operation.cpp(1) :no key",
         "", 5, 0},
        {std::string("\0\n\xff\xfe\n\033[\n[ ]\n", 10), "", 0, 3},
    };
    for (const auto& c : cases) {
        const Log log = read({c.log});
        EXPECT_EQ(formatsOf(log), c.formats) << c.log;
        EXPECT_EQ(log.unknown.count, c.unknown) << c.log;
        EXPECT_EQ(log.foreign.count, c.foreign) << c.log;
    }
    const Log log = read({error("no key"), error("no key") + "\n" + error("what?")});
    EXPECT_EQ(formatsOf(log), "no key*2");  // rolled between the two
    EXPECT_EQ(log.unknown.input, 1u);
    EXPECT_EQ(log.unknown.line, 3u);
}

TEST(LogReader, ReadsWhatAProcessWithTwoObjectsWrote) {
    class Folder : public test::InTempDir {
        void TestBody() override {}
    } folder;
    const int status = test::runInChild([] {
        const ZelKeymasterOperation first(nullptr, false);
        const ZelKeymasterOperation second(nullptr, false);
        uint8_t* data = nullptr;
        uint32_t len = 0;
        bool done = ZelKeymasterOperation::load_data("a\nb", &data, &len) == ZELKM_OK;
        done &= ZelKeymasterOperation::validateAttestChain({}, true) == ZELKM_VERIFICATION_FAILED;
        return done ? 0 : 1;
    });
    ASSERT_EQ(status, 0);
    const Log log = read({test::text("zelko_err.txt")});
    EXPECT_EQ(formatsOf(log), "no file %s*2, Invalid attestion chain length*2");
    EXPECT_EQ(log.foreign.count, 2u);  // of a name that no line can hold
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
        read({text}, kLen);
        read({text + "(5, 0x6)"}, kLen);
    }
}

}  // namespace
