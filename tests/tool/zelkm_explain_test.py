#!/usr/bin/env -S python3 -B
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""`zelkm explain` knows every message that the library logs and every result code, and which lines
of a log belong to the library. The pages that it has them from say what the sources say."""

import ast
import json
import os
import pathlib
import re
import subprocess
import unittest

from store_directory import SANITIZED

ROOT = pathlib.Path(__file__).resolve().parents[2]
OBJECT, ENGINE = "zelkeymaster_operation.cpp", "velt_secure_db.cpp"  # the sources that log


def explain(*args, log=None):
    """What the tool says as JSON; nothing when it knows nothing."""
    done = subprocess.run([os.environ["ZELKM"], "explain", "--json", *args], timeout=60, check=False,
                          input=log, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return json.loads(done.stdout or "[]")


def source(path):
    return (ROOT / path).read_text(encoding="utf-8")


def listed():
    """The (source, level, format) of each message of the page."""
    name = None
    for line in source("docs/diagnostics.md").split("\n"):
        if line.startswith("#"):
            name = ENGINE if "The engine" in line else OBJECT
        if row := re.match(r"\| ([EWD]) \| `(.*?)` \| ", line):
            yield name, row[1], row[2]


class Messages(unittest.TestCase):
    def test_are_the_ones_that_the_sources_log(self):
        logged = set()
        for name in (OBJECT, ENGINE):
            code = source("common/src/zelkeymaster_helper/" + name)
            calls = re.findall(r'(#define )?\bLOG_([EWD])[A-Z]+\(\s*((?:"(?:\\.|[^"\\])*"\s*)*)', code)
            for definition, level, literals in calls:
                self.assertNotEqual(bool(literals), bool(definition), "not a literal")
                if literals:
                    text = ast.literal_eval(f"({literals})")
                    logged.add((name, level, text.split("\n")[0]))
        self.assertGreater(len(logged), 80)
        self.assertEqual(sorted(listed()), sorted(logged))

    def test_are_found_again(self):
        values = {"s": "a (1) b(2", "d": "-30", "p": "0x7ffd", "c": "%", "u": "12", "x": "00c0ffee"}
        words = {"%s(%d) : L%d": "invalid column name", "%s error(%d)": "DELETE"}
        levels = {"E": "ERR", "W": "WRN", "D": "DBG"}
        log, expected = "", []
        for name, level, message in listed():
            text = re.sub(r"%[0-9lz]*([sdpcux])", lambda conversion:
                          words.get(message, values["s"]) if conversion[1] == "s" else
                          values[conversion[1]], message)
            log += f"[{levels[level]}] ({name}:1) {text}\n"
            expected.append((level, text))
            for asked in set() if SANITIZED else {text, message} - {values["s"]}:  # any text
                formats = [(found["source"], found["format"]) for found in explain(asked)]
                self.assertIn((name, message), formats, asked)
        found = explain("-", log=log.encode())
        self.assertEqual([(event["level"], event["text"]) for event in found["events"]], expected)
        self.assertEqual((found["unknown"], found["others"]), (0, 0))

    @unittest.skipIf(SANITIZED, "a start for each code")
    def test_codes_are_the_ones_of_the_headers(self):
        for path, scope, prefix in (
                ("include/zelkeymaster_result.h", "enum zelkm_result", "ZELKM_"),
                ("platform/host/include/android/hardware/keymaster/4.0/types.h", "enum class ErrorCode", "")):
            codes = re.findall(r"(\w+) += +(-?\d+)", source(path).split(scope)[1].split("}")[0])
            self.assertGreater(len(codes), 15, path)
            for name, code in codes:
                # One code has a meaning of the library's own beside the keymaster's.
                if name != "ZELKM_UNSUPPORTED_COLUMN_TYPE":
                    self.assertIn(name, [start + explain("--", code)["name"] for start in ("", prefix)])
        # The table has no gaps but those of the interface.
        gaps = [code for code in range(-72, 1) if not explain("--", str(code))]
        self.assertEqual(gaps, [-43, -42])

    def test_findings_are_named_as_on_their_page(self):
        """A finding of another name would end the doctor."""
        page = set(re.findall("^\\| `([a-z-]+)` \\|", source("docs/doctor.md"), flags=re.M))
        named = [name for path in ROOT.glob("tools/zelkm/doctor_*.cpp")
                 for name in re.findall(r'"([a-z]+(?:-[a-z]+)+|disguised|unreadable)"', path.read_text())]
        self.assertGreater(len(named), 50)
        self.assertLessEqual(set(named), page)


TIME = "2026-11-21 15:20:56.951"
BEGIN = "error in begin process : -49"
TAG = "11-21 15:20:56.951  1  1 E keymaster_tee: "
FROM_ENGINE = TAG + f"[ERR] ({ENGINE}:383) "


def error(message, time=TIME):
    return f"{time} ERROR [24646] [log_to_file@106] {OBJECT}(803) :{message}\n"


class Log(unittest.TestCase):
    def test_has_the_librarys_line_in_every_format(self):
        message = f"[\033[31mERR\033[0m] ({OBJECT}:803) {BEGIN}"
        for line, time in (
                (error(BEGIN), TIME),
                ("\ufeff" + error(BEGIN)[:-1] + "\r\0\0", TIME),
                ("keymaster_tee E 11-21 15:20:56  2464  2464 " + message, "11-21 15:20:56"),
                (message, ""),
                ("E/keymaster_tee( 2464): " + message, ""),
                ("E/keymaster_tee: " + message, ""),
                ("E( 2464: 2465) " + message, ""),
                ("11-21 15:20:56.951 E/keymaster_tee( 2464): " + message, "11-21 15:20:56.951"),
                ("11-21 15:20:56.951  2464  2465 E keymaster_tee: " + message, "11-21 15:20:56.951"),
                ("\033[38;5;196m11-21 15:20:56.951  1000  2464  2465 E keymaster_tee: " + message + "\033[0m",
                 "11-21 15:20:56.951"),
                (TIME + "123 +0100  2464  2465 E keymaster_tee: " + message, TIME + "123 +0100"),
                ("1795274456.951  2464  2465 E keymaster_tee: " + message, ""),
                ("     1234.500  2464  2465 E keymaster_tee: " + message, ""),
                # A line from a viewer that shows escapes, or drops only the escape character.
                (f"[^[[31mERR^[[0m] ({OBJECT}:803) {BEGIN}", "")):
            with self.subTest(line=line):
                log = explain("-", log=line.encode())
                self.assertEqual([(event["text"], event["time"], event["code"]) for event in log["events"]],
                                 [(BEGIN, time, -49)])
                self.assertEqual((log["unknown"], log["others"]), (0, 0))

    def test_takes_what_belongs_together_and_counts_the_rest(self):
        size_error = FROM_ENGINE + "db size error\n"
        state = "err: state:(1)  t->token=0x7f0, *p(0x7f1)="
        for log, events, unknown, others in (
                # Lines of several objects; the same event at another time; the same lines in a logcat.
                (error("invalid tag") * 2 + error("no key") + error("invalid tag"),
                 ["invalid tag*2", "no key", "invalid tag"], 0, 0),
                (error("invalid tag") + error("invalid tag", "2026-11-21 15:20:56.952"),
                 ["invalid tag", "invalid tag"], 0, 0),
                (size_error * 2, ["db size error", "db size error"], 0, 0),
                # Messages with line feeds, in a file and in a dump; an item that is a line feed.
                (error("4017:error::x:f.c:1:\n(22, (nil))") * 2, ["4017:error::x:f.c:1:\\x0a(22, (nil))*2"], 0, 0),
                (f"{TAG}[ERR] ({OBJECT}:1) 4017:error::x:\n{TAG}(22, 0x0)\n", ["4017:error::x:\\x0a(22, 0x0)"], 0, 0),
                (error("Not all data has been consumed. Consumed 1 of 2 bytes\n") + error("no key"),
                 ["Not all data has been consumed. Consumed 1 of 2 bytes", "no key"], 0, 0),
                (f"{FROM_ENGINE}{state}\n{TAG}, len=0\n{FROM_ENGINE}{state}\n{size_error}",
                 [state + "\\x0a, len=0", state, "db size error"], 0, 0),
                # Lines of others between the library's, and lines that only look like the library's.
                ("--------- beginning of main\n11-21 15:20:56.951  7  7 I other: [ERR] (f.cpp:1) no key\n"
                 + error("no key") + "\nnoise\n" + TAG + "new words\n" + error("other words")
                 + FROM_ENGINE + "foo error(-3)\n" + FROM_ENGINE + "no key\n", ["no key"], 4, 3),
                ("[ 11-21 15:20:56.951  1:  1 I/other ]\nwords\n\n", [], 0, 2),
                # A value that looks like a line, and cut or bent ones.
                (f"[DBG] ({ENGINE}:54) x [ERR] ({ENGINE}:1) db size error\n[DBG] ({ENGINE}:54) x(1) : L2\n"
                 f"[DBG] ({ENGINE}:54) command(3) : L2\n",
                 [f"x [ERR] ({ENGINE}:1) db size error", "x(1) : L2", "command(3) : L2"], 0, 0),
                (f"[XXX] ({ENGINE}:54) db size error\n[ERR] ({ENGINE}:) db size error\n"
                 f"({ENGINE}:54) db size error\n] ({ENGINE}:54) db size error\n"
                 f"{TIME} ERROR [x] [log_to_file@106] {OBJECT}(1) :no key", [], 5, 0),
                ("\0\n\udcff\udcfe\n\033[\n[ ]\n", [], 0, 3)):
            with self.subTest(log=log):
                found = explain("-", log=log.encode(errors="surrogateescape"))
                self.assertEqual([f"{event['text']}*{event['count']}".removesuffix("*1")
                                  for event in found["events"]], events)
                self.assertEqual((found["unknown"], found["others"]), (unknown, others))

    def test_is_read_in_linear_time(self):
        """The tool would not end in time if one of these took quadratic time."""
        for piece in ("(", "1(2, 0x3)", "%s", "\033[", f"] ({ENGINE}:1", " [log_to_file@", "(1)\n"):
            text = f"[ERR] ({OBJECT}:1) {piece * (4000000 // len(piece))}"
            for end in ("", "(5, 0x6)"):
                with self.subTest(piece=piece, end=end):
                    self.assertTrue(explain("-", log=(text + end).encode()))


if __name__ == "__main__":
    unittest.main()
