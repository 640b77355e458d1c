#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Checks the files of examples/device that only a device uses, as far as a host can: the interface by
# the platform's compiler, the policy by the kernel's with a stand-in for the platform's policy, the
# init script by its rules, and that they name the same things. test-android-bp.sh has the rest.

set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cd "$here/../../examples/device"
for tool in aidl checkpolicy m4; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "device_files_test: $*" >&2
    exit 1
}

aidl --lang=cpp -Iaidl --header_out="$scratch" -o "$scratch" aidl/vendor/zelkeymaster/*.aidl

# The policy with one more rule; of two neverallow rules the one that is broken is printed.
policy() {  # RULE
    sed -e "/^POLICY$/{r sepolicy/zeld.te
d}" -e "s/^CHECK$/$1/" "$here/device_policy.m4" | m4 >"$scratch/policy.conf"
    checkpolicy -o "$scratch/policy" "$scratch/policy.conf" >"$scratch/log" 2>&1
}
policy '' || fail "the policy: $(cat "$scratch/log")"
# What the service needs is allowed: with a rule that forbids it, there is no policy.
while read -r needed; do
    ! policy "neverallow $needed;" || fail "the policy does not allow: $needed"
    grep -q 'violated by allow' "$scratch/log" || fail "the policy: $(cat "$scratch/log")"
done <<'END'
init zeld_exec:file execute
init zeld:process transition
zeld zeld_exec:file entrypoint
zeld hal_keymaster_default:binder call
zeld hal_keymaster_hwservice:hwservice_manager find
zeld vndservicemanager:binder call
zeld zel_vndservice:service_manager add
zeld zel_data_file:dir { read }
zeld zel_data_file:dir { write }
zeld zel_data_file:file create
zeld zel_data_file:file rename
zeld zel_data_file:file unlink
END
# And no more than that.
policy 'neverallow { domain -zeld } zel_data_file:file *;' || fail "others reach the store"
! policy 'allow my_client zel_vndservice:service_manager add;' || fail "others can take the name"

# Each label that is given is a type of the policy.
while read -r pattern label; do
    type=${label#u:object_r:} type=${type%:s0}
    grep -q "^type ${type}[,;]" sepolicy/zeld.te || fail "no type for $pattern"
done < <(cat sepolicy/*_contexts)
labelled() {  # PATH FILE LABEL
    while read -r pattern label; do
        if [[ $1 =~ ^$pattern$ && $label == "u:object_r:$3:s0" ]]; then return; fi
    done <"sepolicy/$2"
    fail "$1 is not labelled $3"
}
constant() { sed -n "s/^constexpr char $1\[\] = \"\(.*\)\";/\1/p" zeld.cpp; }
labelled "$(constant kDirectory)" file_contexts zel_data_file
labelled "$(constant kDirectory)/secure_objects.db" file_contexts zel_data_file
labelled "$(constant kServiceName)" vndservice_contexts zel_vndservice

# Each line of the init script is one that all releases know.
while read -r word rest; do
    case "$word $rest" in
        '#'* | ' ' | 'on post-fs-data' | 'class hal' | 'user system' | 'group system') ;;
        "mkdir $(constant kDirectory) 0700 system system") ;;
        'service '*' /vendor/bin/zeld') labelled "${rest#* }" file_contexts zeld_exec ;;
        *) fail "zeld.rc: $word $rest" ;;
    esac
done <zeld.rc
echo "the device's files fit each other"
