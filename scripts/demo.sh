#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Sets the machine up, builds, and shows the library at work on a directory, build/demo, which stays
# for a look afterwards. Fails when a step does not do what its caption says.

set -euo pipefail
cd "$(dirname "$0")/.."

say() {
    printf '\n== %s\n' "$*"
}

fail() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}

# Shows and runs a command line; what it prints is left in $output.
run() {  # COMMAND [STATUS]
    local status=0
    printf '$ %s\n' "$1"
    output=$(eval "$1" 2>&1) || status=$?
    [[ -z $output ]] || sed 's/^/  /' <<<"$output"
    [[ $status -eq ${2:-0} ]] || fail "status $status where ${2:-0} was expected"
}

expect() {  # TEXT in the output of the last command
    [[ $output == *"$1"* ]] || fail "\"$1\" was expected"
}

flip_byte() {  # FILE OFFSET
    local byte
    byte=$(xxd -s "$2" -l 1 -p "$1")
    printf '%02x' $((0x$byte ^ 1)) | xxd -r -p | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

scripts/setup.sh --demo
# Without the tests; what this builds can be installed.
cmake --preset release -DZELKM_TESTS=OFF >/dev/null
cmake --build --preset release --target tools/all
PATH=$PWD/build/release/tools:$PATH
rm -rf build/demo
mkdir -p build/demo/store
cd build/demo
unset ANDROID_LOG_TAGS

say "Three objects: who made the key, who administers it, who may use it"
run "zelkm --dir store add --alias payment --creator wallet --accessor '1000,[10000..19999]'"
run "zelkm --dir store add --alias door --creator home --admin 1000 --accessor 'app_*'"
run "zelkm --dir store add --alias disk --creator vold --privileged"
run "zelkm --dir store list"
expect "[10000..19999]"

say "Which keys may 10042 use? ACCESSOR holds patterns"
run "zelkm --dir store list --where ACCESSOR=10042 --columns CREATOR,ALIAS"
expect payment
[[ $output != *door* ]] || fail "door does not let 10042 in"

say "Another process reads the same files, deletes an object, and a third one sees it"
run "zelkm --dir store remove --where ALIAS=disk"
run "zelkm --dir store list --csv --columns CREATOR,ALIAS"
expect wallet,payment
[[ $output != *disk* ]] || fail "disk was deleted"

say "Values that would be of no use are refused, and nothing is stored"
run "zelkm --dir store add --alias gate --creator home --accessor '[20000..10000]'" 2
expect "bounds are reversed"
run "zelkm --dir store add --alias gate --creator home --accessor '1000, 2000'" 2
expect "the blank would be part of the name"

say "Many objects at once: a bad line is named, and nothing is stored; then all of them are"
{
    echo "CREATOR,ALIAS,ACCESSOR"
    for i in $(seq 200); do echo "app$((i % 5)),key$i,\"$((10000 + i)),system_*\""; done
} >keys.csv
sed '100s/10099/[10099/' keys.csv >bad.csv
mkdir many other
run "zelkm --dir many import bad.csv" 1
expect "bad.csv: line 100: ACCESSOR"
run "zelkm --dir many import keys.csv"
expect "imported 200 objects"
run "zelkm --dir many export >objects.json && zelkm --dir other import --as-is objects.json"
run "zelkm --dir other export | cmp - objects.json && echo 'the same, byte for byte'"
expect "byte for byte"

say "Which objects may 10042 use?"
run "zelkm --dir many who 10042"
expect key42

say "Two writers at once: they take turns, and nothing is lost"
add_ten() { for i in $(seq 10); do zelkm --dir other --quiet --wait 60 add --alias "$1$i" --creator two; done; }
run "add_ten a & add_ten b & wait; zelkm --dir other list --where CREATOR=two --count"
expect 20

say "The file: a header of 52 bytes, then AES-GCM ciphertext, encrypted with a key of the keymaster"
run "xxd -l 64 store/secure_objects.db"
run "zelkm info store | sed -n 1,9p"
expect "encrypted    true"
if grep -q payment store/secure_objects.db; then fail "the store holds plaintext"; fi

say "One byte flipped: the read is refused, and the backup, one change older, put in place"
run "flip_byte store/secure_objects.db 60"
run "zelkm --dir store aliases" 1
expect "-30 verification failed"
run "zelkm --dir store aliases"
expect "vold::disk"

say "A system update: the keymaster wants the database key upgraded, the library does it"
cp store/edbk edbk.before
run "zelkm --dir store --patch-level 202612 --upgrade aliases"
expect "wallet::payment"
run "zelkm info store | tail -n 1"
expect "level of the key: 202612"
if cmp -s edbk.before store/edbk; then fail "the key blob is still the old one"; fi
run "cmp edbk.before store/edbk.bak && tail -n 2 store/zelko_err.txt | cut -d ' ' -f 3-"
expect "Upgrade the db key file"

say "A certificate signing request, checked by openssl"
run "zelkm --dir store csr --out request.pem"
run "openssl req -in request.pem -noout -verify"
expect "verify OK"

say "A key's attestation chain, checked by openssl"
run "zelkm --dir store attest --challenge demo-challenge --out-dir chain"
run "openssl verify -CAfile chain/cert-3.pem -untrusted chain/cert-2.pem chain/cert-1.pem"
expect OK
openssl x509 -in chain/cert-1.pem -outform DER | grep -q demo-challenge || fail "no challenge"

say "A chain made by openssl, checked by the library; then with a link missing"
make_chain() {
    local name issuer=()
    for name in root middle leaf; do
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$name.key" \
            -subj "/CN=$name" "${issuer[@]}" -out "$name.pem"
        issuer=(-CA "$name.pem" -CAkey "$name.key")
    done
} 2>/dev/null
make_chain
run "zelkm verify-chain leaf.pem middle.pem root.pem"
expect "NOT known to be trusted"
run "zelkm verify-chain leaf.pem chain/cert-2.pem root.pem" 1

say "Key material converted with the password hardware key, and back; a changed tag is refused"
for file in in1 in2 in3 in4 material; do openssl rand -out "$file" 32; done
inputs="--in1 in1 --in2 in2 --in3 in3 --in4 in4"
run "zelkm --dir store wrap $inputs --material material --out wrapped --tag tag"
run "zelkm --dir store unwrap $inputs --material wrapped --out unwrapped --tag tag"
run "openssl dgst -sha256 -r material unwrapped wrapped"
cmp -s material unwrapped || fail "the material did not come back"
flip_byte tag 0
run "zelkm --dir store unwrap $inputs --material wrapped --out refused --tag tag" 1
expect "-30"

printf '\nEverything worked as described. The files are in build/demo.\n'
