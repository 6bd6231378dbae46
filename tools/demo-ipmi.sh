# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The IPMI part of ./demo. Sourced. Port 115 is root's, and one demo's at a time: each gets it in a
# network of its own. Where that is forbidden, root's demos take turns, and for others this part is
# left out, and said to be.
# shellcheck disable=SC2154  # root: set by ./demo

collect_over_ipmi() {
    local code=0
    say
    "$root/tools/private-net" "$root/tools/demo-ipmi" || code=$?
    if [[ $code -eq 77 ]]; then
        say "Collecting over IPMI was NOT shown: see the line above."
    elif [[ $code -ne 0 ]]; then
        die "the IPMI part ended with exit code $code"
    fi
}
