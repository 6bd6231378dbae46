# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The CIM part of ./demo: the emulated BMC uploads its archives to an SFTP file store. Sourced.
# shellcheck disable=SC2154  # root, output, kemffdc: set by ./demo

# The file store says in one line of JSON where it listens, and ends when its input is closed.
start_store() {
    local log="$output/store.log"
    mkdir -p "$output/store"
    (umask 077 && : >"$output/store.json")  # will hold a password
    # One coprocess at a time is all that bash knows by name; the BMC is one already.
    exec {store_input}> >(exec "$root/emulator/sftp-store" "$output/store" >"$output/store.json" 2>"$log")
    store_pid=$!
    local _
    for _ in $(seq 300); do
        [[ -s "$output/store.json" ]] && break
        kill -0 "$store_pid" 2>/dev/null || break
        sleep 0.1
    done
    [[ -s "$output/store.json" ]] || { cat "$log" && die "the SFTP file store did not start"; }
    store_ready="$(<"$output/store.json")"
}

stop_store() {
    [[ -n ${store_input-} ]] || return 0
    exec {store_input}>&-
    wait "$store_pid" 2>/dev/null || true
    store_input=""
}

store_value() { ready="$store_ready" bmc_value "$1"; }

collect_over_cim() {
    start_store
    local address port user uri
    address="$(bmc_value address)"
    port="$(bmc_value cim https_port)"
    user="$(bmc_value user)"
    uri="sftp://$(store_value address):$(store_value port)/"
    (umask 077 && store_value password >"$output/store-password")
    rm -f "$output/store.json"

    say
    say "Older machines have CIM alone, and upload by themselves. An SFTP file store listens on"
    say "    $uri  (folder demo-output/store)"
    say "    kemffdc collect --via cim $address --port $port --user $user \\"
    say "        --password-file demo-output/password --export-uri $uri \\"
    say "        --export-user $(store_value user) --export-password-file demo-output/store-password"
    say
    "$kemffdc" collect --via cim "$address" --port "$port" --user "$user" \
        --password-file "$output/password" --export-uri "$uri" \
        --export-user "$(store_value user)" --export-password-file "$output/store-password" ||
        die "collecting over CIM failed with exit code $?"
    stop_store
    show_store
}

# What has arrived must be whole .tar.gz files.
show_store() {
    local files=("$output/store"/*) file entries
    [[ -f ${files[0]} ]] || die "no archive has arrived in $output/store"
    say
    say "Arrived in demo-output/store:"
    for file in "${files[@]}"; do
        entries="$(tar tzf "$file")" || die "$file does not unpack"
        say "    $(basename "$file"): $(stat -c %s "$file") bytes, $(wc -l <<<"$entries") entries, the first are:"
        head -n 3 <<<"$entries" | sed 's/^/        /'
    done
}
