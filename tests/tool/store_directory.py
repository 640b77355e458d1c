# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The command-line tool, as a program, on store directories that its tests damage. Its path is in
the environment variable ZELKM. Paths are relative to a test's own folder, and contents are bytes."""

import collections
import contextlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

S = "s/secure_objects.db"
S_BAK = S + ".bak"
S_TMP = S + ".tmp"
K = "s/edbk"
D = "s/edbk_digest"
ROOT_KEY = "s/soft_keymaster_root.key"
LOG = "s/zelko_err.txt"

BOTH = "app::k1\napp::k2\n"  # the objects in the store, and those in `later`
ALL = BOTH + "application::k3\n"
OWNER = 65534  # of a directory that is not root's

# A program then takes many times as long to start. What no build of it changes is left to the others.
SANITIZED = "ASAN_OPTIONS" in os.environ

Outcome = collections.namedtuple("Outcome", "status out err")


def shown(output):
    return output.decode(errors="backslashreplace")


def tool(*args, directory="s"):
    return [os.environ["ZELKM"], "--dir=" + directory, *args]


def run(*args, directory="s", user=0):
    """Runs the tool on a directory. Root can let another user do that."""
    other = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups"] if user else []
    ended = subprocess.run(other + tool(*args, directory=directory), stdin=subprocess.DEVNULL,
                           capture_output=True, timeout=300, check=False)
    return Outcome(ended.returncode, shown(ended.stdout), shown(ended.stderr))


def done(*args, directory="s"):
    """Runs the tool, expects success, and returns its output."""
    outcome = run(*args, directory=directory)
    assert outcome.status == 0, (args, outcome)
    return outcome.out


def add(alias, creator="app"):
    done("add", "--alias", alias, "--creator", creator)


def read(path):
    return pathlib.Path(path).read_bytes()


def write(path, content):
    pathlib.Path(path).write_bytes(content)


def edit(path, change):
    write(path, change(read(path)))


def put_byte(path, at, byte):
    edit(path, lambda content: content[:at] + bytes([byte]) + content[at + 1:])


def flip_last_bit(path):
    edit(path, lambda content: content[:-1] + bytes([content[-1] ^ 1]))


def files(folder="s"):
    """What the regular files in a folder hold, but for the error file."""
    return {entry.path: read(entry) for entry in os.scandir(folder)
            if entry.is_file(follow_symlinks=False) and entry.path != LOG}


def put(contents):
    """Makes the directory anew, with these files."""
    shutil.rmtree("s", ignore_errors=True)
    os.mkdir("s")
    for path, content in contents.items():
        write(path, content)
        os.chmod(path, 0o600)


def give(user=OWNER):
    """Gives the directory and all in it to a user."""
    for path in [pathlib.Path("s"), *pathlib.Path("s").rglob("*")]:
        os.lchown(path, user, -1)


class StoreDirectoryTest(unittest.TestCase):
    """The store in the directory "s" holds k1 and k2, and its backup k1: `start` has the files.
    `later` is the same store with a third object."""

    maxDiff = None

    def setUp(self):
        os.umask(0o077)
        folder = self.enterContext(tempfile.TemporaryDirectory(prefix="zelkm_test_"))
        self.enterContext(contextlib.chdir(folder))
        os.mkdir("s")
        add("k1")
        add("k2")
        self.start = files()
        add("k3", "application")
        self.later = read(S)
        put(self.start)

    def interrupt(self):
        """Leaves the files as a replacement does that stops between its renames."""
        os.rename(S, S_BAK)
        write(S_TMP, self.later)
