# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Completion of kemffdc in bash, by way of bash-completion. kemffdc itself knows what fits.

_kemffdc() {
    local cur prev words cword split
    _init_completion -s -n : || return
    local before=("${words[@]:1:cword-1}")
    # "--log=mi": `cur` is the value alone.
    "$split" && before=("${words[@]:1:cword-1}" "$prev")

    local candidate
    COMPREPLY=()
    while IFS=$'\t' read -r candidate _; do
        case $candidate in
            :files) _filedir ;;
            :folders) _filedir -d ;;
            *) COMPREPLY+=("$candidate") ;;
        esac
    done < <("${words[0]}" complete "${before[@]}" "$cur" 2>/dev/null)
    __ltrim_colon_completions "$cur"
} && complete -F _kemffdc kemffdc
