#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
"""Writes the seeds of the fuzz targets: make_seeds.py FOLDER.

Those of targets that read text are the files of seeds/TARGET. Those of others are in
seeds/TARGET.txt, each as "NAME: TOKENS", which indented lines continue after a blank. Tokens are
bytes (0a), the same byte some times (00*28), texts ("a\\x1f"), base64 (=AAEC), what "$NAME: TOKENS"
has named ($NAME), and in parentheses a piece as fuzz::Input::block() takes it.
"""
import base64
import pathlib
import re
import shutil
import struct
import sys

SEEDS = pathlib.Path(__file__).parent / "seeds"
TOKEN = re.compile(r'([0-9a-f]{2})(?:\*(\d+))?|"((?:[^"\\]|\\.)*)"|=([\w+/]+=*)|\$(\w+)|([()])| +')


def encoded(text, named):
    pieces, at = [b""], 0
    while at < len(text):
        token = TOKEN.match(text, at)
        if token is None:
            raise SystemExit(f"no token: {text[at:]}")
        at = token.end()
        byte, times, string, encoding, name, parenthesis = token.groups()
        if byte:
            pieces[-1] += bytes.fromhex(byte) * int(times or 1)
        elif string is not None:
            pieces[-1] += string.encode().decode("unicode_escape").encode("latin-1")
        elif encoding:
            pieces[-1] += base64.b64decode(encoding)
        elif name:
            pieces[-1] += named["$" + name]
        elif parenthesis == "(":
            pieces.append(b"")
        elif parenthesis == ")":
            piece = pieces.pop()
            pieces[-1] += struct.pack("<H", len(piece)) + piece
    return pieces[0]


out = pathlib.Path(sys.argv[1])
shutil.copytree(SEEDS, out, dirs_exist_ok=True, ignore=shutil.ignore_patterns("*.txt"))
for path in SEEDS.glob("*.txt"):
    seeds = {}
    for name, tokens in re.findall(r"^(\$?\w+): (.*(?:\n .*)*)", path.read_text(), re.M):
        seeds[name] = encoded(re.sub("\n +", " ", tokens), seeds)
        if name[0] != "$":
            (out / path.stem).mkdir(exist_ok=True)
            (out / path.stem / name).write_bytes(seeds[name])
