#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The manual and the completion have all commands and options of the tool:
# tool_pages_test.sh TOOL MAN_PAGE COMPLETION

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
if command -v groff >/dev/null; then
    grep -q '^EXIT STATUS' <(groff -man -Tutf8 -P -cbou "$man_page") || fail "no exit status"
    warnings=$(groff -man -ww -Tutf8 -z "$man_page" 2>&1)
    [[ -z $warnings ]] || fail "$warnings"
fi

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
mkdir store
touch string
expect "store" zelkm list --dir st
