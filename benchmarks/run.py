#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Runs the benchmarks and reports ratios first, times second, the machine last.

Every figure comes from a process of its own, so that its heap is as said. The sides of a comparison
run one right after the other, all of them several rounds long: a ratio is the median of its rounds.
"""

import argparse
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import time

SIZES = [10, 100, 1000, 10000]
LARGE = 100000
HEAPS = ["fresh", "aged"]
MEMORY_SIZES = [1000, 10000, 100000]

# What is to be reached: text, subject, dividend, divisor, and the limit for each number of rows.
TARGETS = [
    ("`SodInsert` without flush ÷ (memcpy + GCM + bare file replacement)",
     "SodInsert.unflushed", "ours", "floor", {100: 1.10, 1000: 1.15, 10000: 1.50}),
    ("`SodInsert` with flush ÷ SQLCipher insert, its default",
     "SodInsert.flushed", "ours", "sqlcipher", {100: 0.8, 1000: 0.8, 10000: 0.9}),
    ("`SodSelect` by alias ÷ SQLCipher select, index, from text",
     "SodSelect_alias", "ours", "sqlcipher", {100: 0.3, 1000: 0.4, 10000: 0.8}),
    ("open, load and read all rows ÷ SQLCipher open, key, select all",
     "open_read_all", "ours", "sqlcipher", {1000: 0.5, 10000: 0.45}),
    ("engine load with decryption ÷ the same copies, allocations and decryption alone",
     "engine_load.gcm", "ours", "floor", {1000: 1.4, 10000: 1.3}),
    ("`DBEncrypt` with a keymaster that takes 4 KiB per update ÷ one that takes all at once",
     "DBEncrypt.encrypt", "ours_4KiB", "ours", {10000: 1.3}),
]

BEGIN, END = "<!-- figures: begin -->", "<!-- figures: end -->"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True,
                        help="the folder of the built benchmarks")
    parser.add_argument("--before", type=pathlib.Path,
                        help="the same of another revision, measured beside this one")
    parser.add_argument("--quick", action="store_true", help="a smoke run")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--min-time", type=float, default=0.05, help="seconds per figure")
    parser.add_argument("--only", default="", help="subjects that match this expression")
    parser.add_argument("--write", type=pathlib.Path, metavar="FILE",
                        help="put the report between the marks of this page")
    options = parser.parse_args()
    if options.quick:
        options.rounds, options.min_time = 1, 0.002
    return options


class Bench:
    """One build of the benchmarks."""

    def __init__(self, folder):
        self.folder = folder.resolve()
        self.program = self.folder / "zelkm_benchmarks"
        listing = self.call([self.program, "--benchmark_list_tests"])
        self.names = {}
        for name in listing.split():
            subject, side, rows = name.split("/")[:3]
            self.names[subject, side, int(rows)] = name
        self.context = {}

    def call(self, command):
        done = subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, text=True)
        if done.returncode != 0:
            sys.exit(f"bench: {' '.join(map(str, command))} failed")
        return done.stdout

    def time(self, subject, side, rows, heap, min_time):
        """One figure in microseconds."""
        name = self.names[subject, side, rows]
        output = json.loads(self.call(
            [self.program] + (["--aged-heap"] if heap == "aged" else []) +
            [f"--benchmark_filter=^{re.escape(name)}$", f"--benchmark_min_time={min_time}",
             "--benchmark_format=json"]))
        self.context = output["context"]
        (result,) = output["benchmarks"]
        assert result["time_unit"] == "us", result
        return result["real_time"]

    def memory(self, rows):
        return json.loads(self.call([self.folder / "zelkm_memory_probe", str(rows)]))


class Figures:
    """Times by subject, side, rows and heap; one per round."""

    def __init__(self):
        self.times = {}

    def add(self, key, value):
        self.times.setdefault(key, []).append(value)

    def has(self, subject, side):
        return any(key[:2] == (subject, side) for key in self.times)

    def median(self, subject, side, rows, heap="fresh"):
        times = self.times.get((subject, side, rows, heap))
        return statistics.median(times) if times else None

    def ratio(self, subject, dividend, divisor, rows, heap="fresh"):
        above = self.times.get((subject, dividend, rows, heap))
        below = self.times.get((subject, divisor, rows, heap))
        if not above or not below:
            return None
        return statistics.median(a / b for a, b in zip(above, below))


def measure(options, bench, before, subjects, sizes, heaps):
    figures = Figures()
    todo = [(subject, rows, heap) for heap in heaps for subject in subjects for rows in sizes]
    for turn in range(options.rounds):
        for done, (subject, rows, heap) in enumerate(todo):
            progress(f"round {turn + 1} of {options.rounds}: {done} of {len(todo)}, {subject}")
            # A flush takes milliseconds.
            min_time = options.min_time * (4 if subject.endswith(".flushed") else 1)
            for side in subjects[subject][::-1 if turn % 2 else 1]:  # no side is always the first
                figures.add((subject, side, rows, heap),
                            bench.time(subject, side, rows, heap, min_time))
                if before and side.startswith("ours") and (subject, side, rows) in before.names:
                    figures.add((subject, side.replace("ours", "before"), rows, heap),
                                before.time(subject, side, rows, heap, min_time))
    return figures


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


# ---- Report -------------------------------------------------------------------------------------


def number(value, digits=2):
    return "–" if value is None else f"{value:.{digits}f}"


def micros(value):
    return "–" if value is None else f"{value:.3g}" if value < 1000 else f"{value:,.0f}"


def kib(value):
    return f"{value / 1024:,.0f}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "| --- |" + " ---: |" * (len(head) - 1)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def target_section(figures, heaps, before):
    lines = ["### Ratios that have a target", "",
             "Reached on the fresh heap / on the aged one" +
             (", of the revision before in brackets" if before else "") + "; then the target.", ""]
    rows = []
    for text, subject, dividend, divisor, limits in TARGETS:
        if not figures.has(subject, dividend):
            continue
        cells = [text]
        for size in (100, 1000, 10000):
            if size not in limits:
                cells.append("–")
                continue
            cell = " / ".join(number(figures.ratio(subject, dividend, divisor, size, heap))
                              for heap in heaps)
            if before:
                old = figures.ratio(subject, dividend.replace("ours", "before"),
                                    divisor.replace("ours", "before"), size)
                cell += f" [{number(old)}]"
            cells.append(f"{cell}, {limits[size]:.2f}")
        rows.append(cells)
    return lines + table(["what", "n = 100", "n = 1,000", "n = 10,000"], rows)


def ratio_section(figures, subjects, sizes, heaps):
    lines = ["### All ratios", "", "Fresh heap / aged heap.", ""]
    rows = []
    for subject, sides in subjects.items():
        for side in sides + ["before"]:
            if side.startswith("ours") or not figures.has(subject, side):
                continue
            rows.append([f"{subject} ÷ {side}"] + [
                " / ".join(number(figures.ratio(subject, "ours", side, size, heap))
                           for heap in heaps) for size in sizes])
    return lines + table(["what"] + [f"n = {size:,}" for size in sizes], rows)


def time_section(figures, sizes, heaps):
    lines = ["### Times", "",
             "Microseconds per operation, fresh heap / aged heap; in brackets how far apart the "
             "rounds were on the fresh heap, in percent of the median.", ""]
    rows = []
    for subject, side in dict.fromkeys((key[0], key[1]) for key in figures.times):
        cells = [f"{subject}, {side}"]
        for size in sizes:
            times = figures.times.get((subject, side, size, "fresh"), [])
            spread = (f" ({100 * (max(times) - min(times)) / statistics.median(times):.0f})"
                      if len(times) > 1 else "")
            cells.append(" / ".join(micros(figures.median(subject, side, size, heap))
                                    for heap in heaps) + spread)
        rows.append(cells)
    return lines + table(["what, side"] + [f"n = {size:,}" for size in sizes], rows)


def slope_section(options, bench, figures, subjects):
    lines = ["### From 10,000 to 100,000 rows", "",
             "One run with 100,000 rows, in microseconds. Growth 10 is linear; what no longer fits "
             "the caches, or comes from the kernel anew each time, grows somewhat faster; quadratic "
             "costs grow by 100.",
             ""]
    rows = []
    for subject, sides in subjects.items():
        progress(f"{LARGE} rows: {subject}")
        cells = [subject]
        for side in ("ours", "floor"):
            small = figures.median(subject, side, 10000)
            large = bench.time(subject, side, LARGE, "fresh", options.min_time)
            cells += [micros(small), micros(large)] if side == "ours" else []
            cells.append(number(large / small, 1))
        rows.append(cells)
    return lines + table(["what", "n = 10,000", "n = 100,000", "growth", "floor's growth"], rows)


def memory_section(bench):
    lines = ["### Memory", "",
             "The most that resident memory grows by, in KiB; in brackets what of it is beyond the "
             "rows' blocks, in store files. A row has one block, and one for each value; what the "
             "allocator adds to the size of a block is its own cost. The limit is 4 store files "
             "and that cost.", ""]
    rows = []
    for size in MEMORY_SIZES:
        use = bench.memory(size)
        store, blocks, cost = use["store"], use["blocks"], use["allocator"]
        rows.append([f"{size:,}"] +
                    [kib(value) for value in (store, blocks, cost, 4 * store + cost)] +
                    [f"{kib(use[step])} ({(use[step] - blocks - cost) / store:.1f})"
                     for step in ("load", "insert", "read_all")])
    return lines + table(["rows", "store file", "rows' blocks", "allocator's cost", "limit",
                          "load, select one", "then insert one", "then read all"], rows)


def machine_line(bench):
    def output(*command):
        return subprocess.run(command, stdout=subprocess.PIPE, text=True,
                              check=True).stdout.split()[-1]
    model = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    context = bench.context
    return ", ".join([
        time.strftime("%Y-%m-%d", time.gmtime()) + ": " +
        (model.group(1) if model else platform.machine()),
        f"{os.cpu_count()} cores",
        f"Linux {platform.release()}",
        f"file system {output('df', '--output=fstype', bench.folder)}",
        f"compiler {context['compiler']}",
        os.confstr("CS_GNU_LIBC_VERSION"),
        f"OpenSSL {context['openssl']}",
        f"SQLCipher {output('pkg-config', '--modversion', 'sqlcipher')}"
        f" (SQLite {context['sqlite']})",
        f"Google Benchmark {output('pkg-config', '--modversion', 'benchmark')}",
    ])


def write_page(page, report):
    text = page.read_text()
    begin, end = text.index(BEGIN) + len(BEGIN), text.index(END)
    page.write_text(text[:begin] + "\n\n" + report + "\n\n" + text[end:])


def main():
    options = arguments()
    bench = Bench(options.build)
    before = Bench(options.before) if options.before else None
    subjects = {}
    for subject, side, _ in bench.names:
        if re.search(options.only, subject):
            sides = subjects.setdefault(subject, [])
            if side not in sides:
                sides.append(side)

    sizes = [100, 1000] if options.quick else SIZES
    heaps = HEAPS[:1] if options.quick else HEAPS
    figures = measure(options, bench, before, subjects, sizes, heaps)
    lines = target_section(figures, heaps, before)
    lines += ratio_section(figures, subjects, sizes, heaps) + time_section(figures, sizes, heaps)
    if not options.quick:
        lines += slope_section(options, bench, figures, subjects)
        lines += memory_section(bench)
    lines += [f"Median of {options.rounds} rounds. {machine_line(bench)}."]
    progress("")
    report = "\n".join(lines)
    print(report)
    if options.write and not options.quick and not options.only:
        write_page(options.write, report)


if __name__ == "__main__":
    main()
