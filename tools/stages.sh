# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The stages of ./test and tools/pre-submit, and how they are told to the one who waits. Sourced.

# shellcheck source=lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

peers="$root/build/peers"
began=$SECONDS
stage_name="the start"
results=()  # JUnit files of the test runs so far

# stage NAME COMMAND...: the first stage that fails ends the run.
stage() {
    stage_name="$1"
    local stage_began=$SECONDS
    printf '\n==== %s\n' "$stage_name"
    "${@:2}"
    printf '==== %s: done in %s\n' "$stage_name" "$(minutes $((SECONDS - stage_began)))"
}

begin() {
    cd "$root"
    trap closing_line EXIT
    clear_network_environment
    use_ccache
    mkdir -p build
}

# Last words, whatever happened.
closing_line() {
    local status=$?
    printf '\n'
    if [[ $status -ne 0 ]]; then
        [[ ${#results[@]} -eq 0 ]] || /usr/bin/python3 "$root/tools/sum-up" --failed "${results[@]}"
        say "FAILED in the stage \"$stage_name\" after $(minutes $((SECONDS - began)))."
        exit 1
    fi
    [[ ${#results[@]} -eq 0 ]] || /usr/bin/python3 "$root/tools/sum-up" "${results[@]}"
    [[ -z ${left_out-} ]] ||
        say "NOT RUN: $left_out long tests, each of many whole runs; ./test runs them, ctest --preset asan -L long too."
    [[ -z ${no_leak_check-} ]] ||
        say "NOT CHECKED for leaks: this machine forbids ptrace, which the leak sanitizer needs."
    say "PASSED in $(minutes $((SECONDS - began)))."
}

stage_packages() { "$root/tools/setup" "$@"; }

stage_peers() { "$root/tools/fetch-peers" "$peers"; }

configure() { cmake --preset "$1" -DVARNEX_PEERS="$peers/root" >"build/$1.log" 2>&1 || {
    tail -n 40 "build/$1.log"
    return 1
}; }

# build PRESET [TARGET...]
build() {
    local targets=()
    [[ $# -eq 1 ]] || targets=(--target "${@:2}")
    configure "$1"
    cmake --build --preset "$1" -j "$jobs" "${targets[@]}"
}

# run_tests PRESET NAME ARGUMENT...: ctest, keeping what it found for the closing line.
run_tests() {
    local found="$root/build/$2.xml"
    rm -f "$found"  # of an earlier run: this one may be broken off before it leaves its own
    results+=("$found")
    "${launcher[@]}" ctest --preset "$1" -j "$at_once" --no-tests=error --output-junit "$found" "${@:3}"
}
launcher=()
at_once="$jobs"

# Comments, includes, layout, scripts: seconds, so before anything is compiled.
stage_tree() {
    configure asan
    run_tests asan tree -L '^tree$'
}

# The leak sanitizer traces its own process; some containers forbid that, and then every program
# ends with its complaint. That is said once and not hidden.
probe_leak_sanitizer() {
    local probe="$root/build/leak-probe" said
    echo 'int main() { return 0; }' |
        g++ -x c++ -fsanitize=address -o "$probe" - || die "g++ lacks its sanitizers"
    if said="$("$probe" 2>&1)"; then return; fi
    [[ $said == *ptrace* || $said == *"LeakSanitizer has encountered a fatal error"* ]] ||
        die "a sanitized program does not run here: $said"
    no_leak_check=1
    export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0"
    say "Leaks are not looked for: this machine forbids ptrace."
}

stage_sanitized_build() { build asan; }

# Whole runs of the tool and the library spend most of their time on waiting, so more of them are at work
# than there are processors.
stage_sanitized_tests() {
    probe_leak_sanitizer
    at_once=$((4 * jobs)) run_tests asan asan -LE '^(tree|package|hostile)$'
}

# Whole runs that take a minute each are left out.
stage_quick_tests() {
    probe_leak_sanitizer
    at_once=$((4 * jobs)) run_tests asan asan -LE '^(tree|package|hostile|long)$'
    left_out="$(ctest --preset asan -N -L '^long$' | sed -n 's/^Total Tests: //p')"
}

# What a user installs is not instrumented: so neither is what these look at. How much memory a
# hostile BMC costs is only true here.
stage_release() {
    build release kemffdc varnex_ffdc varnex_benchmarks varnex_hostile varnex_manual_pages varnex_reference varnex_sbom
    run_tests release package -L '^(package|hostile|ansible)$'
}

# The weather is nearly all waiting, so it takes no time from the others.
stage_benchmarks() {
    local release="$root/build/release" weather
    "$root/bench/ipmi/weather" --quick --build "$release" >build/weather.txt &
    weather=$!
    "$root/bench/run" --quick --build "$release" --peers "$peers/root"
    "$root/bench/redfish/tree" --quick --build "$release"
    wait "$weather"
    cat build/weather.txt
}

stage_demo_in_root() { "$root/tools/demo-in-root" "$1"; }

stage_clang() { build tidy; }

stage_tidy() {
    configure tidy
    run-clang-tidy -quiet -p build/tidy -j "$jobs" "^$root/(src|platform|cli)/.*\.cpp$" \
        >build/clang-tidy.log 2>&1 || {
        grep -E 'warning:|error:' build/clang-tidy.log | sort -u
        return 1
    }
}

# Some kernels randomise addresses more than g++ 12's thread sanitizer can stand.
probe_thread_sanitizer() {
    local probe="$root/build/thread-probe"
    echo 'int main() { return 0; }' | g++ -x c++ -fsanitize=thread -o "$probe" -
    for _ in 1 2 3 4 5 6 7 8; do
        "$probe" 2>/dev/null || { launcher=(setarch -R) && return; }
    done
}

stage_thread_sanitizer() {
    build tsan
    probe_thread_sanitizer
    run_tests tsan tsan -LE '^(tree|package|hostile)$'
    launcher=()
}

# How much of the sources all tests together reach. Whole runs of the tool count; what is killed on purpose does not.
stage_coverage() {
    build coverage
    at_once=$((4 * jobs)) run_tests coverage coverage -LE '^(tree|package|hostile|ansible)$'
    mkdir -p "$root/build/coverage/report"
    gcovr --root "$root" --object-directory "$root/build/coverage" -j "$jobs" --print-summary \
        --filter "$root/(src|include|platform|cli)/" --exclude-throw-branches --exclude-directories '.*/CompilerIdCXX' \
        --html-details "$root/build/coverage/report/index.html" "$root/build/coverage"
}

stage_mutants() { "$root/tools/mutants"; }

# stage_fuzz SECONDS: so long for each target, after all its seeds.
stage_fuzz() {
    build fuzz varnex_fuzz_targets
    "$root/fuzz/run" "$root/build/fuzz" "$1"
}
