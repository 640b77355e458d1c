# shellcheck shell=bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Completion of zelkm's commands and options for bash. What there is to complete is read from the
# helps of the program that is being called.

_zelkm() {
    local zelkm=${COMP_WORDS[0]} cur=${COMP_WORDS[COMP_CWORD]} command="" type="" help words="" i
    local columns="ALIAS CREATOR ADMIN ACCESSOR CREATOR_UID PRIV_ACC"
    COMPREPLY=()
    help=$("$zelkm" help 2>/dev/null) || return
    for ((i = 1; i < COMP_CWORD; ++i)); do
        type=""
        case ${COMP_WORDS[i]} in
        -*)  # "  --option TYPE      What it does": the next word is its value
            if [[ $help =~ $'\n  '"${COMP_WORDS[i]} "([^ ]+) ]]; then
                type=${BASH_REMATCH[1]}
                ((++i))
            fi ;;
        *)
            [[ -z $command ]] || continue
            command=${COMP_WORDS[i]}
            help+=$'\n'$("$zelkm" help "$command" 2>/dev/null) ;;
        esac
    done
    ((i > COMP_CWORD)) || type=""
    case $type in
    "") ;;
    DIR) mapfile -t COMPREPLY < <(compgen -d -- "$cur"); return ;;
    FAULT) words=$(sed -n 's/^  \([a-z][a-z0-9-]*\)   *.*/\1/p' < <("$zelkm" help "$command")) ;;
    COLUMN,...)
        local before=${cur%"${cur##*,}"}  # the columns that are there already
        mapfile -t COMPREPLY < <(compgen -P "$before" -W "$columns" -- "${cur##*,}")
        compopt -o nospace
        return ;;
    COLUMN=VALUE)
        mapfile -t COMPREPLY < <(compgen -S = -W "$columns" -- "$cur")
        compopt -o nospace
        return ;;
    *) return ;;  # files, by default
    esac
    if [[ $cur == -* && -z $type ]]; then
        words=$(sed -n 's/^  \(-.,\)\?\(--[a-z0-9-]*\).*/\2/p' <<<"$help")
    elif [[ -z $type && (-z $command || $command == help) ]]; then
        words=$(sed -n '/^Subcommands:/I,/^$/s/^  \([a-z-]*\) .*/\1/p' < <("$zelkm" help))
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -o bashdefault -o default -F _zelkm zelkm
