# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The tool with support/failing_calls.cpp in it, whose path as a library is in the environment
variable FAILING_CALLS: each of its calls fails in turn, ends it, or waits."""

import itertools
import os
import struct
import subprocess

from store_directory import Outcome, read, shown, tool

# What the test and the program say to each other on these descriptors: see failing_calls.cpp.
ORDERS, REPORTS = 100, 101
ORDER, REPORT = struct.Struct("li0l"), struct.Struct("il")
FAILS, ENDS_ALL, WAITS = range(3)
WAITING = -1


class FailingTool:
    """A command of the tool, which has read its command line and waits for orders."""

    def __init__(self, test, *args):
        self.test = test
        orders, self.orders = os.pipe()
        self.reports, reports = os.pipe()
        os.dup2(orders, ORDERS)
        os.dup2(reports, REPORTS)
        sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        self.program = subprocess.Popen(
            tool(*args), pass_fds=(ORDERS, REPORTS), stdin=subprocess.DEVNULL,
            env={**os.environ, "LD_PRELOAD": os.environ["FAILING_CALLS"], "ASAN_OPTIONS": sanitizer})
        for descriptor in (orders, reports, ORDERS, REPORTS):
            os.close(descriptor)
        test.addCleanup(self.end)

    def end(self):
        os.close(self.orders)
        os.close(self.reports)
        self.test.assertEqual(self.program.wait(), 0)

    def say(self, nth, fate):
        os.write(self.orders, ORDER.pack(nth, fate))
        return REPORT.unpack(os.read(self.reports, REPORT.size))

    def run(self, nth=0, fate=FAILS, meanwhile=None):
        """Lets the nth call fail, end the command, or wait for `meanwhile`. Returns the outcome and
        the number of calls."""
        status, count = self.say(nth, fate)
        if status == WAITING:
            meanwhile()
            status, count = self.say(0, FAILS)
        outputs = (shown(read(name)) for name in ("stdout", "stderr"))
        return Outcome(os.waitstatus_to_exitcode(status), *outputs), count

    def run_at_each_call(self, fate, prepare, check, meanwhile=None):
        """Calls check(the outcome with the nth call at fault) for all n, until there is none."""
        for nth in itertools.count(1):
            prepare()
            with self.test.subTest(args=self.program.args[2:], call=nth, fate=fate):
                outcome, count = self.run(nth, fate, meanwhile)
                check(outcome)
            if nth > count:
                break
        self.test.assertGreater(nth, 20)
