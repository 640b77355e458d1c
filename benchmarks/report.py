# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The tables of a run: ratios first, times second, the machine last."""

import statistics

# What is to be reached: text, subject, dividend, divisor, and by the number of rows the limits on
# the fresh heap and on the aged one.
TARGETS = [
    ("`SodInsert` without flush ÷ (memcpy + GCM + bare file replacement)",
     "SodInsert.unflushed", "ours", "floor",
     {100: (1.10, 1.10), 1000: (1.15, 1.15), 10000: (1.50, 1.50)}),
    ("`SodInsert` with flush ÷ the same bare work with flush", "SodInsert.flushed", "ours", "floor",
     {10: (1.02, 1.02), 100: (1.02, 1.02), 1000: (1.02, 1.02), 10000: (1.05, 1.05)}),
    ("`SodInsert` with flush ÷ SQLCipher insert, its default",
     "SodInsert.flushed", "ours", "sqlcipher",
     {100: (0.80, 0.80), 1000: (0.75, 0.75), 10000: (0.90, 0.90)}),
    ("`SodDelete` without flush ÷ (memcpy + GCM + bare file replacement)",
     "SodDelete.unflushed", "ours", "floor", {1000: (1.10, 1.25), 10000: (1.35, 1.60)}),
    ("select of all rows, the engine alone ÷ a walk that writes the same text",
     "engine_select_all.plain", "ours", "floor", {1000: (1.30, 1.30), 10000: (1.30, 1.30)}),
    ("select by ACCESSOR, the engine alone ÷ a walk over the rows",
     "engine_select_accessor.plain", "ours", "floor", {100: (2.0, 2.0), 1000: (2.0, 2.0)}),
    ("select by ALIAS, the engine alone ÷ a walk over the rows",
     "engine_select_alias.plain", "ours", "floor", {10: (2.5, 2.5)}),
    ("select by ALIAS, the engine alone, in µs", "engine_select_alias.plain", "ours", None,
     {10: (0.25, 0.25)}),
    ("`SodSelect` by alias ÷ SQLCipher select, index, from text",
     "SodSelect_alias", "ours", "sqlcipher",
     {100: (0.30, 0.30), 1000: (0.10, 0.10), 10000: (0.35, 0.35)}),
    ("`SodSelect` by alias ÷ the same, prepared once",
     "SodSelect_alias", "ours", "prepared", {1000: (0.25, 0.25), 10000: (0.70, 0.70)}),
    ("open, load and read all rows ÷ SQLCipher open, key, select all",
     "open_read_all", "ours", "sqlcipher", {1000: (0.50, 0.50), 10000: (0.45, 0.45)}),
    ("engine load with decryption ÷ the same copies, allocations and decryption alone",
     "engine_load.gcm", "ours", "floor", {10000: (1.30, 1.30)}),
    ("`DBEncrypt` with a keymaster that takes 4 KiB per update ÷ one that takes all at once",
     "DBEncrypt.encrypt", "ours_4KiB", "ours", {10000: (1.30, 1.30)}),
]
BUSY = "**The machine was busy with other things: these times say little.**"
HEAPS = ["fresh", "aged"]


def number(value, digits=2):
    return "–" if value is None else f"{value:.{digits}f}"


def micros(value):
    return "–" if value is None else f"{value:.3g}" if value < 1000 else f"{value:,.0f}"


def kib(value):
    return f"{value / 1024:,.0f}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "| --- |" + " ---: |" * (len(head) - 1)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def sizes_of(figures):
    return sorted({key[2] for key in figures.times})


def size_heads(figures):
    return [f"n = {size:,}" for size in sizes_of(figures)]


def both(text, figures, *what):
    """On both heaps, as far as they were measured."""
    cells = [text(figures, *what, heap) for heap in HEAPS]
    return " / ".join(cell for cell in cells if cell != "–") or "–"


def ratio(figures, subject, dividend, divisor, size, heap):
    return number(figures.ratio(subject, dividend, divisor, size, heap) if divisor else
                  figures.median(subject, dividend, size, heap))


def target_section(figures):
    lines = ["## Ratios that have a target", "",
             "Reached on the fresh heap / on the aged one; then the targets.", ""]
    rows = []
    for text, subject, dividend, divisor, limits in TARGETS:
        if subject not in figures.subjects():
            continue
        cells = [text]
        for size in sizes_of(figures):
            reached = both(ratio, figures, subject, dividend, divisor, size)
            wanted = " / ".join(dict.fromkeys(map(number, limits.get(size, ()))))
            cells.append(f"{reached}, **{wanted}**" if wanted else "–")
        rows.append(cells)
    return lines + table(["what"] + size_heads(figures), rows)


def ratio_section(figures):
    rows = [[f"{subject} ÷ {side}"] +
            [both(ratio, figures, subject, "ours", side, size) for size in sizes_of(figures)]
            for subject in figures.subjects() for side in figures.sides(subject)
            if not side.startswith("ours")]
    return ["## All ratios", "", "Fresh heap / aged heap.", ""] + table(
        ["what"] + size_heads(figures), rows)


def time_cell(figures, subject, side, size, heap):
    return micros(figures.median(subject, side, size, heap))


def time_section(figures):
    lines = ["## Times", "",
             "Microseconds per operation, fresh heap / aged heap; in brackets how far apart the "
             "rounds were on the fresh heap, in percent of the median.", ""]
    rows = []
    for subject in figures.subjects():
        for side in figures.sides(subject):
            cells = [f"{subject}, {side}"]
            for size in sizes_of(figures):
                times = figures.times.get((subject, side, size, "fresh"), [])
                spread = (f" ({100 * (max(times) - min(times)) / statistics.median(times):.0f})"
                          if len(times) > 1 else "")
                cells.append(both(time_cell, figures, subject, side, size) + spread)
            rows.append(cells)
    return lines + table(["what, side"] + size_heads(figures), rows)


def memory_section(figures):
    if not figures.memory:
        return []
    lines = ["## Memory", "",
             "The most that resident memory grows by, in KiB; in brackets what of it is beyond the "
             "rows' blocks, in store files. A row has one block, and one for each value; what the "
             "allocator adds to the size of a block is its own cost.", ""]
    rows = []
    for size, use in figures.memory.items():
        rows.append([f"{size:,}"] + [kib(use[part]) for part in ("store", "blocks", "allocator")] +
                    [f"{kib(use[step])} ({figures.beyond_rows(size, step):.1f})"
                     for step in ("load", "insert", "read_all")])
    return lines + table(["rows", "store file", "rows' blocks", "allocator's cost",
                          "load, select one", "then insert one", "then read all"], rows)


def tables(figures):
    busy = [BUSY, ""] if figures.busy else []
    return (busy + target_section(figures) + ratio_section(figures) + time_section(figures) +
            memory_section(figures) +
            [f"Median of {figures.rounds} rounds. Revision {figures.revision}. {figures.machine}."])


def write(figures, page):
    head = ["# Figures", "",
            "Written by `scripts/bench.sh`, not by hand; [performance](performance.md) says what "
            "is measured, and how to read it.", ""]
    page.write_text("\n".join(head + tables(figures)) + "\n")
