# SPDX-License-Identifier: Apache-2.0
"""Redfish: small requests, a large archive, the tool's whole collect, memory by size."""

import contextlib
import pathlib
import shutil
import tempfile

from measure.clock import in_turns, run, seconds, take
from measure.rows import Row
from measure.servers import MIB, web

# A shell starts programs with less ado than Python, whose share would hide a difference.
STARTS = 'i=0; while [ $i -lt "$1" ]; do "$0" --version >/dev/null || exit 1; i=$((i + 1)); done'
BY_HAND = 'curl -q -sSfk --http1.1 -o "$1" -u "$2" "$3" && sha256sum "$1"'
BY_HAND_TO_ITS_END = BY_HAND + ' && tar -tzf "$1"'
BY_HAND_AT_ONCE = 'curl -q -sSfk --http1.1 -u "$2" "$3" | tee "$1" | sha256sum'


@contextlib.contextmanager
def serving(options, sizes, exported=None):
    # Beside the build, because /tmp may be held in memory.
    with tempfile.TemporaryDirectory(prefix="bench-", dir=options.build) as name:
        with web(options, pathlib.Path(name).resolve(), sizes, exported) as at:
            yield at


def old_libcurl():
    """Before 8.1 a handle is not used twice, by us and so by the loop that we are compared with."""
    words = run(["curl", "--version"]).split("libcurl/")[1].split(maxsplit=1)[0].split(".")
    return tuple(int(word) for word in words[:2]) < (8, 1)


def gets(options):
    """Small GETs on one TLS connection."""
    requests, rounds = (200, 3) if options.quick else (2000, 7)
    with serving(options, {}) as at:
        said = run([options.build / "bin" / "bench_small_gets", at.url("/redfish/v1/"), requests,
                    rounds])
    ours, bare, full = zip(*(map(float, line.split()) for line in said.splitlines()))
    loop = "bare libcurl, fresh handles" if old_libcurl() else "bare libcurl, one handle"
    yield Row("gets", f"{requests} small GETs on one TLS connection", list(ours),
              {loop: list(bare), "with all that the engine owes": list(full)}, kind="speed",
              at_least=0.97)


def fetch(options, at, name, mebibytes):
    """The library's own download; also tells its peak memory."""
    target = at.folder / "fetched"
    spent, said = seconds([options.build / "bin" / "bench_download", "127.0.0.1", at.port, "admin",
                           f"/archives/{name}", target], "password\n")
    take(target, mebibytes * MIB)
    return spent, int(said) / 1024


def download(options):
    """A large archive over HTTPS, and the tool's whole collect."""
    size, rounds = (32, 2) if options.quick else (512, 7)
    with serving(options, {"largest": size}) as at:
        target = at.folder / "fetched"

        def ours():
            return fetch(options, at, "largest", size)[0]

        def curl():
            spent, _ = seconds(["curl", "-q", "-sSfk", "--http1.1", "-o", target, "-u",
                                "admin:password", at.url("/archives/largest")])
            take(target, size * MIB)
            return spent

        times = in_turns(rounds, ours, curl)
        yield Row("https", f"{size} MiB over HTTPS, library", times[0], {"curl -o": times[1]},
                  at_most=0.70)


def collect(options):
    """The tool's whole collect, of a file that it cannot look into and of an archive that it reads."""
    size, rounds = (32, 2) if options.quick else (512, 7)
    work = f"the tool's whole collect of {size} MiB over Redfish"
    with serving(options, {}, ("ffdc.bin", size)) as at:
        ours, hand, at_once = collected(options, at, size, rounds, BY_HAND, BY_HAND_AT_ONCE)
        yield Row("https", work, ours, {"curl -o && sha256sum": hand,
                                        "curl, tee, sha256sum at once": at_once}, at_most=0.45)
    with serving(options, {}, ("ffdc.tar.gz", size)) as at:
        ours, hand = collected(options, at, size, rounds, BY_HAND_TO_ITS_END)
        yield Row("https", f"{work}, and whether it unpacks", ours,
                  {"curl -o && sha256sum && tar -tzf": hand})


def collected(options, at, size, rounds, *lines):
    """The times of the tool, and of each of the shell's lines."""
    password = at.folder / "password"
    password.write_text("secret\n", encoding="ascii")
    output = at.folder / "collected"
    target = at.folder / "fetched"
    archive = at.bmc["archive"]["path"]

    def ours():
        spent, _ = seconds([options.build / "bin" / "kemffdc", "collect", "--via", "redfish",
                            "127.0.0.1", "--port", at.bmc_port, "--user", "admin",
                            "--password-file", password, "--output", output,
                            "--state-dir", at.folder / "state"])
        take(next(path for path in output.iterdir() if path.suffix != ".json"), size * MIB)
        shutil.rmtree(output)
        return spent

    def line(script):
        spent, _ = seconds(["sh", "-c", script, "sh", target, "admin:secret",
                            f"https://127.0.0.1:{at.bmc_port}{archive}"])
        take(target, size * MIB)
        return spent

    return in_turns(rounds, ours, *(lambda script=script: line(script) for script in lines))


def memory(options):
    """Peak memory over HTTPS by the file's size."""
    sizes = (16, 64) if options.quick else (64, 1024, 4096)
    with serving(options, {f"of{size}": size for size in sizes}) as at:
        for size in sizes:
            spent, peak = fetch(options, at, f"of{size}", size)
            yield Row("memory", f"peak of {size} MiB over HTTPS", [peak], kind="value", unit="MiB",
                      at_most=24, note=f"{spent:.1f} s", series=("HTTPS", size))


def start(options):
    """The start of the tool."""
    rounds, runs = (3, 10) if options.quick else (7, 50)

    def one(program):
        return seconds(["sh", "-c", STARTS, program, runs])[0] / runs

    times = in_turns(rounds, lambda: one(options.build / "bin" / "kemffdc"), lambda: one("curl"))
    yield Row("start", "--version of the tool", times[0], {"curl --version": times[1]}, at_most=2)
