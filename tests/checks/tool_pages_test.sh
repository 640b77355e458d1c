#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The manual and the completion have all commands and options of the tool, and so has the manual of
# zelkeymaster_check, which lies beside it: tool_pages_test.sh TOOL MAN_PAGE COMPLETION

set -euo pipefail
tool=$1 man_page=$2 completion=$3

fail() {
    echo "$*" >&2
    exit 1
}

# The manual has every command and option that the tool's helps name.
text=$(sed 's/\\-/-/g' "$man_page")
commands=$("$tool" --help | sed -n '/^subcommands:/I,/^$/s/^  \([a-z-]*\) .*/\1/p')
[[ $commands == *verify-chain* ]] || fail "the help has no commands"
for command in $commands; do
    wide=$("$tool" help "$command" | grep '.\{81\}' || true)
    [[ -z $wide ]] || fail "the help of $command is too wide"
    grep -q "^\.SS $command " <<<"$text" || fail "the manual has no $command"
    for option in $("$tool" help "$command" | grep -o '^  --[a-z0-9-]*'); do
        grep -q -- "^\\\\fB$option\\\\fR" <<<"$text" || fail "the manual has no $option of $command"
    done
done
check_page=${man_page%zelkm.1}zelkeymaster_check.1
check_help=$("${tool%zelkm}zelkeymaster_check" --help)
! grep '.\{81\}' <<<"$check_help" || fail "the help of zelkeymaster_check is too wide"
options=$(sed -nE 's/^  (--[a-z-]+|[0-9]+).*/\1/p' <<<"$check_help")
[[ $options == *--verify* ]] || fail "the help of zelkeymaster_check has no options"
for option in $options; do
    grep -qF -- "\fB${option//-/\\-}" "$check_page" || fail "$check_page has no $option"
done
for page in "$man_page" "$check_page"; do
    if command -v groff >/dev/null; then
        text=$(groff -man -Tascii -P -cbou "$page")
        grep -q '^EXIT STATUS' <<<"$text" || fail "no exit status: $page"
        ! grep '.\{81\}' <<<"$text" || fail "$page is too wide"
        warnings=$(groff -man -ww -Tutf8 -z "$page" 2>&1)
        [[ -z $warnings ]] || fail "$warnings"
    fi
done

# shellcheck source=/dev/null
source "$completion"
complete -p zelkm >/dev/null

compopt() { :; }  # which works in a completion only
zelkm() { "$tool" "$@"; }
expect() {  # COMPLETIONS WORD...
    COMP_WORDS=("${@:2}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _zelkm
    [[ ${COMPREPLY[*]} == "$1" ]] || fail "${*:2}: ${COMPREPLY[*]}"
}

expect "import info" zelkm i
expect "list" zelkm --dir add --quiet li
expect "--wait --where" zelkm list --w
expect "--dry-run" zelkm --quiet remove --all --dr
expect "CREATOR,ALIAS CREATOR,ADMIN CREATOR,ACCESSOR" zelkm list --columns CREATOR,A
expect "PRIV_ACC=" zelkm remove --where P
expect "tag-12" zelkm check --fault ta
expect "" zelkm add --alias A
expect "wrap" zelkm help wr
cd "$(mktemp -d)"
trap 'rm -rf "$PWD"' EXIT
columns=$("$tool" list --columns '?' 2>&1 | sed -n 's/.*the columns are //p' | tr -d , || true)
grep -qF "columns=\"$columns\"" "$completion" || fail "the completion has other columns than $columns"
mkdir store
touch string
expect "store" zelkm list --dir st
