#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Holds docs/architecture.md to the includes of the library's sources.

Each source stands in one row of the table "Who does what", or is named as shared. It includes what
is shared, what stands in its own row or further down in its own tree, and public headers.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ROOT / "common/src/zelkeymaster_helper"
PAGE = ROOT / "docs/architecture.md"


def places(page):
    """The (tree, row) of each source, and the names of the shared ones."""
    rows, rest = page.split("| source (", 1)[1].split("\n\n", 1)
    tree = 0
    placed = {}
    for row, line in enumerate(rows.splitlines()[2:]):
        cell = line.split("|")[1]
        if "├" not in cell and "└" not in cell:
            tree += 1
        placed.update({name: (tree, row) for name in re.findall(r"`(\w+)`", cell)})
    shared = re.search(r"^Shared:(.*?)\n\n", rest, re.S | re.M).group(1)
    return placed, set(re.findall(r"`(\w+)(?:\.h)?`", shared))


def problems():
    placed, shared = places(PAGE.read_text(encoding="utf-8"))
    files = sorted(SOURCES.glob("*.h")) + sorted(SOURCES.glob("*.cpp"))
    stems = {file.stem for file in files}
    for stem in sorted(stems - placed.keys() - shared):
        yield f"{stem} is missing"
    for stem in sorted((placed.keys() | shared) - stems):
        yield f"{stem} is no source"
    includes = 0
    for file in files:
        for header in re.findall(r'^#include "(\w+)\.h"', file.read_text(encoding="utf-8"), re.M):
            includes += 1
            if header == file.stem or not (SOURCES / f"{header}.h").exists() or header in shared:
                continue
            here, there = placed.get(file.stem), placed.get(header)
            if here is None or there is None:
                if file.stem in shared:
                    yield f"{file.name}, which is shared, includes {header}.h"
            elif here[0] != there[0] or there[1] < here[1]:
                yield f"{file.name} includes {header}.h against the arrows"
    if includes == 0:
        yield "no include directive found"


found = list(problems())
for problem in found:
    print(f"docs/architecture.md: {problem}", file=sys.stderr)
if not found:
    print("docs/architecture.md shows the includes as they are")
sys.exit(bool(found))
