#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0

"""The links of the pages below a folder lead somewhere: links_test.py FOLDER"""

import pathlib
import re
import sys

pages = list(pathlib.Path(sys.argv[1]).rglob("*.md"))
links = [(page, link) for page in pages
         for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", page.read_text(encoding="utf-8"))]
dead = [f"{page}: {link}" for page, link in links if not (page.parent / link).exists()]
print("\n".join(dead) or f"{len(links)} links of {len(pages)} pages lead somewhere")
sys.exit(not links or dead != [])
