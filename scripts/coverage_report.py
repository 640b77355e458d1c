#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
"""Shows what the tests executed of the library's sources: coverage_report.py BUILD_FOLDER [--missing]

The folder is an instrumented build whose tests have run (cmake --preset coverage). Branches that only
an exception takes are left out, since the library has none. --missing lists the lines that never ran,
and the branches never taken with the counts of all branches of their line. What only children of a
test did that ended by _exit is not counted.
"""
import collections
import gzip
import json
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def notes(build):
    """gcov's account of each object of the library."""
    with tempfile.TemporaryDirectory() as folder:
        for data in sorted((build / "common").rglob("zelkeymaster_objects.dir/**/*.gcda")):
            subprocess.run(["gcov", "--branch-probabilities", "--json-format", str(data)],
                           cwd=folder, check=True, capture_output=True)
        for file in sorted(pathlib.Path(folder).glob("*.json.gz")):
            with gzip.open(file) as stream:
                yield json.load(stream)


def merge(build):
    """Counts by source and line: of the line, and of each of its branches. Headers come several times."""
    lines = collections.defaultdict(lambda: collections.defaultdict(int))
    branches = collections.defaultdict(dict)
    for note in notes(build):
        for file in note["files"]:
            if not file["file"].startswith(("common/", "include/")):
                continue
            for line in file["lines"]:
                number = line["line_number"]
                lines[file["file"]][number] += line["count"]
                taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
                before = branches[file["file"]].get(number, [])
                if len(before) == len(taken):
                    taken = [sum(pair) for pair in zip(before, taken)]
                branches[file["file"]][number] = max(taken, before, key=len)
    return lines, branches


def print_row(name, ran, taken):
    def share(counts):
        return f"{sum(map(bool, counts)):5} of {len(counts):5}" + (
            f" {100 * sum(map(bool, counts)) / len(counts):6.1f} %" if counts else "         ")

    print(f"{name:60} {share(ran)}   {share(taken)}")


def main():
    lines, branches = merge(pathlib.Path(sys.argv[1]).resolve())
    if not lines:
        sys.exit("no counts there: have the tests run?")
    print(f"{'':60} {'lines':>14} {'':11} {'branches':>14}")
    all_ran, all_taken = [], []
    for name in sorted(lines):
        ran = list(lines[name].values())
        taken = [count for counts in branches[name].values() for count in counts]
        print_row(name, ran, taken)
        all_ran += ran
        all_taken += taken
    print_row("all", all_ran, all_taken)
    if "--missing" in sys.argv[2:]:
        for name in sorted(lines):
            text = (ROOT / name).read_text(encoding="utf-8").splitlines()
            for number, count in sorted(lines[name].items()):
                counts = branches[name][number]
                if not count or 0 in counts:
                    print(f"{name}:{number}: {counts if count else 'never'}  {text[number - 1].strip()}")


if __name__ == "__main__":
    main()
