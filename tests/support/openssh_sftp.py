#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""OpenSSH's own server as the file service of a BMC.

openssh_sftp.py --address A --port N --user U --password P /REMOTE/FOLDER=LOCAL-FOLDER ...

Runs the sshd of the peers' folder (VARNEX_PEERS) with one account that exists only in what this
sshd sees of /etc: password login, SFTP alone, chroot. Prints one line of JSON when it is ready,
{"port", "fingerprint"}, and ends when its standard input closes. Where it cannot run it prints
{"skip": why} instead and ends with 77. The local folders' files must be readable for everybody.
"""

from __future__ import annotations

import argparse
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

NOT_RUN = 77
START_SECONDS = 20
NUMBER = 64115  # of the account; nobody's

CONFIGURATION = """
Port {port}
ListenAddress {address}
HostKey {folder}/hostkey
PidFile none
UsePAM no
PasswordAuthentication yes
KbdInteractiveAuthentication no
PubkeyAuthentication no
MaxStartups 100
Subsystem sftp internal-sftp
AllowUsers {user}
ChrootDirectory /run/root
ForceCommand internal-sftp
"""

# The chroot lies in a /run of its own, because above it nothing may be writable for others.
INSIDE = """
set -e
folder=$1 program=$2
for name in passwd shadow group; do mount --bind "$folder/$name" "/etc/$name"; done
mount -t tmpfs -o mode=755 none /run
mkdir -m 755 /run/sshd /run/root
shift 2
while [ $# -gt 0 ]; do
    mkdir -p "/run/root$1"
    mount --bind -o ro "$2" "/run/root$1"
    shift 2
done
exec "$program" -D -e -f "$folder/config"
"""


class Skip(Exception):
    """Why it cannot run here."""


def check() -> Path:
    """The program, if this is a place for it."""
    peers = os.environ.get("VARNEX_PEERS")
    if not peers:
        raise Skip("VARNEX_PEERS is not set: the peers were not fetched")
    if Path("/proc/self/uid_map").read_text(encoding="ascii").split()[:2] != ["0", "0"] or os.geteuid():
        raise Skip("sshd with accounts of its own needs root")
    program = Path(peers, "usr/sbin/sshd").resolve()
    tried = subprocess.run(
        ["unshare", "--mount", "--propagation", "private", "mount", "-t", "tmpfs", "none", "/mnt"],
        capture_output=True, text=True, check=False)
    if tried.returncode != 0:
        raise Skip(f"a mount namespace of its own is not allowed here: {tried.stderr.strip()}")
    return program


def hashed(password: str) -> str:
    """As logins want it; perl is on every Debian."""
    script = "my $word = do { local $/; <STDIN> }; print crypt($word, q($6$tests$))"
    return subprocess.run(["perl", "-e", script], input=password, text=True, capture_output=True,
                          check=True).stdout


def write_accounts(folder: Path, user: str, password: str) -> None:
    passwd = Path("/etc/passwd").read_text(encoding="utf-8")
    if "\nsshd:" not in passwd:
        passwd += "sshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n"
    (folder / "passwd").write_text(
        f"{passwd}{user}:x:{NUMBER}:{NUMBER}::/:/usr/sbin/nologin\n", encoding="utf-8")
    group = Path("/etc/group").read_text(encoding="utf-8")
    (folder / "group").write_text(f"{group}{user}:x:{NUMBER}:\n", encoding="utf-8")
    (folder / "shadow").touch(mode=0o600)
    (folder / "shadow").write_text(f"{user}:{hashed(password)}:19000:0:99999:7:::\n", encoding="ascii")


def make_host_key(folder: Path) -> str:
    """Returns the fingerprint."""
    key = folder / "hostkey"
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
    said = subprocess.run(["ssh-keygen", "-l", "-f", key], capture_output=True, text=True, check=True)
    return said.stdout.split()[1]


def wait_until_ready(process: subprocess.Popen, address: str, port: int) -> None:
    deadline = time.monotonic() + START_SECONDS
    while time.monotonic() < deadline and process.poll() is None:
        try:
            with socket.create_connection((address, port), 1) as probe:
                if probe.recv(4) == b"SSH-":
                    return
        except OSError:
            time.sleep(0.05)
    raise SystemExit("openssh_sftp: sshd did not start")


def serve(options: argparse.Namespace, program: Path, folder: Path) -> None:
    write_accounts(folder, options.user, options.password)
    fingerprint = make_host_key(folder)
    (folder / "config").write_text(
        CONFIGURATION.format(folder=folder, **vars(options)), encoding="utf-8")
    libraries = ":".join(str(path) for path in program.parents[1].glob("lib/*-linux-gnu"))
    folders = [word for pair in options.folders for word in pair.split("=", 1)]
    command = ["unshare", "--mount", "--propagation", "private", "sh", "-c", INSIDE, "sh",
               str(folder), str(program), *folders]
    log = open(folder / "log", "wb")  # pylint: disable=consider-using-with
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                               env={**os.environ, "LD_LIBRARY_PATH": libraries})
    try:
        wait_until_ready(process, options.address, options.port)
        print(json.dumps({"port": options.port, "fingerprint": fingerprint}), flush=True)
        while os.read(sys.stdin.fileno(), 4096):
            pass
    except SystemExit:
        sys.stderr.write((folder / "log").read_text(encoding="utf-8", errors="replace"))
        raise
    finally:
        process.terminate()
        process.wait(START_SECONDS)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("address", "user", "password"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("folders", nargs="+", metavar="/REMOTE/FOLDER=LOCAL-FOLDER")
    options = parser.parse_args()
    try:
        program = check()
    except Skip as why:
        print(json.dumps({"skip": str(why)}), flush=True)
        return NOT_RUN
    folder = Path(tempfile.mkdtemp(prefix="openssh-"))
    try:
        serve(options, program, folder)
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
