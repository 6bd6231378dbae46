# SPDX-License-Identifier: Apache-2.0
"""tools/private-net: a network of its own where there can be one, and a clear word where not."""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
from pathlib import Path
from typing import Iterator

import pytest

from conftest import EMULATOR, clean_environment

LISTEN = (
    "import socket, sys\n"
    "for kind in (socket.SOCK_STREAM, socket.SOCK_DGRAM):\n"
    "    for address, port in (('127.0.0.1', 115), ('127.0.0.16', 443), ('::1', 115), ('::1', 623)):\n"
    "        socket.socket(socket.AF_INET6 if ':' in address else socket.AF_INET, kind).bind((address, port))\n"
    "print('bound')\n"
)


@pytest.fixture(name="folder", scope="module")
def open_folder() -> Iterator[Path]:
    """A folder that everybody may enter, with a copy of private-net: the tree may be below root's
    own folder."""
    folder = Path(tempfile.mkdtemp(prefix="private-net-", dir="/tmp"))
    folder.chmod(0o755)
    shutil.copy(EMULATOR.parent / "tools" / "private-net", folder)
    yield folder
    shutil.rmtree(folder)


def private(folder: Path, *command: str, nobody: bool = False, **environment: str) -> subprocess.CompletedProcess:
    start = []
    if nobody and os.geteuid() == 0:
        start = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
    return subprocess.run([*start, str(folder / "private-net"), *command], capture_output=True, text=True,
                          timeout=60, check=False, cwd="/", env={**clean_environment(), **environment})


def need_a_private_network(folder: Path, nobody: bool) -> None:
    run = private(folder, "sh", "-c", "echo $VARNEX_PRIVATE_NET", nobody=nobody)
    assert run.returncode in (0, 77), run.stderr
    if run.stdout != "private\n":
        pytest.skip("this machine forbids networks of their own")


@pytest.mark.parametrize("nobody", [False, True])
def test_ports_are_free_and_nothing_else_is_seen(folder: Path, nobody: bool) -> None:
    need_a_private_network(folder, nobody)
    run = private(folder, "/usr/bin/python3", "-c", LISTEN, nobody=nobody)
    addresses = private(folder, "cat", "/proc/net/fib_trie", nobody=nobody)

    assert (run.returncode, run.stdout, run.stderr) == (0, "bound\n", "")
    assert {line.split()[1].rsplit(".", 3)[0] for line in addresses.stdout.splitlines() if "|-- " in line} == {"127"}


def test_the_exit_code_is_the_commands(folder: Path) -> None:
    need_a_private_network(folder, nobody=False)
    assert private(folder, "sh", "-c", "exit 5").returncode == 5
    missing = private(folder, "/no/such/command")
    assert (missing.returncode, missing.stderr) == (127, "private-net: /no/such/command: No such file or directory\n")
    assert private(folder).returncode == 2


def forbidding(folder: Path) -> str:
    """A PATH on which unshare is what a locked machine makes of it."""
    (folder / "bin").mkdir(exist_ok=True)
    unshare = folder / "bin" / "unshare"
    unshare.write_text("#!/bin/sh\necho 'unshare: unshare failed: Operation not permitted' >&2\nexit 1\n")
    unshare.chmod(0o755)
    return f"{folder / 'bin'}:{os.environ['PATH']}"


def test_where_it_is_forbidden_it_says_so_and_runs_nothing(folder: Path) -> None:
    if os.geteuid() == 0 and shutil.which("setpriv") is None:
        pytest.skip("setpriv is needed")
    run = private(folder, "sh", "-c", "echo ran", nobody=True, PATH=forbidding(folder))

    assert (run.returncode, run.stdout) == (77, "")
    assert run.stderr == (
        "private-net: this machine forbids a network of its own to sh, so it was not run "
        "(unshare: unshare failed: Operation not permitted)\n"
    )


def test_root_takes_the_machines_ports_in_turn(folder: Path) -> None:
    if os.geteuid() != 0:
        pytest.skip("only root may")
    path = forbidding(folder)
    run = private(folder, "sh", "-c", "echo $VARNEX_PRIVATE_NET; exit 3", PATH=path)

    assert (run.returncode, run.stdout) == (3, "shared\n")
    assert "taking the machine's ports" in run.stderr

    first = subprocess.Popen([str(folder / "private-net"), "sh", "-c", "echo in; read x; echo out"], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                             env={**clean_environment(), "PATH": path})
    assert first.stdout and first.stdout.readline() == "in\n"
    second = subprocess.Popen([str(folder / "private-net"), "true"], stderr=subprocess.DEVNULL, env={**clean_environment(), "PATH": path})
    with pytest.raises(subprocess.TimeoutExpired):
        second.wait(2)
    first.communicate("\n", timeout=20)
    assert second.wait(20) == 0
