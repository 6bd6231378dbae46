#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A file store for tests: sftp_store.py FOLDER.

Takes the account store, "store-secret", keeps what is uploaded below FOLDER, prints its port when
it is ready and ends when its standard input closes.
"""

import asyncio
import os
import sys

import asyncssh


class Store(asyncssh.SSHServer):
    """One account, by password."""

    def password_auth_supported(self) -> bool:
        return True

    def validate_password(self, username: str, password: str) -> bool:
        return (username, password) == ("store", "store-secret")


async def serve(folder: str) -> None:
    """Listens on a free port of the loopback until standard input closes."""
    server = await asyncssh.create_server(
        Store, "127.0.0.1", 0,
        server_host_keys=[asyncssh.generate_private_key("ssh-ed25519")],
        sftp_factory=lambda channel: asyncssh.SFTPServer(channel, chroot=folder))
    print(server.sockets[0].getsockname()[1], flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.buffer.read)
    os._exit(0)  # whatever connection is still open


asyncio.run(serve(sys.argv[1]))
