#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Runs the commands that README, docs and sessions show, and compares what they print.

A block that begins with ```console holds commands, each after "$ ", and what they print.
`<!-- run: COMMAND -->` prepares something without showing it, and must succeed. All commands of a
file run in one bash, in the order of the file, in a new folder, with the programs on PATH. SOURCE
is the root of the project.

Pages are for readers: times, owners, process numbers, line numbers, random bytes (MASKS) and the
breaking of lines may differ. "..." at the end of a line stands for any text, and alone for any
lines. What is not run is listed: commands that set up, build or need a device, and all blocks of
another kind.

Sessions (--exact: tests/sessions) are tests: every line counts but for MASKS, and so does the exit
status, shown as a last line "(exit 2)" where it is not 0. "(no newline)" follows a last line
without one; "<0d>" is a control character, "<20>" a blank at the end of a line, "<xff>" a byte that
is not UTF-8; FOLDER is the folder. To write or change a session, type its commands, let --update
write what they print, and read the difference:

    pages_test.py [--exact | --update] FOLDER_WITH_PROGRAMS... -- FILE...
    tests/checks/pages_test.py --update build/debug/tools -- tests/sessions/list.md
"""

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unicodedata

NOT_RUN = {
    "adb": "needs a device",
    "setprop": "needs a device",
    "scripts/": "sets up and builds",
    "cmake": "builds",
    "ctest": "builds",
    "sudo": "changes the machine",
    "apt": "changes the machine",
    "git": "needs the repository",
}
MASKS = [
    (r"\x1b\[[0-9;]*m", ""),
    (r"^keymaster_tee ([A-Z]) .*?(?=\[)", r"LOG \1 "),  # liblog of Debian 12
    (r"^\d\d-\d\d .* ([A-Z]) keymaster_tee\s*: ", r"LOG \1 "),  # and of Debian 13
    (r"\d{4}-\d\d-\d\d[ T]\d\d:\d\d:\d\d(\.\d+)?Z?", "TIME"),
    (r"\b\d\d-\d\d \d\d:\d\d:\d\d(\.\d+)?", "TIME"),
    (r"\b(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) +\d+ +(\d\d:\d\d|\d{4})", "TIME"),
    (r"\bdoctor-\d{8}-\d{6}", "doctor-TIME"),
    (r"\btook \d+\.\d s\b", "took TIME"),
    # Its lines hold process numbers, of any length.
    (r"\b\d+( TIME zelko_err\.txt)|(?<=zelko_err\.txt: )\d+", r"SIZE\1"),
    (r"\bTIME +\d+ +\d+ ", "TIME PID PID "),
    (r"\[\d+\]", "[PID]"),
    (r"(\w+\.cpp)(\(|:)(\d+|N)(\)?)", r"\1(N)"),
    (r": L(\d+|N)\b", ": LN"),
    (r"\b[0-9a-f]{24,}\b", "HEX"),
    (r"(\b0[0-7]{3}), \d+:\d+,", r"\1, OWNER,"),
    (r"^([-d][-rwx]{9} +\d+) \S+ +\S+", r"\1 USER GROUP"),  # of ls -l
    (r"\b\d+(\.\d+)? (seconds|s|ms)\b", "DURATION"),
    (r"^bash: (eval: )?line \d+: ", "bash: "),
    (r"\bprocess \d+", "process PID"),
]
FIRST_NOTE = re.compile(r"^zelkm: the keymaster is software.*", re.M)  # which pages leave out
END = "\x1d"  # follows what a command prints, and is followed by its exit status


class Command:
    def __init__(self, number, text, hidden=False):
        self.number, self.text, self.hidden = number, text, hidden
        self.shown = []  # lines
        self.printed, self.status = "", None  # of a command that was run


def commands(lines):
    """The commands of a file, with what is shown; and the blocks of another kind."""
    found, others = [], []
    kind = None
    for number, line in enumerate(lines, 1):
        hidden = re.fullmatch(r"<!-- run: (.*) -->", line)
        if hidden and kind is None:
            found.append(Command(number, hidden.group(1), hidden=True))
        elif line.startswith("```"):
            if kind is None and line != "```console":
                others.append(f"{number}: a block of kind \"{line[3:] or 'none'}\", which begins "
                              f"with: {lines[number]}")
            kind = line[3:].strip() if kind is None else None
        elif kind == "console" and line.startswith("$ "):
            found.append(Command(number, line[2:]))
        elif kind == "console" and found[-1].text.endswith("\\") and not found[-1].shown:
            found[-1].text += "\n" + line
        elif kind == "console":
            found[-1].shown.append(line)
    return found, others


def run(wanted, folders):
    """Runs these commands."""
    environment = {**os.environ, "PATH": os.pathsep.join(folders + [os.environ["PATH"]]),
                   "SOURCE": str(pathlib.Path(__file__).resolve().parents[2]),
                   "LC_ALL": "C.UTF-8", "TZ": "UTC"}
    for name in ("ANDROID_LOG_TAGS", "NO_COLOR", "ZELKM_DIR"):
        environment.pop(name, None)
    script = "".join(f"eval {shlex.quote(command.text)}\nprintf '\\035%d\\n' $?\n"
                     for command in wanted)
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(["bash", "-c", script], cwd=folder, env=environment, umask=0o022,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=600, check=False)
    printed = done.stdout.decode(errors="surrogateescape").replace(folder, "FOLDER")
    for command, (text, status) in zip(wanted, re.findall(f"(.*?){END}(\\d+)\n", printed, re.S)):
        command.printed, command.status = text, int(status)


def masked(text):
    for pattern, replacement in MASKS:
        text = re.sub(pattern, replacement, text, flags=re.M)
    return text


def same(command):
    """Whether a page's command prints what is shown, but for masks, line breaks and "..."."""
    pieces = re.split(r"^\s*\.\.\.$|(?<= )\.\.\.$", "\n".join(command.shown), flags=re.M)
    printed = FIRST_NOTE.sub("", command.printed)
    words = [" ".join([""] + masked(text).split()) for text in [printed] + pieces]
    return re.fullmatch(" .*".join(map(re.escape, words[1:])), words[0], re.S) is not None


def visible(character):
    """A character of a line as sessions show it: with its number if a terminal would obey it."""
    number = ord(character)
    if 0xDC80 <= number <= 0xDCFF:  # a byte that is not UTF-8
        return f"<x{number - 0xDC00:02x}>"
    odd = unicodedata.category(character) in ("Cc", "Cf", "Zl", "Zp")
    return f"<{number:02x}>" if odd else character


def exactly(command):
    """The lines that a session shows."""
    lines = ["".join(map(visible, re.sub(" $", "<20>", line)))
             for line in command.printed.split("\n")]
    lines += ["(no newline)"] if lines[-1] else lines.pop()
    return lines + ([f"(exit {command.status})"] if command.status else [])


def same_exactly(command):
    return masked("\n".join(command.shown)) == masked("\n".join(exactly(command)))


def update(path, lines, found):
    """Puts what the commands print into the file, where it differs from what is shown."""
    for command in reversed(found):
        if not command.hidden and not same_exactly(command):
            start = command.number + command.text.count("\n")
            lines[start:start + len(command.shown)] = exactly(command)
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def main():
    mode = sys.argv[1] if sys.argv[1].startswith("--") else "--pages"
    split = sys.argv.index("--", 2)
    folders = [str(pathlib.Path(folder).resolve()) for folder in sys.argv[1:split]
               if folder != mode]
    ran, failed, left = 0, 0, []
    for path in map(pathlib.Path, sys.argv[split + 1:]):
        lines = path.read_text(encoding="utf-8").split("\n")[:-1]
        found, others = commands(lines)
        left += [f"{path.name}:{other}" for other in others]
        for command in found[:] if mode == "--pages" else []:
            for word, reason in NOT_RUN.items():
                if command.text.startswith(word) and not command.hidden:
                    left.append(f"{path.name}:{command.number}: {reason}: {command.text}")
                    found.remove(command)
        run(found, folders)
        if mode == "--update":
            update(path, lines, found)
        for command in found if mode != "--update" else []:
            right = command.status is not None and (
                command.status == 0 if command.hidden else
                same(command) if mode == "--pages" else same_exactly(command))
            if not right:
                failed += 1
                print(f"{path.name}:{command.number}: $ {command.text}\n-- the file shows:",
                      *command.shown, "-- but it prints:", *exactly(command), sep="\n")
        ran += len(found)
    if left:
        print("not run:", *left, sep="\n  ")
    print(f"{ran} commands run, {failed} of them not as shown; "
          f"{len(left)} blocks or commands not run")
    return failed != 0 or ran == 0


if __name__ == "__main__":
    sys.exit(main())
