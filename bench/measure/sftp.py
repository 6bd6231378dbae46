# SPDX-License-Identifier: Apache-2.0
"""Downloads by SFTP from OpenSSH's server: one large file, many small ones, a whole collect over
IPMI, memory by size."""

import contextlib
import os
import pathlib
import shutil
import tempfile

from measure.clock import in_turns, seconds, take
from measure.rows import NotMeasured, Row
from measure.servers import MIB, PASSWORD, USER, emulated_bmc, free_port, late, noise, sshd

ONE_WAY_MILLISECONDS = 2.5
REMOTE = "/download/ffdc"
FILE_SERVICE_PORT = 115  # of every BMC
OPENSSH = ("-q -F none -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null "
           "-o LogLevel=ERROR -o PreferredAuthentications=password").split()
BMC_WAIT = 5  # seconds that the IPMI channel leaves the BMC before it asks for the first time

# What a careful operator would type. The password of the file service comes from the BMC.
BY_HAND = """
bmc() { ipmitool -I lanplus -C 17 -H 127.0.0.1 -p "$1" -U admin -P secret raw 0x3a "$2" 0x01; }
bmc "$1" 0x49 && sleep "$4" && bmc "$1" 0x4d && bmc "$1" 0x79 &&
    setsid -w sftp $5 -P 115 "$2@127.0.0.1:/download/ffdc/*" "$3" && sha256sum "$3"/*
"""


class Clients:
    """Ways to fetch from a port, each a command of its own."""

    def __init__(self, options, folder):
        self.program = options.build / "bin" / "bench_sftp_download"
        self.folder = folder
        self.target = folder / "fetched"
        answer = folder / "answer"
        answer.write_text(f"#!/bin/sh\necho {PASSWORD}\n", encoding="ascii")
        answer.chmod(0o700)
        self.environment = {
            **os.environ, "VARNEX_KNOWN_HOSTS": str(folder / "known_hosts"),
            "SSH_ASKPASS": str(answer), "SSH_ASKPASS_REQUIRE": "force", "DISPLAY": ":0"}

    def seconds(self, command, text=None):
        return seconds(command, text, env=self.environment)

    def ours(self, port, remote, local):
        spent, said = self.seconds([self.program, port, USER, remote, local], PASSWORD + "\n")
        return spent, int(said) / 1024

    def curl(self, port, remote, local):
        return self.seconds(["curl", "-q", "-sSk", "-o", local, "-u", f"{USER}:{PASSWORD}",
                             f"sftp://127.0.0.1:{port}{remote}"])[0]

    def sftp(self, port, remote, local):
        return self.seconds(["setsid", "-w", "sftp", *OPENSSH, "-P", port,
                             f"{USER}@127.0.0.1:{remote}", local])[0]

    def whole(self, client, port, size):
        """The time of one file."""
        spent = client(port, f"{REMOTE}/archive", self.target)
        take(self.target, size * MIB)
        return spent[0] if isinstance(spent, tuple) else spent

    def folder_of(self, client, port, remote, count):
        """The time of a folder of that many files."""
        self.target.mkdir()
        spent = client(port, remote, f"{self.target}/" if client == self.ours else self.local(client))
        found = len(list(self.target.iterdir()))
        shutil.rmtree(self.target)
        if found != count:
            raise SystemExit(f"bench/run: {client.__name__} fetched {found} files instead of {count}")
        return spent[0] if isinstance(spent, tuple) else spent

    def local(self, client):
        """curl names a file by its number, sftp by its name."""
        return self.target / "#1" if client == self.curl else self.target


@contextlib.contextmanager
def serving(options, prepare):
    """A server whose folder `prepare` has filled; gives its port and the clients."""
    with tempfile.TemporaryDirectory(prefix="bench-", dir=options.build) as name:
        folder = pathlib.Path(name).resolve()
        served = folder / "served"
        served.mkdir(mode=0o755)
        prepare(served)
        with sshd(options, served, free_port()) as port:
            yield port, Clients(options, folder)


def large(options):
    """A large file by SFTP, near and far."""
    size, rounds = (32, 2) if options.quick else (256, 7)
    with serving(options, lambda served: noise(served / "archive", size * MIB)) as (port, by):

        def compared(at, *clients):
            return in_turns(rounds, *(lambda c=client: by.whole(c, at, size) for client in clients))

        ours, sftp, curl = compared(port, by.ours, by.sftp, by.curl)
        yield Row("sftp", f"{size} MiB by SFTP, loopback", ours, {"sftp": sftp, "curl": curl},
                  at_most=0.75)
        with late(options, port, ONE_WAY_MILLISECONDS) as relay:
            ours, sftp = compared(int(relay), by.ours, by.sftp)
        yield Row("sftp", f"{size} MiB by SFTP, {2 * ONE_WAY_MILLISECONDS:g} ms round trip", ours,
                  {"sftp": sftp}, at_most=0.80)


def write_small(folder, count):
    folder.mkdir(mode=0o755)
    for number in range(1, count + 1):
        file = folder / str(number)
        file.write_bytes(os.urandom(1024))
        file.chmod(0o644)


def many(options):
    """Many small files by SFTP."""
    counts = (1, 20) if options.quick else (1, 100, 200, 1000)

    def prepare(served):
        for count in counts:
            write_small(served / str(count), count)

    with serving(options, prepare) as (port, by):
        for count in counts:
            rounds = 1 if count >= 1000 else 3
            remote = f"{REMOTE}/{count}/"
            ours, curl, sftp = in_turns(
                rounds, lambda: by.folder_of(by.ours, port, remote, count),
                lambda: by.folder_of(by.curl, port, f"{remote}[1-{count}]", count),
                lambda: by.folder_of(by.sftp, port, f"{remote}*", count))
            files = "file" if count == 1 else "files"
            yield Row("files", f"{count} {files} of 1 KiB by SFTP", ours,
                      {"curl, one connection": curl, "sftp": sftp},
                      # The others show how it grows.
                      at_most=1.2 if count in (20, 200) else None, series=("files", count))


def memory(options):
    """Peak memory by SFTP by the file's size."""
    sizes = (16, 64) if options.quick else (64, 1024, 4096)

    def prepare(served):
        for size in sizes:
            noise(served / f"of{size}", size * MIB)

    with serving(options, prepare) as (port, by):
        for size in sizes:
            spent, peak = by.ours(port, f"{REMOTE}/of{size}", by.target)
            take(by.target, size * MIB)
            yield Row("memory", f"peak of {size} MiB by SFTP", [peak], kind="value", unit="MiB",
                      at_most=24, note=f"{spent:.1f} s", series=("SFTP", size))


def collect(options):
    """The tool's whole collect over IPMI and SFTP."""
    size, rounds = (16, 1) if options.quick else (512, 3)
    work = f"the tool's whole collect of {size} MiB over IPMI and SFTP"
    if not options.private_net:
        yield NotMeasured("sftp", work, "port 115 is not free for this user")
        return
    with tempfile.TemporaryDirectory(prefix="bench-", dir=options.build) as name:
        folder = pathlib.Path(name).resolve()
        served = folder / "served"
        served.mkdir(mode=0o755)
        noise(served / "archive.tzz", size * MIB)
        scenario = ("{user: admin, password: secret, ipmi: {polls: 0, credential: "
                    f"{{user: {USER}, password: {PASSWORD}}}}}}}")
        with emulated_bmc(folder / "behind", scenario) as bmc, \
                sshd(options, served, FILE_SERVICE_PORT):
            yield collected(options, work, folder, bmc["ipmi"]["port"], size, rounds)


def collected(options, work, folder, port, size, rounds):
    by = Clients(options, folder)
    password = folder / "password"
    password.write_text("secret\n", encoding="ascii")
    output = folder / "collected"

    def fetched(command):
        output.mkdir()
        spent, _ = by.seconds(command)
        take(next(path for path in output.rglob("*") if path.suffix == ".tzz"), size * MIB)
        shutil.rmtree(output)
        return spent - BMC_WAIT

    ours, hand = in_turns(
        rounds,
        lambda: fetched([options.build / "bin" / "kemffdc", "collect", "--via", "ipmi", "127.0.0.1",
                         "--port", port, "--user", "admin", "--password-file", password, "--output",
                         output, "--state-dir", folder / "state"]),
        lambda: fetched(["sh", "-c", BY_HAND, "sh", port, USER, output, BMC_WAIT,
                         " ".join(OPENSSH)]))
    return Row("sftp", work, ours, {"ipmitool, sftp && sha256sum": hand},
               note=f"without the {BMC_WAIT} s that both leave the BMC")
