# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The part of ./demo about BMCs of other makes: Redfish's own action for service data. Sourced.
# shellcheck disable=SC2154  # output, kemffdc: set by ./demo

collect_by_standard() {
    local address port user files
    address="$(bmc_value address)"
    port="$(bmc_value redfish port)"
    user="$(bmc_value user)"
    say
    say "BMCs of other makes are asked by Redfish's standard action, LogService.CollectDiagnosticData:"
    say "    kemffdc collect --via redfish $address --port $port --user $user --operation standard \\"
    say "        --password-file demo-output/password --interval 1 --output demo-output/diagnostics"
    say
    "$kemffdc" collect --via redfish "$address" --port "$port" --user "$user" --operation standard \
        --password-file "$output/password" --interval 1 --output "$output/diagnostics" ||
        die "collecting by the standard's action failed with exit code $?"
    files=("$output/diagnostics"/*.tar.xz)
    [[ ${#files[@]} -eq 1 ]] || die "expected one .tar.xz in $output/diagnostics"
    tar tJf "${files[0]}" >/dev/null || die "the archive does not unpack"
}
