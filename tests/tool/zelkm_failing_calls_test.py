#!/usr/bin/env -S python3 -B
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The tool, while each of its file calls and allocations fails in turn, or is its last one."""

import os
import shutil
import unittest
import unittest.mock

from failing_tool import *
from store_directory import *


def run_afterwards(tool):
    """Runs a command on what is left; the doctor may have to put it right before."""
    outcome, _ = tool.run()
    if outcome.status != 0:
        run("doctor", "--repair")
        outcome, _ = tool.run()
    return outcome


class ZelkmFailingCalls(StoreDirectoryTest):
    def test_lose_no_object(self):
        done("list", "--patch-level", "202601", "--upgrade")
        start = files()
        write("more.csv", b"ALIAS,CREATOR\nx,y\nz,y\n")

        def listing(level):
            return FailingTool(self, "--quiet", "--patch-level", level, "--upgrade",
                               "list", "--columns", "ALIAS", "--csv")

        both = "ALIAS\r\nk1\r\nk2\r\n"
        add = ("add", "--alias", "n", "--creator", "c")
        for command, level, after in (((), "202601", both),
                                      ((), "202612", both),
                                      (add, "202601", both + "n\r\n"),
                                      (("remove", "--where", "ALIAS=k1"), "202601", "ALIAS\r\nk2\r\n"),
                                      (("import", "more.csv"), "202601", both + "x\r\nz\r\n")):
            lists = listing(level)
            tool = FailingTool(self, "--patch-level", level, *command) if command else listing(level)

            def check(outcome):
                self.assertIn(outcome.status, (0, 1), outcome)
                if not command and outcome.status == 0:
                    self.assertEqual(outcome.out, after)
                listed = both if files() == start else run_afterwards(lists).out
                self.assertIn(listed, (after,) if outcome.status == 0 else (after, both), outcome)

            tool.run_at_each_call(FAILS, lambda: put(start), check)

    def test_leave_a_directory_to_go_on_with_before_the_first_object(self):
        """Nothing was stored before the first object."""
        add = FailingTool(self, "add", "--alias", "n", "--creator", "c")
        aliases = FailingTool(self, "aliases")

        def check(outcome):
            listed = run_afterwards(aliases)
            self.assertEqual(listed.status, 0, listed)
            self.assertIn(listed.out, ("c::n\n",) if outcome.status == 0 else ("c::n\n", ""))

        for fate in (FAILS,) if SANITIZED else (FAILS, ENDS_ALL):
            add.run_at_each_call(fate, lambda: put({}), check)

    @unittest.skipIf(SANITIZED, "what a power cut leaves is the same in all builds")
    def test_leave_nothing_outside_wherever_the_doctor_is_killed(self):
        os.mkdir("tmp")
        self.enterContext(unittest.mock.patch.dict(os.environ, TMPDIR="tmp"))
        self.interrupt()
        damaged = files()
        around = {*os.listdir(), "stdout", "stderr"}
        touched = 0
        doctor, again = (FailingTool(self, "doctor", "--repair") for _ in range(2))
        aliases = FailingTool(self, "aliases")

        def check(_):
            nonlocal touched
            touched += files() != damaged
            self.assertEqual(os.listdir("tmp"), [])
            self.assertLessEqual(set(os.listdir()), around)
            self.assertFalse(list(pathlib.Path("s").glob("*/*.key*")))
            again.run()
            self.assertEqual(run("doctor").status, 0)
            self.assertEqual(aliases.run()[0].out, ALL)

        doctor.run_at_each_call(ENDS_ALL, lambda: put(damaged), check)
        self.assertGreater(touched, 5)

    def test_replace_both_outputs_or_none(self):
        write("in", b"input")

        def prepare():
            shutil.rmtree("out", ignore_errors=True)
            os.mkdir("out")
            write("out/a", b"old a")
            write("out/b", b"old b")

        def check(outcome):
            now = files("out")
            changed = now["out/a"] != b"old a"
            self.assertEqual(now["out/b"] != b"old b", changed)
            if outcome.status == 0:
                self.assertTrue(changed)
            else:
                self.assertEqual(len(now), 2)

        inputs = (word for name in ("--in1", "--in2", "--in3", "--in4", "--material")
                  for word in (name, "in"))
        wrap = FailingTool(self, "wrap", *inputs, "--out", "out/a", "--tag", "out/b")
        wrap.run_at_each_call(FAILS, prepare, check)


if __name__ == "__main__":
    unittest.main(failfast=True)
