#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Runs the benchmarks: reports their figures, or compares two builds.

Every figure comes from a process of its own, so that its heap is as said. The sides of a comparison
run one right after the other, all of them several rounds long: a ratio is the median of its rounds.
"""

import argparse
import json
import math
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import time

sys.dont_write_bytecode = True

from report import HEAPS, tables, write

MEMORY_SIZES = [1000, 10000, 17000]  # the last store that the transport carries
AGED_SIZES = [1000, 10000]  # a small table lies in one place on any heap

# A figure counts as worse when it is so by more than TOLERANCE and by more than NOISES standard
# errors, after at least SURE_ROUNDS; it is given up as undecided after LAST_ROUND.
TOLERANCE = 0.03
NOISES = 5
SURE_ROUNDS, LAST_ROUND = 15, 30


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True,
                        help="the folder of the built benchmarks")
    parser.add_argument("--compare", type=pathlib.Path, metavar="FOLDER",
                        help="the same of another revision: exit 1 if this one is slower anywhere")
    parser.add_argument("--quick", action="store_true", help="a smoke run")
    parser.add_argument("--only", default="", help="subjects that match this expression")
    parser.add_argument("--docs", type=pathlib.Path, metavar="FOLDER",
                        help="write the tables and pictures of a whole run here")
    parser.add_argument("--again", action="store_true",
                        help="do so with the figures of the last whole run, without measuring")
    options = parser.parse_args()
    options.rounds, options.min_time = (1, 0.002) if options.quick else (5, 0.05)  # seconds each
    options.sizes = [100, 1000] if options.quick else [10, 100, 1000, 10000]
    options.heaps = HEAPS[:1] if options.quick else HEAPS
    return options


class Bench:
    """One build of the benchmarks."""

    def __init__(self, folder):
        self.folder = folder.resolve()
        self.program = self.folder / "zelkm_benchmarks"
        self.names = {}
        for name in self.call([self.program, "--benchmark_list_tests"]).split():
            subject, side, rows = name.split("/")[:3]
            self.names[subject, side, int(rows)] = name
        self.context = {}

    def call(self, command):
        done = subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, text=True)
        if done.returncode != 0:
            sys.exit(f"bench: {' '.join(map(str, command))} failed")
        return done.stdout

    def subjects(self, only):
        """The sides of each subject."""
        found = {}
        for subject, side, _ in self.names:
            if re.search(only, subject) and side not in found.setdefault(subject, []):
                found[subject].append(side)
        return found

    def time(self, subject, side, rows, heap, min_time):
        """One figure in microseconds."""
        name = self.names[subject, side, rows]
        min_time *= 4 if subject.endswith(".flushed") else 1  # a flush takes milliseconds
        printed = json.loads(self.call(
            [self.program] + (["--aged-heap"] if heap == "aged" else []) +
            [f"--benchmark_filter=^{re.escape(name)}$", f"--benchmark_min_time={min_time}",
             "--benchmark_format=json"]))
        self.context = printed["context"]
        (result,) = printed["benchmarks"]
        assert result["time_unit"] == "us", result
        return result["real_time"]

    def memory(self, rows):
        return json.loads(self.call([self.folder / "zelkm_memory_probe", str(rows)]))


class Figures:
    """Times by subject, side, rows and heap, one per round; memory by rows; the machine."""

    def __init__(self):
        self.times = {}
        self.memory = {}
        self.rounds = 0
        self.machine = ""
        self.revision = ""
        self.busy = False

    def save(self, file):
        file.write_text(json.dumps({**vars(self), "times": list(self.times.items()),
                                    "memory": list(self.memory.items())}))

    def restore(self, file):
        vars(self).update(json.loads(file.read_text()))
        self.times = {tuple(key): times for key, times in self.times}
        self.memory = dict(self.memory)
        return self

    def subjects(self):
        return list(dict.fromkeys(key[0] for key in self.times))

    def sides(self, subject):
        return list(dict.fromkeys(key[1] for key in self.times if key[0] == subject))

    def median(self, subject, side, rows, heap="fresh"):
        times = self.times.get((subject, side, rows, heap))
        return statistics.median(times) if times else None

    def ratio(self, subject, dividend, divisor, rows, heap="fresh"):
        above = self.times.get((subject, dividend, rows, heap))
        below = self.times.get((subject, divisor, rows, heap))
        if not above or not below:
            return None
        return statistics.median(a / b for a, b in zip(above, below))

    def beyond_rows(self, rows, step):
        """Memory beyond the rows' blocks, in store files."""
        use = self.memory.get(rows)
        return use and (use[step] - use["blocks"] - use["allocator"]) / use["store"]


def foreign_seconds():
    """The time that all processors have spent on anything but this run."""
    with open("/proc/stat", encoding="ascii") as stat:
        user, nice, system, _idle, _wait, irq, softirq, steal = map(int, stat.readline().split()[1:9])
    own = os.times()
    return ((user + nice + system + irq + softirq + steal) / os.sysconf("SC_CLK_TCK") -
            (own.user + own.system + own.children_user + own.children_system))


def sizes_on(heap, options):
    return [rows for rows in options.sizes if heap == "fresh" or rows in AGED_SIZES]


def measure(options, bench):
    figures = Figures()
    figures.rounds = options.rounds
    start, foreign = time.monotonic(), foreign_seconds()
    subjects = bench.subjects(options.only)
    todo = [(subject, rows, heap) for heap in options.heaps for subject in subjects
            for rows in sizes_on(heap, options)]
    for turn in range(options.rounds):
        for done, (subject, rows, heap) in enumerate(todo):
            progress(f"round {turn + 1} of {options.rounds}: {done} of {len(todo)}, {subject}")
            for side in subjects[subject][::-1 if turn % 2 else 1]:  # no side is always the first
                figures.times.setdefault((subject, side, rows, heap), []).append(
                    bench.time(subject, side, rows, heap, options.min_time))
    if not options.quick:
        figures.memory = {rows: bench.memory(rows) for rows in MEMORY_SIZES}
    figures.machine = machine_line(bench)
    figures.revision = output("git", "describe", "--always", "--dirty", "--exclude=*")
    # The kernel's own threads, which write the files, take some of it.
    figures.busy = foreign_seconds() - foreign > 0.25 * (time.monotonic() - start)
    progress("")
    return figures


def progress(text):
    if sys.stderr.isatty():
        print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)


def output(*command):
    """The last word that a command prints."""
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout.split()[-1]


def machine_line(bench):
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


# ---- Comparison ---------------------------------------------------------------------------------


def verdict(quotients):
    """Of this revision's figures by the other's: "worse", "fine", or "open" with more to measure."""
    logs = [math.log(quotient) for quotient in quotients]
    median = statistics.median(logs)
    if median <= math.log(1 + TOLERANCE):
        return "fine"
    # From the median deviation, as for normal noise: single rounds that went astray count little.
    error = 1.86 * statistics.median(abs(log - median) for log in logs) / math.sqrt(len(logs))
    if len(logs) >= SURE_ROUNDS and median > NOISES * error:
        return "worse"
    return "open"


def compare(options, bench, other):
    """The floors are the same on both sides, so the quotient of two ratios to them is that of the
    times. Returns whether nothing is worse."""
    quotients = {(*name, heap): [] for name in bench.names for heap in options.heaps
                 if name[1].startswith("ours") and name[2] in sizes_on(heap, options)
                 and name in other.names
                 and re.search(options.only, name[0])}
    steps = ("load", "insert", "read_all")
    memory = {("memory", step, rows, "fresh"): [] for step in steps for rows in MEMORY_SIZES
              if re.search(options.only, "memory") and not options.quick}
    for rows in sorted({key[2] for key in memory}):
        uses = [build.memory(rows) for build in (bench, other)]
        for step in steps:  # the same in every run, but for the kernel's
            memory["memory", step, rows, "fresh"] = [uses[0][step] / uses[1][step]] * SURE_ROUNDS

    undecided = list(quotients)
    for turn in range(1 if options.quick else LAST_ROUND):
        for done, key in enumerate(undecided):
            progress(f"round {turn + 1}: {done} of {len(undecided)}, {key[0]}")
            times = {}
            for build in (bench, other)[::-1 if turn % 2 else 1]:
                times[build] = build.time(*key, options.min_time)
            quotients[key].append(times[bench] / times[other])
        if turn + 1 >= options.rounds:
            undecided = [key for key in undecided if verdict(quotients[key]) == "open"]
    progress("")

    quotients.update(memory)
    found = {"worse": [], "open": [], "fine": []}
    for key, values in quotients.items():
        found[verdict(values)].append((statistics.median(values), len(values), key))
    for title, name in (("Worse", "worse"), ("Undecided, given up", "open")):
        for median, rounds, (subject, side, rows, heap) in sorted(found[name], reverse=True):
            print(f"{title}: {subject}/{side}, {rows:,} rows, {heap} heap: "
                  f"{100 * (median - 1):+.0f} % in {rounds} rounds")
    better = sum(median < 1 - TOLERANCE for median, _, _ in found["fine"])
    print(f"{len(quotients)} figures: {len(found['worse'])} worse, {len(found['open'])} undecided, "
          f"{better} better, {len(found['fine']) - better} as before")
    return not found["worse"]


def main():
    options = arguments()
    bench = Bench(options.build)
    if options.compare:
        sys.exit(0 if compare(options, bench, Bench(options.compare)) else 1)
    whole = options.docs and not options.quick and not options.only
    recorded = options.build / "figures.json"
    figures = Figures().restore(recorded) if options.again else measure(options, bench)
    print("\n".join(tables(figures)))
    if whole:
        figures.save(recorded)
        write(figures, options.docs / "figures.md")
        import charts  # needs the plotting library
        charts.draw(figures, options.docs / "pictures")


if __name__ == "__main__":
    main()
