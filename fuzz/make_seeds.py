#!/usr/bin/env python3
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
"""Writes the hand-made seeds of the fuzz targets: make_seeds.py [FOLDER]. Needs the openssl command.

The chains have new keys each time, so what is checked in is one run of this.
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


def import_seeds():
    """A text, as a file of objects."""
    row = b'k1,app,"1000,1001","[10000..19999],*",1000,\r\n'
    yield "csv", b"ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID,PRIV_ACC\r\n" + row * 2
    yield "spreadsheet", b"\xef\xbb\xbfalias;Creator;;\r\nk1;app;;\r\n;;;\r\n\r\n"
    yield "tabs", b"CREATOR\tALIAS\napp\t\"a\nb\"\"\"\n\"a\"b\t\nx\n\"c"
    yield "json", b'[{"ALIAS":"k1","creator":"\\u00fc","ADMIN":null},{"ALIAS":{"hex":"fF00"},"ACCESSOR":10042},[1],{"x":1}]'
    yield "lines", b'{"ALIAS":"a}\\"","CREATOR":-7}\n\n{\n"ALIAS":1.5}\n{"ALIAS":["a",{"hex":"0"}]}'
    yield "utf16", b"\xff\xfeA\0L\0"


def directory_seeds():
    """Files: a byte that names one (see directory_fuzz.cpp), and its content."""
    ERROR_FILE, STORE, TMP, BACKUP, KEY, DIGEST, COPY, ODD = 5, 6, 7, 8, 9, 12, 15, 17

    def files(*contents):
        return b"".join(bytes([name]) + block(data) for name, data in contents)

    key = bytes(range(200))
    root = bytes([1]) + block(bytes(range(32)))
    encrypted = store(ROWS, 1, flags=1)[:52] + bytes(range(256))[:len(ROWS) + 1]
    log = b"\xef\xbb\xbf2026-11-21 15:20:56.951 ERROR [7] [log_to_file@106] zelkeymaster_operation.cpp(803) :"
    yield "plain", files((STORE, store(ROWS, 1)), (BACKUP, store(ROWS * 2, 2)))
    yield "answer_lost", root + files((STORE, store(ROWS, 1, flags=1)), (KEY, key), (DIGEST, bytes(32)))
    yield "encrypted", root + files((STORE, encrypted), (TMP, encrypted[:60]), (KEY, key), (ERROR_FILE, log + b"no tag\n"))
    yield "disguised", files((STORE, base64.b64encode(store(ROWS, 1))), (KEY, key.hex().encode()))
    yield "odd_magic", files((STORE, store(ROWS, 1, b"SOB\xc5\x9b\x1b       ", flags=1) + b"x"))
    yield "elsewhere", files((COPY, encrypted), (ODD, b"PK\3\4"), (STORE, b""), (DIGEST, b"x"))


def log_seeds():
    origin = b"[ERR] (zelkeymaster_operation.cpp:450) "
    engine = b"[DBG] (velt_secure_db.cpp:54) "
    line = b"2026-11-21 15:20:56.951 ERROR [7] [log_to_file@106] zelkeymaster_operation.cpp(803) :"
    warning = b"2026-11-21 15:20:57.951 WARN  [7] [log_to_file@102] zelkeymaster_operation.cpp(9) :"
    yield "error_file", b"\xef\xbb\xbf" + line + b"no key\n" + line + b"no key\n" + warning + b"no file a b\n" + (
        line + b"file write fail: No space left on device(28)\n" + line + b"what is this\n")
    yield "libcrypto", (line + b"40A7:error::x:f.c:1:\n(22, (nil))\n") * 2
    yield "threadtime", b"".join(b"11-21 15:20:56.951  1000  7  8 E keymaster_tee: " + text + b"\n" for text in (
        origin + b"error in finish process : -30", engine + b"command(3) : L2", engine + b"a\x1fb",
        b"[ERR] (velt_secure_db.cpp:3) err: state:(1)  t->token=0x7f0, *p(0x7f1)=", b", len=0",
        b"[ERR] (velt_secure_db.cpp:3) DELETE error(-917)"))
    yield "long", b"[ 12-31 23:20:56.951  7:  8 E/keymaster_tee ]\n" + origin + b"no tag\n\n" + (
        b"[ 01-01 00:20:56.951  7:  8 W/keymaster_tee ]\n[WRN] (zelkeymaster_operation.cpp:1) no file edbk\n\n")
    yield "brief", b"E/keymaster_tee( 7): " + origin + b"invalid tag\nE( 7) " + origin + b"no key  (keymaster_tee)\n"
    yield "stderr", b"keymaster_tee E 11-21 15:20:56  7  8 " + origin.replace(
        b"ERR", b"\x1b[31mERR\x1b[0m") + b"fail rename during restore:No such file or directory(2)\r\n"
    yield "times", b"1795274456.951 +0000 " + origin + b"no key\n 12.5 " + origin + (
        b"no key\n2026-02-29 23:59:60.1234567 -0130 " + origin + b"no key\n")


def main():
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else HERE / "seeds")
    for target, seeds in (("query", query_seeds), ("matching", matching_seeds), ("store", store_seeds),
                          ("chain", chain_seeds), ("object", object_seeds), ("tool_values", tool_values_seeds),
                          ("import", import_seeds), ("directory", directory_seeds),
                          ("log", log_seeds)):
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in seeds():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
