# SPDX-License-Identifier: Apache-2.0
"""File stores that archives are uploaded to: real daemons, each for one test."""

from __future__ import annotations

import contextlib
import os
import socket
import subprocess
import time
import warnings
from pathlib import Path
from typing import Iterator

import pytest

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    import asyncssh

from conftest import peer

SECONDS = 10.0


def free_port(kind: socket.SocketKind) -> int:
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@contextlib.contextmanager
def daemon(command: list[str], environment: dict[str, str], log: Path) -> Iterator[subprocess.Popen]:
    with open(log, "wb") as output:
        process = subprocess.Popen(
            command, env=environment, stdin=subprocess.DEVNULL, stdout=output, stderr=output
        )
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def wait_until(ready, what: str, process: subprocess.Popen, log: Path) -> None:
    deadline = time.monotonic() + SECONDS
    while not ready():
        ended = process.poll() is not None
        assert not ended and time.monotonic() < deadline, f"{what}: {log.read_text()}"
        time.sleep(0.05)


@contextlib.contextmanager
def atftpd(folder: Path, log: Path) -> Iterator[int]:
    """Serves `folder` by TFTP; yields the port."""
    program, environment = peer("usr/sbin/atftpd")
    port = free_port(socket.SOCK_DGRAM)
    command = [
        str(program), "--daemon", "--no-fork", "--port", str(port), "--bind-address", "127.0.0.1",
        *account_options(), "--logfile", "-", str(folder),
    ]
    with daemon(command, environment, log) as process:
        wait_until(lambda: udp_port_is_open(port), "atftpd did not open its port", process, log)
        yield port


def account_options() -> list[str]:
    """Started by root it would step down to an account that may not write in the test's folder."""
    return ["--user", "root", "--group", "root"] if os.geteuid() == 0 else []


def udp_port_is_open(port: int) -> bool:
    wanted = f":{port:04X}"
    lines = Path("/proc/net/udp").read_text().splitlines()[1:]
    return any(line.split()[1].endswith(wanted) for line in lines)


@contextlib.contextmanager
def sshd(folder: Path, user: str, password: str) -> Iterator[int]:
    """OpenSSH with one account, which exists only in what this daemon sees of /etc."""
    if os.geteuid() != 0:
        pytest.skip("sshd with an account of its own needs root")
    program, environment = peer("usr/sbin/sshd")
    root = Path(os.environ["VARNEX_PEERS"])
    port = free_port(socket.SOCK_STREAM)
    files = write_account(folder, user, password)
    files["config"].write_text(sshd_config(folder, root, port))
    script = (
        'mount --bind "$1/passwd" /etc/passwd && mount --bind "$1/shadow" /etc/shadow && '
        'mount -t tmpfs none /run && mkdir -m 755 /run/sshd && shift && exec "$@"'
    )
    command = [
        "unshare", "--mount", "--propagation", "private", "sh", "-c", script, "sh", str(folder),
        str(program), "-D", "-e", "-f", str(files["config"]),
    ]
    if not can_unshare():
        pytest.skip("a mount namespace of its own is not allowed here")
    log = folder / "sshd.log"
    with daemon(command, environment, log) as process:
        wait_until(lambda: tcp_port_answers(port), "sshd did not open its port", process, log)
        yield port


def can_unshare() -> bool:
    command = ["unshare", "--mount", "--propagation", "private", "mount", "-t", "tmpfs", "none", "/mnt"]
    return subprocess.run(command, capture_output=True, timeout=SECONDS).returncode == 0


def write_account(folder: Path, user: str, password: str) -> dict[str, Path]:
    """A user with root's number, so that no file has to change hands."""
    home = folder / "home"
    home.mkdir()
    passwd = Path("/etc/passwd").read_text() + f"{user}:x:0:0::{home}:/bin/sh\n"
    if "\nsshd:" not in passwd:
        passwd += "sshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n"
    (folder / "passwd").write_text(passwd)
    (folder / "shadow").write_text(f"{user}:{hashed(password)}:19000:0:99999:7:::\n")
    (folder / "shadow").chmod(0o600)
    asyncssh.generate_private_key("ssh-ed25519").write_private_key(str(folder / "hostkey"))
    (folder / "hostkey").chmod(0o600)
    return {"config": folder / "sshd_config"}


def hashed(password: str) -> str:
    """As login programs want it; perl is on every Debian, and Python is about to lose its own."""
    script = 'my $word = do { local $/; <STDIN> }; print crypt($word, q($6$tests$))'
    command = ["perl", "-e", script]
    result = subprocess.run(command, input=password, text=True, capture_output=True, timeout=SECONDS)
    assert result.stdout.startswith("$6$"), result.stderr
    return result.stdout


def sshd_config(folder: Path, root: Path, port: int) -> str:
    return "\n".join([
        f"Port {port}", "ListenAddress 127.0.0.1", f"HostKey {folder}/hostkey", f"PidFile {folder}/pid",
        "UsePAM no", "PasswordAuthentication yes", "PermitRootLogin yes", "StrictModes no",
        f"Subsystem sftp {root}/usr/lib/openssh/sftp-server", "",
    ])


def tcp_port_answers(port: int) -> bool:
    try:
        with socket.create_connection(("127.0.0.1", port), 1) as probe:
            return probe.recv(4) == b"SSH-"
    except OSError:
        return False
