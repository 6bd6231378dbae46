# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# An emulated BMC for a script, which it tells in one line of JSON how to reach it. Sourced after lib.sh.
# shellcheck disable=SC2154  # root

# start_bmc LOG OPTION...: LOG takes what it complains of.
start_bmc() {
    local log=$1
    shift
    coproc BMC { exec "$root/emulator/emulated-bmc" "$@" 2>"$log"; }
    # shellcheck disable=SC2153
    bmc_pid=$BMC_PID
    exec {bmc_says}<&"${BMC[0]}"- {bmc_input}>&"${BMC[1]}"-
    if ! read -r -t 60 -u "$bmc_says" ready; then
        cat "$log"
        die "the emulated BMC did not start"
    fi
}

# It ends when its input is closed. Nothing to do where none was started.
end_bmc() {
    [[ -n ${bmc_pid-} ]] || return 0
    exec {bmc_input}>&-
    wait "$bmc_pid" 2>/dev/null || true
    bmc_pid=""
}

# One value of its line, for instance: bmc_value redfish port
bmc_value() {
    /usr/bin/python3 -c 'import json, sys
value = json.load(sys.stdin)
for name in sys.argv[1:]:
    value = value[name]
print(value)' "$@" <<<"$ready"
}
