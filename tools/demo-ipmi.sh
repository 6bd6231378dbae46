# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The IPMI part of ./demo. Sourced. Port 115 is root's; others get it in a network of their own, and
# where that is forbidden this part is left out, and said to be.
# shellcheck disable=SC2154  # root: set by ./demo

collect_over_ipmi() {
    local code=0
    say
    if [[ $EUID -eq 0 ]]; then
        "$root/tools/demo-ipmi" || code=$?
    else
        "$root/tools/private-net" "$root/tools/demo-ipmi" || code=$?
    fi
    if [[ $code -eq 77 ]]; then
        say "Collecting over IPMI was NOT shown: see the line above."
    elif [[ $code -ne 0 ]]; then
        die "the IPMI part ended with exit code $code"
    fi
}
