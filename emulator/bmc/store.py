# SPDX-License-Identifier: Apache-2.0
"""An SFTP file store with one account, for BMCs that upload their archives."""

from __future__ import annotations

import secrets
import warnings
from pathlib import Path

with warnings.catch_warnings():
    warnings.simplefilter("ignore")  # about ciphers that are not used here
    import asyncssh


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
