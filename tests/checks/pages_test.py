#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Runs the commands that README and docs show, and compares what they print.

A block that begins with ```console holds commands, each after "$ ", and what they print. The
commands of a page share one new folder, in the order of the page; `<!-- run: COMMAND -->` prepares
something without showing it, and must succeed. Times, owners, process numbers, line numbers, random
bytes and the breaking of lines may differ. "..." at the end of a line stands for any text, and alone
for any lines. What is not run is listed: commands that set up, build or need a device, and all
blocks of another kind.

    pages_test.py FOLDER_WITH_PROGRAMS... -- PAGE...
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

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
    (r"^zelkm: the keymaster is software.*$", ""),
]


def blocks(page):
    """The fenced blocks and hidden commands of a page: kind, line number, lines."""
    kind = None
    for number, line in enumerate(page.read_text(encoding="utf-8").splitlines(), 1):
        hidden = re.fullmatch(r"<!-- run: (.*) -->", line)
        if hidden and kind is None:
            yield "run", number, [hidden.group(1)]
        elif line.startswith("```"):
            if kind is None:
                kind, start, lines = line[3:].strip(), number, []
            else:
                yield kind, start, lines
                kind = None
        elif kind is not None:
            lines.append(line)


def commands(lines, number):
    """The commands of a transcript: line number, command, output."""
    found = []
    for line in lines:
        number += 1
        if line.startswith("$ "):
            found.append([number, line[2:], []])
        elif found and found[-1][1].endswith("\\") and not found[-1][2]:
            found[-1][1] += "\n" + line
        elif found:
            found[-1][2].append(line)
    return found


def masked(text):
    for pattern, replacement in MASKS:
        text = re.sub(pattern, replacement, text, flags=re.M)
    return text.split()


def same(shown, printed):
    """Whether what was printed is what is shown, but for masks, line breaks and "..."."""
    pieces = re.split(r"^\s*\.\.\.$|(?<= )\.\.\.$", shown, flags=re.M)
    pattern = " .*".join(re.escape(" ".join([""] + masked(piece))) for piece in pieces)
    return re.fullmatch(pattern, " ".join([""] + masked(printed)), re.S) is not None


class Pages:
    def __init__(self, folders):
        self.environment = {
            **os.environ,
            "PATH": os.pathsep.join(folders + [os.environ["PATH"]]),
            "LC_ALL": "C.UTF-8",
        }
        for name in ("ANDROID_LOG_TAGS", "ZELKM_DIR"):
            self.environment.pop(name, None)
        self.ran, self.failed, self.left = 0, 0, []
        self.exports = ""  # what the page exported so far

    def run(self, command, folder):
        export = re.match(r"export \w+=\S+", command)
        if export:
            self.exports += export.group() + "; "
        return subprocess.run(["bash", "-c", self.exports + command], cwd=folder, env=self.environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="backslashreplace",
                              timeout=120, check=False)

    def check(self, page):
        self.exports = ""
        with tempfile.TemporaryDirectory() as folder:
            for kind, number, lines in blocks(page):
                if kind == "console":
                    for at, command, output in commands(lines, number):
                        self.compare(f"{page.name}:{at}", command, "\n".join(output), folder)
                elif kind == "run":
                    done = self.run(lines[0], folder)
                    if done.returncode != 0:
                        self.fail(f"{page.name}:{number}", lines[0], "success", done.stdout)
                else:
                    self.left.append(f"{page.name}:{number}: a block of kind "
                                     f"\"{kind or 'none'}\", which begins with: {lines[0]}")

    def compare(self, place, command, output, folder):
        for word, reason in NOT_RUN.items():
            if command.startswith(word):
                self.left.append(f"{place}: {reason}: {command}")
                return
        self.ran += 1
        printed = self.run(command, folder).stdout
        if not same(output, printed):
            self.fail(place, command, output, printed)

    def fail(self, place, command, shown, printed):
        self.failed += 1
        print(f"{place}: $ {command}\n-- the page shows:\n{shown}\n-- but it prints:\n{printed}")


def main():
    split = sys.argv.index("--")
    pages = Pages([str(pathlib.Path(folder).resolve()) for folder in sys.argv[1:split]])
    for page in sys.argv[split + 1:]:
        pages.check(pathlib.Path(page))
    print("not run:")
    for line in pages.left:
        print(f"  {line}")
    print(f"{pages.ran} commands run, {pages.failed} of them not as shown; "
          f"{len(pages.left)} blocks or commands not run")
    return pages.failed != 0 or pages.ran == 0


if __name__ == "__main__":
    sys.exit(main())
