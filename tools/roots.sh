# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Minimal roots of Debian in which something is tried. Sourced.

# shellcheck source=lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# make_roots_possible: on this machine, or the script ends.
make_roots_possible() {
    [[ $EUID -eq 0 ]] || die "needs root, for the roots that it makes"
    "$root/tools/setup" roots
    clear_network_environment
}

# in_root SUITE VARIANT HOOK...: runs the hooks in a fresh root, which is gone afterwards. VARIANT as
# mmdebstrap calls it: minbase has nothing but what every Debian has, buildd a compiler too.
in_root() {
    local suite=$1 variant=$2 hooks=() hook
    shift 2
    for hook in "$@"; do hooks+=("--customize-hook=$hook"); done
    mmdebstrap --quiet --variant="$variant" --aptopt='Acquire::Retries "3"' \
        "${hooks[@]}" "$suite" /dev/null
}
