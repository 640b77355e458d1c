#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
"""Writes the hand-made seeds of the fuzz targets: make_seeds.py [FOLDER]. Needs the openssl command.

The chains have new keys each time, so what is checked in is one run of this. Seeds of targets that read
text, "import" and "log", are files that are edited themselves.
"""
import base64
import pathlib
import struct
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).parent
ROWS = b"k1\x1eapp\x1e1000,1001\x1e[10000..19999]\x1e1000\x1e\x1e\n"


def block(data):
    """A piece as fuzz::Input::block() takes it."""
    return struct.pack("<H", len(data)) + data


def store(rows, count, magic=b"SOBv1.1     ", flags=0):
    payload = rows + b"\0"
    return magic + struct.pack("<I", flags) + bytes(28) + struct.pack("<II", count, len(payload)) + payload


def query_seeds():
    """Steps: a byte of choices (see query_fuzz.cpp), a blob when bit 4 is set, a command."""
    def plain(text):
        return b"\x00" + block(text)

    def encrypting(text, behaviour=0):
        return bytes([4 | behaviour]) + block(text)

    insert = b"INSERT (ALIAS,CREATOR,ADMIN) VALUE (\x1fk\x1f,\x1fapp\x1f,\x1f1000,1001\x1f)"
    yield "life", b"".join(map(plain, [
        insert, insert, b"SELECT (CREATOR,ALIAS) WHERE ALIAS=\x1fk\x1f", b"DELETE WHERE ALIAS=k"]))
    yield "encrypted", encrypting(insert) + b"\x0c" + block(b"SELECT (ALIAS)") + encrypting(insert, 1)
    yield "refused_load", encrypting(insert) + b"\x0e" + block(b"SELECT (ALIAS)")
    yield "unfilled", encrypting(insert, 3) + b"\x0f" + block(b"SELECT (ALIAS)")
    yield "load", b"\x18" + block(store(ROWS, 1)) + block(b"SELECT (ALIAS) WHERE ACCESSOR=15000")
    yield "load_v10", b"\x18" + block(store(ROWS.replace(b"\x1e", b"|"), 1, b"SOBv1.0     ")) + block(insert)
    yield "short_blob", b"\x18" + block(store(ROWS, 1)[:50]) + block(b"SELECT (ALIAS)")
    yield "update", plain(b"UPDATE (ADMIN) VALUE (x) WHERE ALIAS=a") + plain(b"UPDATE (ADMIN) VALUE (x)")
    yield "conditions", plain(insert) + plain(
        b"SELECT (ALIAS) WHERE ALIAS=k AND CREATOR<a AND FOO<=b AND ADMIN>=1 AND ALIAS=* AND ALIAS=k AND X=y")
    yield "no_result", b"\x20" + block(insert)


def matching_seeds():
    for number, (pattern, subject) in enumerate([
            (b"1000,[10000..19999]", b"15000"), (b"*#abc", b"x#abc"), (b"*_", b"p_q"), (b"[5..]", b"7"),
            (b"[..", b"1"), (b"[1..99999999999]", b"5"), (b",,a", b"a"), (b"*", b"*"), (b"abc", b"abcd"),
            (b"[1..5]x*", b"3xyz")]):
        for use_pattern in (0, 1):
            yield f"{number}_{use_pattern}", bytes([use_pattern]) + block(pattern) + subject


def store_seeds():
    yield "one_row", store(ROWS, 1)
    yield "v10", store(ROWS.replace(b"\x1e", b"|"), 1, b"SOBv1.0     ")
    yield "more_rows_than_said", store(ROWS * 3, 1)
    yield "fewer_rows_than_said", store(ROWS * 2, 3)
    yield "no_rows", store(b"", 0)
    yield "no_payload", store(b"", 0)[:48] + bytes(4)
    yield "claims_more", store(ROWS, 1)[:-3]
    yield "header_only", store(ROWS, 1)[:52]
    yield "marked_encrypted", store(ROWS, 1, flags=1)


def chain_seeds():
    with tempfile.TemporaryDirectory() as folder:
        def openssl(*arguments):
            subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)

        names = ["root", "middle", "leaf"]
        pathlib.Path(folder, "ca.cnf").write_text("basicConstraints=critical,CA:TRUE\n")
        for number, name in enumerate(names):
            openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-keyout", f"{name}.key", "-out", f"{name}.csr", "-subj", f"/CN={name}")
            signer = ["-signkey", "root.key"] if number == 0 else [
                "-CA", f"{names[number - 1]}.pem", "-CAkey", f"{names[number - 1]}.key"]
            extensions = ["-extfile", "ca.cnf"] if name != "leaf" else []
            openssl("x509", "-req", "-in", f"{name}.csr", "-days", "36500", "-set_serial", str(number + 1),
                    "-out", f"{name}.pem", *signer, *extensions)
            openssl("x509", "-in", f"{name}.pem", "-outform", "DER", "-out", f"{name}.der")
        root, middle, leaf = (pathlib.Path(folder, f"{name}.der").read_bytes() for name in names)
    yield "good", b"\x01" + block(leaf) + block(middle) + block(root)
    yield "separate_first", b"\x00" + block(leaf) + block(middle) + block(root) + block(root)
    yield "broken_link", b"\x01" + block(leaf) + block(root) + block(root)
    yield "no_root", b"\x01" + block(leaf) + block(middle) + block(middle)
    yield "truncated", b"\x01" + block(leaf) + block(middle[:-20]) + block(root)
    yield "two", b"\x01" + block(leaf) + block(root)
    yield "empty_element", b"\x01" + block(leaf) + block(b"") + block(root)


def object_seeds():
    """Steps: a byte (action, three bits of alias, bit 7: faults follow), faults, what the action reads."""
    def insert(alias):
        return bytes([0 | alias << 3])

    def delete(alias):
        return bytes([1 | alias << 3])

    def faults(**of):  # of the first call of each kind
        kinds = ("characteristics", "begin", "update", "finish", "generate", "upgrade", "attest")
        return b"".join(of.get(kind, b"\0") + b"\0" for kind in kinds)

    read, restart, faulty = b"\x02", b"\x03", 0x80
    two = insert(1) + insert(2)
    yield "life", two + read + restart + delete(1) + read + insert(3) + restart + read + delete(7)
    for name, of in (("consumed", {"update": b"\x07\x05"}), ("no_nonce", {"begin": b"\x06\0"}),
                     ("short_nonce", {"begin": b"\x06\x07"}), ("refused_begin", {"begin": b"\x01\x21"}),
                     ("lost_update", {"update": b"\x03"}), ("lost_finish", {"finish": b"\x05"}),
                     ("silent_finish", {"finish": b"\x04"}), ("long_tag", {"finish": b"\x02\xff"})):
        yield name, two + bytes([faulty | 3 << 3]) + faults(**of) + read
    upgrade = {"characteristics": b"\x01\x3e"}
    for name, of in (("upgrade", upgrade), ("lost_upgrade", {**upgrade, "upgrade": b"\x03"}),
                     ("refused_key", {"characteristics": b"\x01\x21"}), ("short_output", {"update": b"\x02\x05"}),
                     ("finish_of_16", {"finish": b"\x02\x10"})):
        yield name, two + restart + bytes([faulty | 2]) + faults(**of) + read
    for number, at in enumerate((0, 13, 20, 40, 60, 255)):
        yield f"damaged_{number}", two + b"\x06\x00" + bytes([at, 1]) + restart + read
    yield "damaged_key", two + b"\x06\x01\x03\x01" + restart + read
    yield "password", b"".join(bytes([kind]) + block(bytes(16)) + block(b"0123456789abcdef") for kind in (0x04, 0x0C, 0x14))
    yield "request", b"\x05" + block(b"key") + bytes([faulty | 5]) + faults(attest=b"\x07\x01") + block(b"k")
    yield "new_key", two + b"\x0f" + read + restart + bytes([faulty | 7 | 1 << 3]) + faults(generate=b"\x02") + read


def tool_values_seeds():
    """Steps: 0 adds (bits of what is given, values), 1 removes, 2 lists (number of conditions, conditions)."""
    def add(*values, given=0x1C):
        return bytes([0, given]) + b"".join(map(block, values))

    def conditions(step, *texts):
        return bytes([step, len(texts)]) + b"".join(map(block, texts))

    yield "life", add(b"k3", b"app", b"1000", b"[1..5]", b"100") + conditions(2, b"ALIAS=k3") + conditions(
        1, b"ALIAS=k3", b"CREATOR=app")
    yield "punctuation", b"".join(
        add(value, b"(a,b)", b"x,,y", b"*", b"0") + conditions(2, b"ALIAS=" + value)
        for value in (b"x) WHERE ALIAS=*", b" both ", b"**", b"a<b>=c", b"x AND", b"AND x\t", b"\xff{}", b"\\x1f"))
    yield "refused", b"".join(
        add(value, b"c", given=0) + conditions(2, b"ALIAS=" + value)
        for value in (b"", b"a AND b", b",a", b"*", b"a\n", b"a\0", b"\x1fa", b"a\x1f,b", b"a\x1e", b"a\x1e\x1e\n"))
    yield "lists", conditions(2, b"ADMIN=1000") + conditions(2, b"ACCESSOR=15000") + conditions(
        2, b"ACCESSOR=x1", b"CREATOR=app") + conditions(2, b"ADMIN=*")
    yield "careless", conditions(1, b"ALIAS=*") + conditions(1, b"FOO=x") + conditions(1, b"ALIAS<=k1") + conditions(1)
    yield "six", conditions(2, b"ALIAS=k1", b"CREATOR=app", b"ADMIN=1000", b"ACCESSOR=x", b"CREATOR_UID=1000",
                            b"PRIV_ACC=1") + conditions(2, *[b"ALIAS=k1"] * 7)
    yield "privileged", add(b"p", b"q", given=1) + conditions(1, b"PRIV_ACC=1")


def directory_seeds():
    """Whether there is a store with its key, and steps: 0 writes (name, content), 1 damages (name, place, change)."""
    STORE, KEY, DIGEST = b"secure_objects.db", b"edbk", b"edbk_digest"

    def files(*contents, healthy=0):
        return bytes([healthy]) + b"".join(b"\0" + block(name) + block(data) for name, data in contents)

    def damage(*steps):
        return b"\1" + b"".join(b"\1" + block(name) + bytes([at, 1]) for name, at in steps)

    encrypted = store(ROWS, 1, flags=1)[:52] + bytes(range(256))[:len(ROWS) + 1]
    log = b"\xef\xbb\xbf2026-11-21 15:20:56.951 ERROR [7] [log_to_file@106] zelkeymaster_operation.cpp(803) :"
    yield "healthy", damage()
    for name, steps in {"refused": [(STORE, 60)], "row_count": [(STORE, 44)], "no_digest": [(DIGEST, 255)],
                        "no_store": [(STORE, 255)], "key_backup": [(KEY, 255)],
                        "other_key": [(KEY, 9), (STORE, 20), (STORE + b".bak", 255)]}.items():
        yield name, damage(*steps)
    yield "plaintext", files((STORE, store(ROWS, 1)), healthy=1)
    yield "marked_encrypted", files((STORE, store(ROWS, 1, flags=1)), (b"zelko_err.txt", log + b"no tag\n"), healthy=1)
    yield "plain", files((STORE, store(ROWS, 1)), (STORE + b".bak", store(ROWS * 2, 2)))
    yield "encrypted", files((STORE, encrypted), (STORE + b".tmp", encrypted[:60]), (KEY, bytes(range(200))))
    yield "disguised", files((STORE, base64.b64encode(store(ROWS, 1))), (KEY, b"00ff"), healthy=1)
    yield "odd_magic", files((STORE, store(ROWS, 1, b"SOB\xc5\x9b\x1b       ", flags=1) + b"x"))
    yield "elsewhere", files((b"copies/secure_objects.db", encrypted), (b"\x1b[31m\xff", b"PK\3\4"), (STORE, b""))


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else HERE / "seeds")
    for target, seeds in (("query", query_seeds), ("matching", matching_seeds), ("store", store_seeds),
                          ("chain", chain_seeds), ("object", object_seeds), ("tool_values", tool_values_seeds),
                          ("directory", directory_seeds)):
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in seeds():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
