# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What ./demo shows of many BMCs at once. Sourced.
# shellcheck disable=SC2154  # root, output, kemffdc: set by ./demo

# 24 BMCs, a quarter of them with a fault. The seed makes the same ones each time.
start_fleet() {
    coproc FLEET {
        exec "$root/emulator/emulated-fleet" --count 24 --faults 25 --seed 6 --gathering 3 \
            --inventory "$output/rack.csv" --state-dir "$output/fleet-bmcs" 2>"$output/fleet.log"
    }
    # shellcheck disable=SC2153
    fleet_pid=$FLEET_PID
    exec {fleet_says}<&"${FLEET[0]}"- {fleet_input}>&"${FLEET[1]}"-
    if ! read -r -t 60 -u "$fleet_says" _; then
        cat "$output/fleet.log"
        die "the emulated fleet did not start"
    fi
}

stop_fleet() {
    [[ -n ${fleet_pid-} ]] || return 0
    exec {fleet_input}>&-
    wait "$fleet_pid" 2>/dev/null || true
    fleet_pid=""
}

# Some of them cannot be had: the run ends with 20 and says which and why.
collect_from_fleet() {
    local code=0 command=(fleet collect demo-output/rack.csv --interval 1 --tries 120
        --credentials demo-output/fleet-bmcs/credentials.yaml --retry-pause 2s
        --output demo-output/runs)
    start_fleet
    say
    say "And many BMCs at once. Here are 24 of them, some with a fault:"
    say "    kemffdc ${command[*]:0:7} \\"
    say "        ${command[*]:7:4} \\"
    say "        ${command[*]:11}"
    say
    (cd "$root" && "$kemffdc" "${command[@]}") || code=$?
    stop_fleet
    [[ $code -eq 20 ]] || die "the fleet run ended with exit code $code instead of 20"
}

show_fleet_report() {
    local pages=("$output"/runs/*/report.html)
    [[ ${#pages[@]} -eq 1 && -s ${pages[0]} ]] || die "expected one report page in $output/runs"
    say
    say "The page for people is $(shown "${pages[0]}"): open it in a browser."
}
