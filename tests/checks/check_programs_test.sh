#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The programs that check a keymaster print the right lines and JSON, exit with the right status and
# leave nothing behind: check_programs_test.sh ZELKEYMASTER_CHECK ZELKM

set -euo pipefail
check=$(realpath "$1") zelkm=$(realpath "$2")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
mkdir tmp
export TMPDIR=$PWD/tmp

fail() {
    echo "$1" >&2
    cat out err >&2
    exit 1
}

runs() {  # STATUS PROGRAM ARGUMENTS...
    local expected=$1 status=0
    shift
    "$@" >out 2>err || status=$?
    [[ $status == "$expected" ]] || fail "$*: exit status $status"
    [[ -z $(ls -A tmp) ]] || fail "$*: left $(ls tmp)"
}

says() {  # FILE PATTERN [COUNT]
    [[ $(grep -cE "$2" "$1") == "${3:-1}" ]] || fail "$2 is not ${3:-1} times in $1"
}

small=(--largest-store 20000)
runs 0 "$check" "${small[@]}"
says out '^holds        [a-z]' 22
says out '^22 requirements: holds 22, broken 0, not offered 0, not tried 0$'
says err '^\[[ 1-9][0-9]/22\] [a-z.-]+$' 22

runs 0 "$check" --json --no-attestation --no-password "${small[@]}"
python3 - out <<'END'
import json, sys
report = json.load(open(sys.argv[1]))
assert report["keymaster"].startswith("SoftKeymaster, "), report
assert (report["holds"], report["broken"], report["not_tried"]) == (14, 0, 8), report
assert [set(f) for f in report["findings"]] == \
    22 * [{"id", "verdict", "sent", "answered", "consequence"}], report
END

for wrong in --jsn --largest-store '--largest-store 0' '--largest-store 1k' extra; do
    # shellcheck disable=SC2086  # words are wanted
    runs 2 "$check" $wrong
    says err '^Usage: '
done
runs 0 "$check" --help

runs 0 "$zelkm" check "${small[@]}"
says out '^holds ' 22
runs 1 "$zelkm" check --fault tag-12 --json "${small[@]}"
python3 -m json.tool out >formatted
says formatted '"verdict": "broken"' 2
runs 2 "$zelkm" check --fault none
runs 2 "$zelkm" check --largest-store 0
# The program has every fault that its help names. A slow keymaster is not broken.
"$zelkm" check --help >out
faults=$(sed -nE 's/^  ([a-z0-9-]+)  +[a-z0-9].*/\1/p' out | grep -v '^zelkm')
[[ $(wc -w <<<"$faults") == 13 ]] || fail "these faults: $faults"
for fault in $faults; do
    # The transport is small for the usual sizes alone.
    sizes=("${small[@]}")
    [[ $fault != small-transport ]] || sizes=()
    runs "$([[ $fault == slow-call ]] && echo 0 || echo 1)" \
        "$zelkm" check --fault "$fault" "${sizes[@]}"
done
echo "the programs tell sound keymasters from broken ones"
