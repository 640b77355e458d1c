#!/usr/bin/env -S python3 -B
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The tool on directories that somebody else is changing. Root's tool does for the owner only what
the owner could have done."""

import os
import pathlib
import unittest

from failing_tool import FailingTool, WAITS
from store_directory import *

needs_waits = unittest.skipIf(SANITIZED or "FAILING_CALLS" not in os.environ,
                              "the tool cannot be made to wait, or takes long to start")


@unittest.skipIf(os.geteuid() != 0, "needs root")
class ZelkmAsRoot(StoreDirectoryTest):
    """Root repairs what belongs to somebody else, who swaps links for what the doctor makes."""

    def setUp(self):
        super().setUp()
        os.mkdir("roots")
        write("roots/file", b"root's")

    def expect_untouched(self):
        self.assertEqual(os.listdir("roots"), ["file"])
        self.assertEqual(read("roots/file"), b"root's")
        self.assertEqual(os.stat("roots/file").st_uid, 0)

    def test_acts_as_the_directorys_owner(self):
        self.interrupt()
        os.symlink("../roots/file", S + ".doctor")
        give()
        done("doctor", "--repair")
        for path in pathlib.Path("s").rglob("*"):
            self.assertEqual(path.lstat().st_uid, OWNER, path)
        self.expect_untouched()

        # The tool does not read for the owner what the owner cannot read.
        write(K, b"root's")
        os.chown(K, 0, 0)
        os.chmod(K, 0o600)
        outcome = run("doctor", "--repair")
        self.assertEqual(outcome.status, 1)
        self.assertIn("wrong: unreadable: edbk", outcome.out)
        self.assertEqual(read(K), b"root's")

    @needs_waits
    def test_follows_no_link_that_is_swapped_in(self):
        roots = os.path.abspath("roots")

        def prepare():
            put(self.start)
            self.interrupt()
            give()

        def attack():
            os.symlink(roots + "/file", "s/link")
            os.rename("s/link", S + ".doctor")
            for name in os.listdir("s"):
                if name.startswith("doctor-"):
                    os.rename("s/" + name, "s/away")
                    os.symlink(roots, "s/" + name)

        FailingTool(self, "doctor", "--repair").run_at_each_call(
            WAITS, prepare, lambda _: self.expect_untouched(), attack)

    @needs_waits
    def test_writes_and_reads_only_what_the_owner_could(self):
        write("more.csv", b"ALIAS,CREATOR\nx,y\n")
        roots = os.path.abspath("roots")

        def prepare():
            put(self.start)
            give()

        def attack():
            for path in (S_TMP, K + ".tmp", D + ".tmp"):
                os.symlink(roots + "/file", "link")
                os.rename("link", path)
            for name in os.listdir("s"):
                if name.startswith("request"):
                    write("bait", b"")
                    os.chown("bait", OWNER, 0)
                    os.rename("bait", "s/" + name)

        def check(_):
            self.expect_untouched()
            for path in pathlib.Path("s").iterdir():
                status = path.lstat()
                if path.name.startswith("request"):
                    self.assertTrue(status.st_uid == 0 or status.st_size == 0, path)
                else:
                    self.assertTrue(status.st_uid == OWNER or path.is_symlink(), path)

        for command in (("add", "--alias", "n", "--creator", "c"),
                        ("import", "more.csv"),
                        ("remove", "--where", "ALIAS=k1"),
                        ("query", "INSERT (ALIAS) VALUE (q)"),
                        ("list", "--patch-level", "203001", "--upgrade"),
                        ("csr", "--out", "s/request")):
            FailingTool(self, *command).run_at_each_call(WAITS, prepare, check, attack)

    def test_takes_no_rights_of_others_and_follows_no_link_of_theirs(self):
        shadow = 42
        give()
        write(LOG, b"0nly for shadow")
        os.chown(LOG, 0, shadow)
        os.chmod(LOG, 0o640)
        os.chown("s", OWNER, shadow)
        info = run("info")
        self.assertIn("zelko_err.txt: unreadable", info.out)
        self.assertNotIn("0nly", info.out)
        os.remove(LOG)
        self.assertEqual(done("aliases"), BOTH)
        os.chmod("s", 0o2775)
        self.assertIn("its group may change it", run("aliases").err)

        os.mkdir("mine")
        os.symlink("mine", "link")
        for path in ("link", "link/", "link/."):
            self.assertEqual(done("aliases", directory=path), "")
            os.lchown("link", OWNER, 0)
            for command in ("aliases", "info", "doctor"):
                self.assertIn("is a link of another user", run(command, directory=path).err)
            os.lchown("link", 0, 0)


if __name__ == "__main__":
    unittest.main()
