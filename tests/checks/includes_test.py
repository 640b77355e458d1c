#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Holds the includes of the sources for a device to what is there on one, and those of the library
to docs/architecture.md.

On a device there are the sources' own headers and those in the lists below. Each source of the
library stands in one row of the page's table "Who does what", or is named as shared. It includes
what is shared, what stands in its own row or further down in its own tree, and public headers.
"""

import fnmatch
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ("include", "common", "keymaster_check", "tools/zelkeymaster_check")
SOURCES = ROOT / "common/src/zelkeymaster_helper"
PAGE = ROOT / "docs/architecture.md"

PLATFORM = """
    android/hardware/keymaster/4.0/IKeymasterDevice.h android/hardware/keymaster/4.0/types.h
    android/log.h hardware/keymaster_defs.h hidl/HidlSupport.h hidl/Status.h
    keymaster_check/*.h keymasterV4_0/Keymaster.h openssl/*.h plog/*.h"""
CXX = """
    algorithm any array atomic bitset charconv chrono codecvt complex condition_variable deque
    exception execution filesystem forward_list fstream functional future initializer_list iomanip
    ios iosfwd iostream istream iterator limits list locale map memory memory_resource mutex new
    numeric optional ostream queue random ratio regex scoped_allocator set shared_mutex sstream
    stack stdexcept streambuf string string_view strstream system_error thread tuple type_traits
    typeindex typeinfo unordered_map unordered_set utility valarray variant vector
    cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg
    cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype"""
C = """
    assert.h ctype.h errno.h fenv.h float.h inttypes.h limits.h locale.h math.h setjmp.h signal.h
    stdarg.h stdbool.h stddef.h stdint.h stdio.h stdlib.h string.h time.h uchar.h wchar.h wctype.h"""
POSIX = """
    dirent.h fcntl.h libgen.h poll.h pthread.h sched.h semaphore.h strings.h sys/mman.h
    sys/resource.h sys/select.h sys/stat.h sys/statvfs.h sys/time.h sys/types.h sys/uio.h
    sys/wait.h unistd.h"""


def includes(folder):
    """The (source, mark, header) of each directive in a folder."""
    for file in sorted(folder.rglob("*.[ch]*")):
        for found in re.findall(r'^[ \t]*#[ \t]*include\b[^<"\n]*([<"])([^>"]*)',
                                file.read_text(encoding="utf-8"), re.M):
            yield file, *found


def device_problems():
    there = (PLATFORM + CXX + C + POSIX).split()
    own = {header.name for folder in FOLDERS for header in (ROOT / folder).rglob("*.h")}
    count = 0
    for folder in FOLDERS:
        for file, mark, header in includes(ROOT / folder):
            count += 1
            is_own = mark == '"' and (header in own or header.startswith("keymaster_check/"))
            if not is_own and not (mark == "<" and any(fnmatch.fnmatch(header, each) for each in there)):
                yield f"{file.relative_to(ROOT)}: {header} is not there on a device"
    if count == 0:
        yield "no include directive found"


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


def page_problems():
    placed, shared = places(PAGE.read_text(encoding="utf-8"))
    stems = {file.stem for file in SOURCES.glob("*.[ch]*")}
    for stem in sorted(stems - placed.keys() - shared):
        yield f"docs/architecture.md: {stem} is missing"
    for stem in sorted((placed.keys() | shared) - stems):
        yield f"docs/architecture.md: {stem} is no source"
    for file, _, path in includes(SOURCES):
        header = pathlib.Path(path).stem
        if header == file.stem or not (SOURCES / f"{header}.h").exists() or header in shared:
            continue
        here, there = placed.get(file.stem), placed.get(header)
        if here is None or there is None:
            if file.stem in shared:
                yield f"{file.name}, which is shared, includes {header}.h"
        elif here[0] != there[0] or there[1] < here[1]:
            yield f"{file.name} includes {header}.h against the arrows of docs/architecture.md"


found = [*device_problems(), *page_problems()]
print("\n".join(found) or "the includes are those of a device, and as docs/architecture.md shows them")
sys.exit(bool(found))
