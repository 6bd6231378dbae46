# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What ./demo shows of a run that fails, and of what stays after runs. Sourced.
# shellcheck disable=SC2154  # root, output, kemffdc, store_ready: set by ./demo and its other parts

# The BMC is to upload to a file store that does not know the password: the reason is the BMC's own.
show_reason() {
    start_store
    local address port user uri code=0
    address="$(bmc_value address)"
    port="$(bmc_value redfish port)"
    user="$(bmc_value user)"
    uri="sftp://$(store_value address):$(store_value port)/"
    rm -f "$output/store.json"
    (umask 077 && printf 'mistyped\n' >"$output/wrong-password")
    say
    say "When something goes wrong, the tool tells what the BMC itself says. Here the archive is to go to"
    say "a file store, and the store's password is wrong:"
    say "    kemffdc collect --via redfish $address --port $port --user $user \\"
    say "        --password-file demo-output/password --interval 1 --export-uri $uri \\"
    say "        --export-user $(store_value user) --export-password-file demo-output/wrong-password"
    say
    "$kemffdc" collect --via redfish "$address" --port "$port" --user "$user" \
        --password-file "$output/password" --interval 1 --export-uri "$uri" \
        --export-user "$(store_value user)" --export-password-file "$output/wrong-password" || code=$?
    stop_store
    [[ $code -eq 5 ]] || die "a refused upload ended with exit code $code instead of 5"
}

# The BMC gathers for longer than the run waits; what it has gathered is fetched later.
show_resume() {
    local address port user code=0
    address="$(bmc_value address)"
    port="$(bmc_value redfish port)"
    user="$(bmc_value user)"
    say
    say "A run that ends before its archive has come can be continued; the BMC does not gather again:"
    say "    kemffdc collect --via redfish $address --port $port --user $user \\"
    say "        --password-file demo-output/password --interval 1 --tries 2 --output demo-output/later"
    say
    "$kemffdc" collect --via redfish "$address" --port "$port" --user "$user" \
        --password-file "$output/password" --interval 1 --tries 2 --output "$output/later" \
        2>&1 | tee "$output/not-in-time.txt" || code=$?
    [[ $code -eq 6 ]] || die "a run that does not wait ended with exit code $code instead of 6"
    local run
    run="$(sed -n 's/.*kemffdc resume \([0-9]*\).*/\1/p' "$output/not-in-time.txt")"
    [[ -n $run ]] || die "the run cannot be continued"
    say
    say "    kemffdc resume $run --password-file demo-output/password --tries 30"
    say
    "$kemffdc" resume "$run" --password-file "$output/password" --tries 30 ||
        die "going on failed with exit code $?"
}

# Beside each archive lies a record of where it comes from and how it was fetched.
show_record() {
    local records=("$output/archives"/*.json)
    [[ ${#records[@]} -eq 1 && -f ${records[0]} ]] || die "expected one record in $output/archives"
    say
    say "Beside it lies its record, $(shown "${records[0]}"); among much else:"
    /usr/bin/python3 -c 'import json, sys
record = json.load(sys.stdin)
machine = {name: record["bmc"][name] for name in ("product", "firmware", "serial", "uuid")}
names = ("channel", "host", "started", "ended", "outcome", "log_kind", "remote_path", "size", "sha256")
print(json.dumps({**{name: record[name] for name in names}, "bmc": machine}, indent=4, ensure_ascii=False))' \
        <"${records[0]}" | sed 's/^/    /' || die "the record is not as it should be"
}

# What the history of this machine tells of the runs above, and of what lies in the archive.
show_history() {
    say
    say "Every run is kept in a history:"
    say "    export XDG_STATE_HOME=demo-output/state  (yours stays as it is)"
    say "    kemffdc history"
    say
    "$kemffdc" history || die "the history cannot be shown: exit code $?"
    local archives=("$output/archives"/*.tar.gz)
    say
    say "    kemffdc show $(shown "${archives[0]}")"
    say
    "$kemffdc" show "${archives[0]}" >"$output/shown.txt" || die "the archive cannot be shown: exit code $?"
    head -n 24 "$output/shown.txt"
    say "..."
    say
    say "    kemffdc verify"
    say
    "$kemffdc" verify || die "an archive is not as it was recorded: exit code $?"
}
