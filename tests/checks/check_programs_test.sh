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
says out '^holds        [a-z]' 24
says out '^24 requirements: holds 24, broken 0, not offered 0, not tried 0, left out 0$'
says err '^\[[ 1-9][0-9]/24\] [a-z.-]+$' 24

runs 0 "$check" --json --no-attestation --no-password "${small[@]}"
python3 - out <<'END'
import json, sys
report = json.load(open(sys.argv[1]))
assert report["keymaster"].startswith("SoftKeymaster, "), report
assert (report["holds"], report["broken"], report["left_out"]) == (16, 0, 8), report
assert [set(f) for f in report["findings"]] == \
    24 * [{"id", "verdict", "sent", "answered", "consequence", "note"}], report
END

for wrong in --jsn --largest-store '--largest-store 0' '--largest-store 1k' '--time 0' extra \
    '--name none' '--verify none' "--save $check"; do
    # shellcheck disable=SC2086  # words are wanted
    runs 2 "$check" $wrong
done
for option in --help --version --list '--name soft --no-password'; do
    # shellcheck disable=SC2086
    runs 0 "$check" $option
done

# A saved key lives through starts and an upgrade, each a process of its own. It is tried once.
export SOFT_KEYMASTER_PATCH_LEVEL=202601
runs 0 "$check" --save saved
cp saved same
SOFT_KEYMASTER_PATCH_LEVEL=202602 runs 0 "$check" --verify saved
says out '^2 requirements: holds 2,'
[[ ! -e saved ]] || fail "the file is still there"
runs 2 "$check" --verify out
rm soft_keymaster_root.key
runs 1 "$check" --verify same
says out '^broken       later.key'
unset SOFT_KEYMASTER_PATCH_LEVEL

runs 0 "$zelkm" check "${small[@]}"
says out '^holds ' 26
runs 1 "$zelkm" check --fault tag-12 --json "${small[@]}"
python3 -m json.tool out >formatted
says formatted '"verdict": "broken"' 2
runs 2 "$zelkm" check --fault none
runs 2 "$zelkm" check --largest-store 0

# Whenever a signal comes, nothing is left, not even of a check that could not clean up.
for delay in 0.02 0.05 0.1 0.2 0.3; do
    for signal in INT TERM; do
        for program in "$check" "$zelkm check"; do
            # shellcheck disable=SC2086
            timeout --preserve-status -s "$signal" "$delay" $program >out 2>err || true
            [[ -z $(ls -A tmp) ]] || fail "$program, $signal after $delay s: left $(ls tmp)"
        done
    done
done

# The program has every fault that its help names. A slow keymaster is not broken, and the usual
# sizes pass a small transport.
"$zelkm" check --help >out
faults=$(sed -nE 's/^  ([a-z0-9-]+)  +[a-z0-9].*/\1/p' out | grep -v '^zelkm')
[[ $(wc -w <<<"$faults") == 22 ]] || fail "these faults: $faults"
for fault in $faults; do
    case $fault in
        slow-call | small-transport) runs 0 "$zelkm" check --fault "$fault" ;;
        *) runs 1 "$zelkm" check --fault "$fault" "${small[@]}" ;;
    esac
done
runs 1 "$zelkm" check --fault small-transport --largest-store 1048576
echo "the programs tell sound keymasters from broken ones"
