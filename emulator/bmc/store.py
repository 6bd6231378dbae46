# SPDX-License-Identifier: Apache-2.0
"""An SFTP file store with one account, for BMCs that upload their archives."""

from __future__ import annotations

import argparse
import asyncio
import json
import os
import secrets
import signal
import sys
import warnings
from pathlib import Path

with warnings.catch_warnings():
    warnings.simplefilter("ignore")  # about ciphers that are not used here
    import asyncssh


def main(arguments: list[str]) -> int:
    """Runs until standard input closes, or a signal comes. 1: cannot start; 2: bad option."""
    options = _options(arguments)
    password = os.environ.get("SFTP_STORE_PASSWORD") or secrets.token_hex(8)
    try:
        asyncio.run(_run(options, password))
    except OSError as problem:
        print(f"sftp-store: cannot start: {problem}", file=sys.stderr)
        return 1
    return 0


def _options(arguments: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="sftp-store", description=__doc__)
    parser.add_argument("--bind", default="127.0.0.1", metavar="ADDRESS")
    parser.add_argument("--port", type=int, default=0, metavar="N")
    parser.add_argument("--user", default="ffdc", metavar="NAME")
    parser.add_argument("folder", metavar="FOLDER", type=Path)
    options = parser.parse_args(arguments)
    if not options.folder.is_dir():
        parser.error(f"{options.folder} is no folder")
    return options


async def _run(options: argparse.Namespace, password: str) -> None:
    ended = asyncio.Event()
    loop = asyncio.get_running_loop()
    for number in (signal.SIGINT, signal.SIGTERM):
        loop.add_signal_handler(number, ended.set)
    watcher = loop.run_in_executor(None, sys.stdin.buffer.read)
    watcher.add_done_callback(lambda _: ended.set())
    port = await serve_store(options.bind, options.port, options.folder, options.user, password)
    ready = {"schema": 1, "address": options.bind, "port": port, "user": options.user, "password": password}
    print(json.dumps(ready), flush=True)
    await ended.wait()
    os._exit(0)  # the thread that waits for the end of standard input may still wait


async def serve_store(address: str, port: int, folder: Path, user: str, password: str) -> int:
    """Serves as long as the event loop lives; the port. `folder` is all that the account sees."""
    server = await asyncssh.create_server(
        lambda: _Account(user, password),
        address,
        port,
        server_host_keys=[asyncssh.generate_private_key("ssh-ed25519")],
        sftp_factory=lambda channel: asyncssh.SFTPServer(channel, chroot=str(folder)),
    )
    return server.sockets[0].getsockname()[1]


class _Account(asyncssh.SSHServer):
    def __init__(self, user: str, password: str) -> None:
        self._known = f"{user}\0{password}".encode()

    def password_auth_supported(self) -> bool:
        return True

    def validate_password(self, username: str, password: str) -> bool:
        return secrets.compare_digest(f"{username}\0{password}".encode(), self._known)
