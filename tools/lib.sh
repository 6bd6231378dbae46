# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What the scripts of this tree share. Sourced, never run.

set -euo pipefail

# shellcheck disable=SC2034
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
# shellcheck disable=SC2034
jobs="$(nproc)"

say() { printf '%s\n' "$*"; }

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root() {
    if [[ $EUID -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo -- "$@"
    else
        die "needs root for: $*  (there is no sudo here: run it as root, then start again)"
    fi
}

apt_update() { as_root apt-get -o DPkg::Lock::Timeout=120 update -qq; }

# Debian's release, 12 or 13; 0 on another system.
debian_release() {
    local ID="" VERSION_ID=""
    # shellcheck source=/dev/null
    [[ ! -r /etc/os-release ]] || source /etc/os-release
    [[ $ID == debian && $VERSION_ID =~ ^1[23]$ ]] || VERSION_ID=0
    printf '%s\n' "$VERSION_ID"
}

# Names in a package list: the first word of every line that is no comment. Where a package is called
# otherwise in Debian 13, the word is "name-in-12|name-in-13".
package_names() {
    awk -v release="$(debian_release)" \
        '!/^#/ && NF { names = split($1, name, "|"); print name[release == 13 ? names : 1] }' "$@"
}

# Nothing on this machine may steer the requests of a test or of the demo.
clear_network_environment() {
    unset REQUESTS_CA_BUNDLE CURL_CA_BUNDLE SSL_CERT_FILE SSL_CERT_DIR
    unset http_proxy https_proxy ftp_proxy all_proxy no_proxy
    unset HTTP_PROXY HTTPS_PROXY FTP_PROXY ALL_PROXY NO_PROXY
}

# Uses ccache where it is there; nobody has to have it.
use_ccache() {
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER-ccache}"
    fi
}

minutes() { printf '%d:%02d' $(($1 / 60)) $(($1 % 60)); }
