#!/usr/bin/env -S python3 -B
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""`zelkm doctor` on damaged directories, with their key and without it. Each row is a directory.
The test holds what is found, and that neither a repair nor what comes after it loses an object."""

import base64
import itertools
import os
import pathlib
import re
import stat
import unittest

from store_directory import *

ROOT = pathlib.Path(__file__).resolve().parents[2]
REPORTS = ROOT / "tests/data/doctor_reports.txt"
SEVERITY = "(?:wrong|not checked|note)"
ASK, LIST, REPAIR = ("doctor",), ("aliases",), ("doctor", "--repair")

FLAGS, TAG, ROWS, LEN = 12, 16, 44, 48  # offsets in the header


def plain_store(alias, count):
    rows = alias + b"\x1eapp\x1e\x1e\x1e\x1e\x1e\n\0"
    return b"SOBv1.1     " + bytes(ROWS - FLAGS) + bytes([count, 0, 0, 0, len(rows), 0, 0, 0]) + rows


def log_line(message, time="10:03:02"):
    warns = message.startswith(("no file", "try res", "Upgrade"))
    level, line = ("WARN ", 102) if warns else ("ERROR", 106)
    return (f"1990-11-21 {time}.126 {level} [4242] [log_to_file@{line}] "
            f"zelkeymaster_operation.cpp(450) :{message}\n").encode()


def to_base64(content):
    return base64.b64encode(content) + b"\n"


def to_hex(content):
    """Letters of either case."""
    return "".join(f"{byte >> 4:x}{byte & 15:X}" for byte in content).encode()


def latin1_as_utf8(content):
    return content.decode("latin-1").encode()


def replaced_if_no_text(content):
    return content.decode("ascii", "replace").encode()


def zero(path, at=0, length=1 << 20):
    edit(path, lambda content: content[:at] + bytes(len(content[at:at + length])) + content[at + length:])


def below(content):
    os.mkdir("s/keystore")
    write("s/keystore/secure_objects.db", content)


def link(path, name):
    """Moves a file, and leaves a link to it."""
    os.rename(path, "s/" + name)
    os.symlink(name, path)


def state_of():
    """The directory as it can be made again: by path the mode, the size and what a file holds, or
    where a link leads. A file of more than 1 MiB holds zeros."""
    state = {}
    for path in sorted(pathlib.Path("s").rglob("*")):
        status = path.lstat()
        size = status.st_size if stat.S_ISREG(status.st_mode) else 0
        content = (os.readlink(bytes(path)) if path.is_symlink() else
                   read(path) if 0 < size <= 1 << 20 else b"")
        state[str(path)] = (status.st_mode, size, content)
    return state


def restore(state):
    put({})
    for path, (mode, size, content) in state.items():
        if stat.S_ISLNK(mode):
            os.symlink(content, path)
            continue
        if stat.S_ISDIR(mode):
            os.mkdir(path)
        else:
            write(path, content)
            os.truncate(path, size)
        os.chmod(path, stat.S_IMODE(mode))


PASSING = r"(doctor-|2\d{3}-)[-\d]+|\d\d:\d\d:\d\d.\d{3}|\[\d+\]"


def identity_of(state):
    """All that decides what the tool does with a directory: no times and no number of a process,
    which error files have, and no name of a folder with copies."""
    return tuple((re.sub(PASSING, "", path), mode,
                  re.sub(PASSING.encode(), b"", content) if path.endswith(".txt") else content)
                 for path, (mode, _, content) in state.items())


def lasting(report):
    """A report without what differs each time, and without the words that the page has."""
    return re.sub(r" \([^()\n]*Z\)|\n  (meaning|to do): [^\n]*|"
                  r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d(\.\d+)?|-\d{8}-\d{6}", "", report)


def contents(state):
    """The contents of all files, whatever their names are."""
    return {content for path, (mode, _, content) in state.items()
            if stat.S_ISREG(mode) and not path.endswith(".txt")}


class ZelkmDoctor(StoreDirectoryTest):
    def setUp(self):
        super().setUp()
        self.found = set()
        self.runs = {}
        self.written = os.environ.get("ZELKM_WRITE_REPORTS")
        pieces = re.split(r"^== (.*)\n", "" if self.written else REPORTS.read_text(), flags=re.M)
        self.reports = dict(zip(pieces[1::2], pieces[2::2]))

    def run_on(self, state, command):
        """The outcome of a command on such a directory, and the directory after it. The same
        command is run on the same directory only once. A doctor who is only asked changes nothing."""
        key = (identity_of(state), command)
        if key not in self.runs:
            restore(state)
            self.runs[key] = run(*command), state_of()
            if command == ASK:
                self.assertEqual(self.runs[key][1], state)
        return self.runs[key]

    def aliases(self, state):
        """What the library shows; empty when it refuses."""
        outcome, _ = self.run_on(state, LIST)
        return outcome.out if outcome.status == 0 else ""

    def with_key(self, state):
        key = self.start[ROOT_KEY]
        return dict(sorted({**state, ROOT_KEY: (stat.S_IFREG | 0o600, len(key), key)}.items()))

    def expect_report(self, report, status, finding):
        """Expects this status and finding in a report."""
        names = {"", *re.findall(f"{SEVERITY}: ([a-z-]+): ", report.out)}
        self.assertEqual(report.status, status, report)
        self.assertIn(finding, names, report)
        self.found |= names

    def expect_kept(self, name, report):
        """Expects the report of tests/data, or writes it to the file that ZELKM_WRITE_REPORTS names."""
        if self.written:
            with open(self.written, "a", encoding="utf-8") as file:
                file.write(f"== {name}\n{report}")
        else:
            self.assertEqual(self.reports.pop(name, "no report of this name"), report)

    def judge(self, name, damaged, status, finding, reads=""):
        """Expects a status, a finding, and the aliases after a repair, if one is offered."""
        report, _ = self.run_on(damaged, ASK)
        self.expect_report(report, status, finding)
        self.expect_kept(name, lasting(report.out))
        self.assertEqual("--repair would" in report.out, reads != "")
        repair, repaired = self.run_on(damaged, REPAIR)
        self.assertEqual(identity_of(repaired) != identity_of(damaged), reads != "")
        self.assertEqual(identity_of(self.run_on(repaired, REPAIR)[1]), identity_of(repaired))
        if reads:
            self.expect_kept(name + ", repaired", lasting(repair.out))
            self.assertEqual(self.aliases(self.with_key(repaired)), reads if reads != "refused" else "")

    def expect_nothing_lost(self, damaged):
        """In whatever order somebody asks the doctor, repairs, finds the key again and uses the
        store, no content goes, and the library shows at the end what it would have shown at the
        start."""
        before = self.aliases(self.with_key(damaged))
        for order in itertools.permutations([ASK, "key", LIST, REPAIR]):
            with self.subTest(order=order):
                state = damaged
                for step in order:
                    state = self.with_key(state) if step == "key" else self.run_on(state, step)[1]
                self.assertLessEqual(contents(damaged), contents(state))
                self.assertLessEqual(set(before.split("\n")), set(self.aliases(state).split("\n")))

    def test_judges_and_repairs_without_losing_anything(self):
        start = self.start

        def made(contents, *command):
            put(contents)
            done(*command)
            return files()

        def take_key_of(contents):
            write(K, contents[K])
            write(D, contents[D])

        def make_plain(count):
            write(S, plain_store(b"p", count))

        # A store that was made under the same root key, one under another, a long one, and one
        # whose key was upgraded.
        other = made({ROOT_KEY: start[ROOT_KEY]}, "add", "--alias", "other", "--creator", "app")
        strange = made({}, "add", "--alias", "strange", "--creator", "app")
        large = made(start, "add", "--alias", "x" * 300, "--creator", "app")
        upgraded = made(start, "--patch-level", "202602", "--upgrade", "aliases")

        k1 = "app::k1\n"
        healthy = (0, "")
        undecided = (3, "store-not-decrypted")
        part = self.later[:60]
        # What is done to the directory; what is expected with the key; and without it, where that
        # is something else. One line for each directory.
        rows = [
            ("healthy", lambda: None, healthy, undecided),
            ("empty", lambda: put({}), (3, "no-store")),
            ("a key and no store", lambda: (os.remove(S), os.remove(S_BAK)), (3, "no-store")),

            # Replacements that stopped.
            ("between the renames", lambda: self.interrupt(), (1, "replacement-interrupted", ALL)),
            ("the same, and cut", lambda: (self.interrupt(), os.truncate(S_TMP, len(self.later) - 1)), (1, "store-missing", BOTH), (1, "store-missing")),
            ("the same, and zeros", lambda: (self.interrupt(), zero(S_TMP)), (1, "store-missing", BOTH)),
            ("the same, and an emptied backup", lambda: (self.interrupt(), os.truncate(S_BAK, 0)), (1, "replacement-interrupted", ALL)),
            ("a backup alone", lambda: os.remove(S), (1, "store-missing", k1), (1, "store-missing")),
            ("the first store, complete", lambda: (os.remove(S), os.rename(S_BAK, S_TMP)), (1, "replacement-interrupted", k1)),
            ("a part of a store", lambda: (os.remove(S), os.remove(S_BAK), write(S_TMP, part)), (1, "store-missing")),
            ("before the first rename", lambda: write(S_TMP, self.later), (1, "replacement-unfinished", BOTH), (1, "replacement-unfinished")),
            ("while writing", lambda: write(S_TMP, part), (1, "replacement-unfinished", BOTH)),

            # Less in the file, or something else.
            ("emptied", lambda: os.truncate(S, 0), (1, "store-empty", k1)),
            ("zeros", lambda: zero(S), (1, "store-empty", k1)),
            ("cut in its header", lambda: os.truncate(S, 51), (1, "store-cut", k1)),
            ("cut after its header", lambda: os.truncate(S, 52), (1, "store-cut", k1)),
            ("cut", lambda: os.truncate(S, 60), (1, "store-cut", k1), (1, "store-cut")),
            ("a page of zeros", lambda: (put(large), zero(S, 100, 64)), (1, "store-damaged", BOTH)),
            ("one bit", lambda: flip_last_bit(S), (1, "store-refused", k1), undecided),
            ("one bit, no backup", lambda: (flip_last_bit(S), os.remove(S_BAK)), (1, "store-refused"), undecided),
            ("one bit, a log", lambda: (flip_last_bit(S), write(LOG, log_line("error in finish process : -30"))), (1, "store-refused", k1), (1, "log-store-refused")),
            ("the backup's bit", lambda: flip_last_bit(S_BAK), (1, "backup-damaged"), undecided),
            ("the backup cut", lambda: os.truncate(S_BAK, 60), (1, "backup-damaged")),
            ("the backup emptied", lambda: os.truncate(S_BAK, 0), (1, "backup-damaged", BOTH)),
            ("bytes behind", lambda: edit(S, lambda c: c + b"more"), (1, "store-header", BOTH), (1, "store-header")),
            ("an HTML page", lambda: write(S, b"<html><body>sign in</body></html>\n"), (1, "disguised")),
            ("some text", lambda: write(S, b"file not found\n"), (1, "no-store-file", k1), (1, "no-store-file")),
            ("gzip", lambda: write(S, b"\x1f\x8b\x08 and more"), (1, "disguised")),
            ("base64", lambda: edit(S, to_base64), (1, "disguised")),
            ("hexadecimal", lambda: edit(S, to_hex), (1, "disguised")),
            ("CR LF", lambda: (put(large), put_byte(S, 60, ord("\n")), edit(S, lambda c: c.replace(b"\n", b"\r\n"))), (1, "disguised")),
            ("Latin-1 as UTF-8", lambda: edit(S, latin1_as_utf8), (1, "disguised")),
            ("bytes replaced", lambda: edit(S, replaced_if_no_text), (1, "disguised")),
            ("all in base64", lambda: [edit(path, to_base64) for path in (S, S_BAK, K, D)], (1, "disguised")),

            # Fields of the header that nothing vouches for.
            ("fewer rows", lambda: put_byte(S, ROWS, 1), (1, "store-header", BOTH), undecided),
            ("too many rows", lambda: put_byte(S, ROWS + 1, 9), (1, "store-header", BOTH), (1, "store-header")),
            ("no rows", lambda: put_byte(S, ROWS, 0), (1, "store-header", BOTH), (1, "store-header")),
            ("marked as plaintext", lambda: put_byte(S, FLAGS, 0), (1, "store-header", BOTH), (1, "store-header")),
            ("an unknown flag", lambda: put_byte(S, FLAGS + 2, 4), (1, "store-header", BOTH), (1, "store-header")),
            ("payload length 0", lambda: put_byte(S, LEN, 0), (1, "store-header", BOTH), (1, "store-header")),
            ("payload length too large", lambda: put_byte(S, LEN + 2, 1), (1, "store-header", BOTH), (1, "store-cut")),
            ("no tag", lambda: zero(S, TAG, 16), (1, "store-refused", k1), (1, "store-header")),
            ("another magic", lambda: put_byte(S, 0, ord("T")), (1, "store-refused", k1), (1, "store-header")),

            # Plaintext, which nobody vouches for.
            ("plaintext beside an encrypted backup", lambda: make_plain(1), (1, "plaintext-beside-encrypted")),
            ("plaintext", lambda: (os.remove(S_BAK), make_plain(1)), (3, "store-plaintext")),
            ("plaintext of another row count", lambda: make_plain(3), (1, "store-malformed", k1), (1, "store-malformed")),
            ("plaintext of a lost answer", lambda: (make_plain(1), put_byte(S, FLAGS, 1)), (1, "answer-lost", "app::p\n")),

            # Keys.
            ("no key", lambda: os.remove(K), (1, "key-missing")),
            ("a key of zeros", lambda: zero(K), (1, "key-missing")),
            ("the key in its backup", lambda: os.rename(K, K + ".bak"), (1, "key-missing", BOTH)),
            ("the key in its new file", lambda: os.rename(K, K + ".tmp"), (1, "key-missing", BOTH)),
            ("the key in base64", lambda: edit(K, to_base64), (1, "disguised")),
            ("the key under another name", lambda: os.rename(K, K + "(1)"), (1, "key-elsewhere")),
            ("another key in its place", lambda: (os.rename(K, K + ".bak"), write(K, start[K] + b"x")), (1, "key-displaced", BOTH), (1, "digest-mismatch", "refused")),
            ("a new key, partial", lambda: write(K + ".tmp", b"part"), (1, "key-change-unfinished", BOTH)),
            ("one bit of the key", lambda: flip_last_bit(K), (1, "key-not-accepted", "refused"), (1, "digest-mismatch", "refused")),
            ("no digest", lambda: os.remove(D), (1, "digest-missing", BOTH), (1, "digest-missing")),
            ("one bit of the digest", lambda: flip_last_bit(D), (1, "digest-mismatch", BOTH)),
            ("an upgraded key", lambda: put(upgraded), healthy, undecided),
            ("an upgrade that stopped before its digest", lambda: (put(upgraded), write(D, start[D])), (1, "digest-mismatch", BOTH)),
            ("a damaged old key", lambda: (put(upgraded), flip_last_bit(K + ".bak")), (1, "key-backup-mismatch", BOTH), (1, "key-backup-mismatch")),
            ("an emptied old key", lambda: (put(upgraded), os.truncate(K + ".bak", 0)), (1, "key-backup-mismatch", BOTH), (1, "key-backup-mismatch")),
            ("key of another device", lambda: take_key_of(strange), (3, "key-not-accepted"), undecided),
            ("key made anew", lambda: take_key_of(other), (1, "store-refused"), undecided),

            # To remove the file that is next to the key would make the backup unreadable.
            ("a key that only the backup needs", lambda: (os.rename(K, K + ".tmp"), take_key_of(other), os.truncate(S, 0), below(self.later)), (1, "key-change-unfinished"), (1, "key-change-unfinished", "refused")),

            # Other names, as a second copy into the same place leaves them.
            ("a newer store in a folder", lambda: (os.truncate(S, 0), below(self.later)), (1, "store-elsewhere")),
            ("a newer store in capitals", lambda: (os.remove(S), write("s/SECURE_OBJECTS.DB", self.later)), (1, "store-elsewhere")),
            ("a newer store in base64", lambda: (zero(S), write(S + ".txt", to_base64(self.later))), (1, "store-elsewhere")),
            ("an archive", lambda: (os.truncate(S, 52), write("s/pulled.tgz", b"\x1f\x8b\x08 and more")), (1, "store-elsewhere")),
            ("a second copy", lambda: write(S + "(1)", start[S]), (0, "store-elsewhere"), (3, "store-elsewhere")),

            # What is around them.
            ("a note", lambda: write("s/notes", b"x"), (0, "foreign-file"), undecided),
            ("an old repair", lambda: write(K + ".doctor", b"x"), (0, "doctor-leftover"), undecided),
            ("mode 0666", lambda: os.chmod(K, 0o666), (1, "writable-by-others")),
            ("mode 0640", lambda: os.chmod(K, 0o640), (0, "readable-by-others"), undecided),
            ("a link to the key", lambda: link(K, "key"), (1, "not-a-file"), (1, "not-compared")),
            ("a link to the store", lambda: link(S, "store"), (1, "not-a-file"), (1, "not-compared")),
            ("a link to the digest", lambda: link(D, "digest"), (1, "not-a-file"), (1, "not-compared")),
            ("a link to an error file", lambda: (write("s/log", b"x"), os.symlink("log", "s/zelko_err.1.txt")), (1, "not-a-file")),
            ("65 MiB", lambda: (write("s/zelko_err.2.txt", b""), os.truncate("s/zelko_err.2.txt", 65 << 20)), (1, "too-large")),

            # What the library noted.
            ("a key made anew", lambda: (take_key_of(other), write(LOG, log_line("no file edbk"))), (1, "log-key-made-anew")),
            ("a store begun anew", lambda: (put(other), write(LOG, log_line("no file edbk", "09:00:00") + log_line("no file secure_objects.db"))), (1, "log-store-missing")),
            ("a lost upgrade", lambda: write(LOG, log_line("try restoreKeyBlob(-1000)") + log_line("key blob is verified, regard the device is corrupted or the old version")), (0, "log-call-lost"), undecided),
            ("a key refused", lambda: write(LOG, log_line("error in begin process : -33")), (0, "log-key-refused"), undecided),
            ("a lost answer", lambda: write(LOG, log_line("error in update hidl call : -1000")), (3, "log-answer-lost"), undecided),
            ("a full medium", lambda: write("s/zelko_err.1.txt", log_line("file write fail: No space left on device(28)")), (0, "log-write-failed"), undecided),
            ("busy", lambda: write(LOG, log_line("error in begin process : -31")), (0, "log-too-many-operations"), undecided),
            ("an upgrade", lambda: write(LOG, log_line("Upgrade the db key file")), (0, "log-key-upgraded"), undecided),
            ("a clock that jumps", lambda: write(LOG, log_line("invalid tag") + log_line("invalid tag", "10:03:01")), (0, "log-clock-jumped"), undecided),
            ("other lines", lambda: write("s/zelko_err.2.txt", b"whatever\n"), (0, "log-unknown-lines"), undecided),
        ]
        for name, damage, *expected in rows:
            put(start)
            damage()
            with_key = state_of()
            without = {path: entry for path, entry in with_key.items() if path != ROOT_KEY}
            with self.subTest(row=name):
                self.judge(name, with_key, *expected[0])
                self.judge(name + ", without its key", without, *expected[-1])
                if not SANITIZED:
                    self.expect_nothing_lost(without)
        self.assertEqual(list(self.reports), [], "no row has these reports")

        # The owner has no right to what is theirs. Root acts as the owner.
        is_root = os.geteuid() == 0
        for path, mode, finding in ((S, 0, "unreadable"), ("s", 0o500, "not-writable")):
            put(start)
            if is_root:
                give()
            os.chmod(path, mode)
            self.expect_report(run("doctor"), 1, finding)
            os.chmod("s", 0o700)
        if is_root:
            put(start)
            os.chown(D, OWNER, 0)
            self.expect_report(run("doctor"), 1, "mixed-owners")
            put(start)  # files of root in a directory of somebody else whose group may write
            os.chown("s", OWNER, 42)
            os.chmod("s", 0o2775)
            report = run("doctor")
            self.expect_report(report, 1, "mixed-owners")
            self.expect_report(report, 1, "writable-by-others")
        else:
            self.found.add("mixed-owners")
        page = (ROOT / "docs/doctor.md").read_text()
        kinds = set(re.findall(rf"^\| `([a-z-]+)` \| {SEVERITY} \|", page, flags=re.M))
        self.assertGreater(len(kinds), 40)
        self.assertLessEqual(kinds, self.found)

    @unittest.skipIf(SANITIZED, "hundreds of starts")
    def test_no_changed_directory_is_healthy(self):
        """With the key at hand the doctor calls no directory healthy in which a byte of a file is
        changed or a file is missing."""
        done("--patch-level", "202602", "--upgrade", "aliases")  # leaves backups of key and digest
        healthy = files()
        put(healthy)
        self.assertEqual(done("doctor", "--quiet"), "verdict: healthy\n")

        for path, content in healthy.items():
            changed = {"longer": content + b"\0", "shorter": content[:-1]}
            at = 0
            while at < len(content):
                changed[f"byte {at}"] = content[:at] + bytes([content[at] ^ 1 << at % 8]) + content[at + 1:]
                at += 3 if at < 52 else 17
            if not path.endswith(".bak"):
                changed |= {"empty": b"", "missing": None}
            for what, other in changed.items():
                with self.subTest(path=path, change=what):
                    if other is None:
                        os.remove(path)
                    else:
                        write(path, other)
                    self.assertNotEqual(run("doctor").status, 0)
            write(path, content)

    def test_leaves_to_the_owner_what_others_may_not_read(self):
        """Nothing is concluded from what a user has no right to look at."""
        if os.geteuid() != 0:
            self.skipTest("only root can act as another user")
        os.chmod(".", 0o755)
        for directory, store, status in ((0o700, 0o644, 2), (0o744, 0o644, 2), (0o755, 0o600, 2),
                                         (0o755, 0o644, 0)):
            put(self.start)
            for path in self.start:
                os.chmod(path, 0o644)
            os.chmod(S, store)
            os.chmod("s", directory)
            outcome = run("doctor", user=OWNER)
            if outcome.status == 126:
                self.skipTest("another user may not start the tool")
            self.assertEqual(outcome.status, status, outcome)
            self.assertEqual("Permission denied" in outcome.err, status == 2, outcome)
            self.assertEqual(outcome.out == "", status == 2, outcome)


if __name__ == "__main__":
    unittest.main()
