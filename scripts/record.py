#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""Draws a terminal session with zelkm, as it really went, to docs/session.svg.

    cmake --preset release && cmake --build --preset release --target zelkm
    scripts/record.py

With chromium installed, also checks that a browser puts every character in its column.
"""

import html
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[1]
COLUMNS, LINE, LEFT, TOP, CHARACTER = 88, 19, 16, 44, 8.05
COMMANDS = [
    "mkdir store",
    "export ZELKM_DIR=store",
    "zelkm add --alias payment --creator wallet --accessor '1000,[10000..19999]'",
    "zelkm add --alias door --creator home --admin 1000 --accessor 'app_*'",
    "zelkm list",
    "zelkm who 10042                    # which objects may 10042 use?",
    "printf x | dd of=store/secure_objects.db bs=1 seek=60 conv=notrunc status=none",
    "zelkm doctor | sed -n '/^wrong/,$p'  # one byte of the store was damaged",
]


def session():
    """Each command with what it prints."""
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "NO_COLOR": "1"}
    environment["PATH"] = f"{ROOT / 'build/release/tools'}{os.pathsep}{environment['PATH']}"
    with tempfile.TemporaryDirectory() as folder:
        for command in COMMANDS:
            if command.startswith("export "):
                name, value = command.split(" ", 1)[1].split("=", 1)
                environment[name] = value
            done = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            yield command, done.stdout.replace(folder + "/", "")


def lines():
    """The lines of the picture, each with its class."""
    for command, output in session():
        yield "command", "$ " + command
        for line in output.splitlines():
            for piece in textwrap.wrap(line, COLUMNS, drop_whitespace=False) or [""]:
                yield "output", piece


BROWSER = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
           "--no-first-run", "--disable-background-networking", "--disable-component-update",
           "--disable-sync", "--dump-dom"]
# Writes to the page how far the worst character of all lines is from its column, in characters.
MEASURE = """<script>
let worst = 0, count = 0;
for (const text of document.querySelectorAll("text")) {
    const width = document.querySelector("text").getSubStringLength(0, 10) / 10;
    for (let i = 0; i < text.textContent.length; ++i, ++count) {
        const column = (text.getStartPositionOfChar(i).x - LEFT) / width;
        worst = Math.max(worst, Math.abs(column - i));
    }
}
document.body.textContent = `measured ${count} characters, at most ${worst.toFixed(3)} off`;
</script>"""


def check(picture):
    """Fails unless a browser shows the columns of the session one below the other."""
    with tempfile.TemporaryDirectory() as folder:
        page = pathlib.Path(folder, "page.html")
        page.write_text(f"<body>{picture}{MEASURE.replace('LEFT', str(LEFT))}", encoding="utf-8")
        shown = subprocess.run([*BROWSER, f"--user-data-dir={folder}/profile", page.as_uri()],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               timeout=120, check=True).stdout
    found = re.search(r"measured (\d+) characters, at most ([\d.]+) off", shown)
    print(found.group() if found else "the page was not measured")
    if not found or int(found.group(1)) == 0 or float(found.group(2)) > 0.1:
        raise SystemExit("record: a browser shows the columns elsewhere")


def main():
    rows = list(lines())
    width, height = round(2 * LEFT + COLUMNS * CHARACTER), TOP + LINE * len(rows) + 8
    texts = "\n".join(
        f'  <text class="{kind}" x="{LEFT}" y="{TOP + LINE * i + 10}">{html.escape(text)}</text>'
        for i, (kind, text) in enumerate(rows))
    picture = f"""\
<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" role="img"
     aria-label="A terminal session: two objects are added, found, and a damaged store diagnosed">
  <style>
    text {{ font-family: monospace; font-size: 13.4px; fill: #c8d0dc; white-space: pre }}
    .command {{ fill: #8fd0a0 }}
  </style>
  <rect width="{width}" height="{height}" rx="8" fill="#1b2230"/>
  <circle cx="20" cy="18" r="5" fill="#e06c75"/>
  <circle cx="38" cy="18" r="5" fill="#e5c07b"/>
  <circle cx="56" cy="18" r="5" fill="#98c379"/>
{texts}
</svg>
"""
    (ROOT / "docs/session.svg").write_text(picture, encoding="utf-8")
    if shutil.which("chromium"):
        check(picture)


main()
