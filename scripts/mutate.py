# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
"""Plants faults in the library's sources, one at a time, and lists those that no test notices.

See mutate.sh. A fault that does not compile, or that the compiler makes the same code of, is left
out and another one is drawn.
"""
import argparse
import contextlib
import dataclasses
import hashlib
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import time

TIMEOUT_FACTOR = 10  # of a test's usual time, and 10 s more: then the fault has hung it
SOURCES = "common/src/**/*"
# For the first folder of a source: what is built of it, and the tests that start or link that.
FOLDERS = {
    "common": ("zelkeymaster_objects", r"^(library_|faults_|file_fault|memory_fault|error_file|abi_|(query|matching|store|chain|object)_seeds$)"),
    "soft_keymaster": ("soft_keymaster", "^(soft_|keymaster_check|check_session|library|faults)"),
    "keymaster_check": ("keymaster_check", "^(keymaster_check|check_session)"),
    "tools": ("zelkm", "^zelkm_|_session$"),
}

SWAPS = {
    " == ": [" != "], " != ": [" == "], " < ": [" <= ", " >= "], " <= ": [" < ", " > "], " > ": [" >= ", " <= "],
    " >= ": [" > ", " < "], " && ": [" || "], " || ": [" && "], " + ": [" - "], " - ": [" + "], " += ": [" -= ", " = "],
    " -= ": [" += "], " & ": [" | "], " | ": [" & "], "++": ["--"], "--": ["++"], "true": ["false"], "false": ["true"],
    "break;": ["continue;"], "continue;": ["break;"], "LOG_ERROR": ["LOG_WARNING", "LOG_DEBUG"],
    "LOG_WARNING": ["LOG_ERROR", "LOG_DEBUG"], "LOG_DEBUG": ["LOG_WARNING"], "nullptr": ["reinterpret_cast<char*>(8)"],
}
SWAP = re.compile("|".join(rf"\b{s}\b" if s.isalpha() or "_" in s else re.escape(s) for s in SWAPS))
NUMBER = re.compile(r"(?<![\w.\"'])(0x[0-9a-fA-F]+|\d+)(?=[uUlL]*\b)")
CODE = re.compile(r"\breturn (ZELKM_\w+|\w+_?);")
STATEMENT = re.compile(r"^ +(?!return|break|continue|using|case|default|const|static |throw|auto|else)[\w:\[*][^;{}]*;$", re.M)
CONDITION = re.compile(r"\b(if|while) \(")
CALL = re.compile(r"\b(?!if|while|for|switch|return|sizeof|catch)\w+\(")
TEXT = re.compile(r"\bLOG_\w+\(\"([^\"]+)\"")


@dataclasses.dataclass(frozen=True)
class Fault:
    path: pathlib.Path
    start: int
    end: int
    text: str

    def describe(self, source):
        line = source.count("\n", 0, self.start) + 1
        shown = " ".join(source[self.start:self.end].split())
        return f"{self.path.name}:{line}: {shown} -> {' '.join(self.text.split()) or '(nothing)'}"


def closing(source, opening):
    """The index after the parenthesis that closes the one at `opening`, and of the commas between."""
    depth, commas, quote = 0, [], ""
    for at in range(opening, len(source)):
        char = source[at]
        if quote:
            quote = "" if char == quote and source[at - 1] != "\\" else quote
        elif char in "\"'":
            quote = char
        elif char in "([{":
            depth += 1
        elif char in ")]}":
            depth -= 1
            if depth == 0:
                return at + 1, commas
        elif char == "," and depth == 1:
            commas.append(at)
    return len(source), []


def blanked(source):
    """The source with comments and lines for the preprocessor blanked, at the same offsets."""
    return re.sub(r"//[^\n]*|^#.*$|^(using|namespace)\b.*$", lambda m: " " * len(m[0]), source, flags=re.M)


def faults_in(path, tree):
    source = blanked((tree / path).read_text())
    texts = [m.span(1) for m in re.finditer(r"\"((?:[^\"\\]|\\.)*)\"", source)]

    def in_text(at):
        return any(start <= at < end for start, end in texts)

    def fault(start, end, text):
        return Fault(path, start, end, text)

    for m in SWAP.finditer(source):
        if not in_text(m.start()):
            for other in SWAPS[m[0]]:
                yield fault(*m.span(), other)
    for m in NUMBER.finditer(source):
        if not in_text(m.start()):
            yield fault(*m.span(1), f"({m[1]} + 1)")
            yield fault(*m.span(1), f"({m[1]} - 1)" if m[1] != "0" else "1000")
    for m in CODE.finditer(source):
        yield fault(*m.span(1), "{}" if m[1] != "ZELKM_OK" else "ZELKM_UNKNOWN_ERROR")
    for m in STATEMENT.finditer(source):  # the lines stay: messages carry their numbers
        yield fault(*m.span(), re.sub(r"[^\n]", "", m[0]))
    for m in CONDITION.finditer(source):
        end, _ = closing(source, m.end() - 1)
        yield fault(m.end(), end - 1, f"!({source[m.end():end - 1]})")
        yield fault(m.end(), end - 1, "false")
        if m[1] == "if":
            yield fault(m.end(), end - 1, "true")
    for m in CALL.finditer(source):
        end, commas = closing(source, m.end() - 1)
        bounds = [m.end(), *(c + 1 for c in commas), end]
        for first, second, last in zip(bounds, bounds[1:], bounds[2:]):
            if not in_text(m.start()):
                one, other = source[first:second - 1], source[second:last - 1]
                yield fault(first, last - 1, f"{other},{one}")
    for m in TEXT.finditer(source):
        yield fault(*m.span(1), m[1][:-1] if m[1][-2:-1] != "%" else "?" + m[1])


class Tests:
    """The tests of a build folder, the most promising first. Only what a test needs is built."""

    def __init__(self, build, pattern):
        self.build = build
        # ctest tells the command of a program only when that is there.
        self.build_programs([test["name"] for test in self.listed() if re.search(pattern, test["name"])])
        self.tests = {}
        for test in self.listed():
            properties = {p["name"]: p["value"] for p in test["properties"]}
            variables = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", []))
            command = test.get("command", [""])
            if any(build in text for text in [*command, *variables.values()]) and re.search(pattern, test["name"]):
                self.tests[test["name"]] = (command, variables, properties["WORKING_DIRECTORY"])
                self.make(*self.programs(test["name"]))
        if not self.tests:
            raise SystemExit("mutate: there is no test to run")
        # Hard links: a build puts new files in the places of old ones.
        self.sound = build + "-sound"
        shutil.rmtree(self.sound, ignore_errors=True)
        subprocess.run(["cp", "-al", build, self.sound], check=True)
        self.usual = {}
        self.noticed = {}
        for name in self.tests:
            start = time.monotonic()
            self.passes(name)
            self.usual[name] = time.monotonic() - start

    def listed(self):
        return json.loads(subprocess.check_output(["ctest", "--test-dir", self.build, "--show-only=json-v1"]))["tests"]

    def build_programs(self, names):
        known = subprocess.check_output(["ninja", "-C", self.build, "-t", "targets", "all"], text=True)
        programs = [re.sub("_seeds$", "_fuzz", name) for name in names]
        self.make(*(p for p in programs if f"\n{p}: phony" in known))

    def make(self, *targets):
        subprocess.run(["ninja", "-C", self.build, "-j2", *targets], capture_output=True, check=True)

    def programs(self, name):
        """What a test starts: in its command line and its variables, or for a session the folder's programs."""
        command, variables, _ = self.tests[name]
        paths = [os.path.relpath(text, self.build) for text in [*command, *variables.values()] if self.build in text]
        if paths == ["tools"]:
            return ["tools/zelkm", "tools/zelkeymaster_check"]
        return [path for path in paths if not os.path.isdir(os.path.join(self.build, path))]  # seeds

    def passes(self, name):
        """Whether a test passes. One that does not must pass with the programs without a fault."""
        self.make(*self.programs(name))
        if not self.run(name, self.build):
            if not self.run(name, self.sound):
                raise SystemExit(f"mutate: {name} fails without a fault")
            return False
        return True

    def run(self, name, build):
        command, variables, folder = json.loads(json.dumps(self.tests[name]).replace(self.build + "/", build + "/"))
        limit = str(10 + TIMEOUT_FACTOR * self.usual.get(name, 60))  # timeout ends a test with its children
        return subprocess.run(["timeout", "--signal=KILL", limit, *command], cwd=folder, capture_output=True,
                              env={**os.environ, **variables}).returncode == 0

    def who_notices(self, source):
        """The first test that fails, those first that noticed faults in the same source."""
        noticed = self.noticed.setdefault(source, {})
        for name in sorted(self.tests, key=lambda n: (-noticed.get(n, 0), self.usual[n])):
            if not self.passes(name):
                noticed[name] = noticed.get(name, 0) + 1
                return name
        return None


@contextlib.contextmanager
def planted(fault, tree):
    path = tree / fault.path
    source = path.read_text()
    path.write_text(source[:fault.start] + fault.text + source[fault.end:])
    try:
        yield fault.describe(source)
    finally:
        path.write_text(source)


def object_code(build, folder):
    digest = hashlib.sha256()
    for path in sorted(pathlib.Path(build, folder).rglob("*.o")):
        digest.update(path.read_bytes())
    return digest.digest()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tree", type=pathlib.Path)
    parser.add_argument("build")
    parser.add_argument("number", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--sources", default=SOURCES, help="a pattern, from the project's root")
    parser.add_argument("--sanitizers", action="store_true", help="try what is left with the sanitizers")
    arguments = parser.parse_args()
    tree, build = arguments.tree, os.path.abspath(arguments.build)
    folder = arguments.sources.split("/")[0]
    target, concerned = FOLDERS[folder]

    faults = []
    for path in sorted(tree.glob(arguments.sources)):
        if path.suffix in (".cpp", ".h"):
            faults += sorted(set(faults_in(path.relative_to(tree), tree)), key=lambda f: (f.start, f.end, f.text))
    random.Random(arguments.seed).shuffle(faults)
    tests = Tests(build, concerned)
    sound = object_code(build, folder)
    tried, same, survivors = 0, 0, []
    for fault in faults:
        if tried == arguments.number:
            break
        with planted(fault, tree) as description, contextlib.suppress(subprocess.CalledProcessError):
            tests.make(target)
            if object_code(build, folder) == sound:
                same += 1
                continue
            name = tests.who_notices(fault.path)
            tried += 1
            print(f"{tried}: {description}: {name or 'NOT NOTICED'}", flush=True)
            survivors += [fault] if name is None else []
    print(f"{tried} faults of {len(faults)}, {tried - len(survivors)} noticed; {same} made no other code (seed "
          f"{arguments.seed})", flush=True)
    tests = Tests(build + "-sanitizers", concerned) if survivors and arguments.sanitizers else None
    for fault in survivors:
        with planted(fault, tree) as description:
            name = tests and tests.who_notices(fault.path)
        print(f"under the sanitizers, {name}: {description}" if name else f"not noticed: {description}", flush=True)


if __name__ == "__main__":
    main()
