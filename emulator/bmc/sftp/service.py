# SPDX-License-Identifier: Apache-2.0
"""The SFTP port: passwords, listings, files. Everything is read-only."""

from __future__ import annotations

import asyncio
import itertools
import os
import time
import warnings
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Awaitable, Sequence

with warnings.catch_warnings():  # about ciphers that nobody has to use
    warnings.simplefilter("ignore")
    import asyncssh

from bmc.machine import Machine
from bmc.record import RequestRecord, decoded
from bmc.sftp.script import ERRORS, LIST, LOGIN, OPEN, Script, SftpAnswer
from bmc.sftp.settings import Account, SftpSettings
from bmc.sftp.tree import Content, Entry, Tree

_KEY_FILE, _FACTS_FILE, _STORE = "ssh_host_key", "sftp-files.json", "sftp-files"
_FOREVER = 1 << 24  # seconds
_WRITING = asyncssh.FXF_WRITE | asyncssh.FXF_APPEND | asyncssh.FXF_CREAT | asyncssh.FXF_TRUNC
_FOLDER_MODE, _FILE_MODE = 0o040755, 0o100640


@dataclass(frozen=True)
class SftpPort:
    """Where the file service is found and how it is known."""

    port: int
    fingerprint: str | None  # None: the port is open and silent
    files: Path

    def facts(self) -> dict[str, Any]:
        return {"port": self.port, "fingerprint": self.fingerprint, "files": str(self.files)}


class _Service:
    """What all connections share."""

    def __init__(
        self, settings: SftpSettings, accounts: set[Account], tree: Tree, machine: Machine,
        record: RequestRecord,
    ) -> None:
        self.accounts = accounts
        self.tree = tree
        self.script = Script(settings.answers)
        self.time = int(machine.now.timestamp())
        self.numbers = itertools.count(1)
        self._record = record

    def record(self, connection: int, operation: str, **more: Any) -> None:
        self._record.add("sftp", {"operation": operation, "connection": connection, **more})


class _Login(asyncssh.SSHServer):
    """One connection, until somebody is let in."""

    def __init__(self, service: _Service) -> None:
        self._service = service
        self.number = next(service.numbers)

    def connection_made(self, conn: asyncssh.SSHServerConnection) -> None:
        self._connection = conn
        conn.set_extra_info(number=self.number)

    def begin_auth(self, username: str) -> bool:
        return True

    def password_auth_supported(self) -> bool:
        return True

    async def validate_password(self, username: str, password: str) -> bool:
        answer = self._service.script.next(LOGIN)
        accepted = not answer.refuse and (username, password) in self._service.accounts
        self._service.record(
            self.number, "login", user=username, password=password, accepted=accepted
        )
        await _behave(answer, self._connection)
        return accepted


async def _behave(answer: SftpAnswer, connection: asyncssh.SSHServerConnection) -> None:
    """What goes before an answer, or comes instead of it."""
    await asyncio.sleep(answer.delay)
    if answer.cut:
        connection.abort()
    if answer.cut or answer.hang:
        await asyncio.sleep(_FOREVER)
    if answer.error is not None:
        raise asyncssh.SFTPError(ERRORS[answer.error], answer.error.capitalize())


@dataclass
class _OpenFile:
    """A file that a client reads, and how far it comes."""

    content: Content
    handle: int
    answer: SftpAnswer
    opened: float
    sent: int = 0


class _Files(asyncssh.SFTPServer):
    """The files as one logged-in client sees them."""

    def __init__(self, channel: asyncssh.SSHServerChannel, service: _Service) -> None:
        super().__init__(channel)
        self._service = service
        self._number = self.connection.get_extra_info("number")

    def _record(self, operation: str, path: bytes, outcome: str, **more: Any) -> None:
        self._service.record(
            self._number, operation, path=decoded(path), outcome=outcome, **more
        )

    async def listdir(self, path: bytes) -> Sequence[asyncssh.SFTPName]:
        entries = self._service.tree.listing(path)
        answer = self._service.script.next(LIST, decoded(path))
        names = None if entries is None else len(entries)
        self._record("list", path, _outcome(answer, entries is not None), names=names)
        await _behave(answer, self.connection)
        if entries is None:
            raise asyncssh.SFTPNoSuchFile("No such file")
        dots = [Entry(b".", None), Entry(b"..", None)]
        return [asyncssh.SFTPName(e.name, attrs=self._attributes(e.content)) for e in [*dots, *entries]]

    async def open(self, path: bytes, pflags: int, attrs: asyncssh.SFTPAttrs) -> _OpenFile:
        content = self._service.tree.content(path)
        answer = self._service.script.next(OPEN, decoded(path))
        if pflags & _WRITING:
            answer = SftpAnswer(error="permission denied")
        elif content is None and self._service.tree.listing(path) is not None:
            answer = SftpAnswer(error="failure")  # a folder
        self._record("open", path, _outcome(answer, content is not None))
        await _behave(answer, self.connection)
        if content is None:
            raise asyncssh.SFTPNoSuchFile("No such file")
        return _OpenFile(content, os.open(content.file, os.O_RDONLY), answer, time.monotonic())

    async def read(self, file_obj: _OpenFile, offset: int, size: int) -> bytes:
        answer = file_obj.answer
        limits = [limit for limit in (answer.cut_after, answer.hang_after) if limit is not None]
        for limit in limits:
            if offset >= limit:
                await self._break_off(answer)
            size = min(size, limit - offset)
        data = os.pread(file_obj.handle, size, offset)
        file_obj.sent += len(data)
        if answer.rate is not None:
            due = file_obj.opened + file_obj.sent / answer.rate
            await asyncio.sleep(max(0.0, due - time.monotonic()))
        return data

    async def _break_off(self, answer: SftpAnswer) -> None:
        if answer.cut_after is not None:
            await asyncio.sleep(0.1)  # cutting drops what has not been sent
            self.connection.abort()
        await asyncio.sleep(_FOREVER)

    def close(self, file_obj: _OpenFile) -> None:
        os.close(file_obj.handle)

    def stat(self, path: bytes) -> asyncssh.SFTPAttrs:
        content = self._service.tree.content(path)
        if content is None and self._service.tree.listing(path) is None:
            raise asyncssh.SFTPNoSuchFile("No such file")
        return self._attributes(content)

    def lstat(self, path: bytes) -> asyncssh.SFTPAttrs:
        return self.stat(path)

    def fstat(self, file_obj: _OpenFile) -> asyncssh.SFTPAttrs:
        return self._attributes(file_obj.content)

    def _attributes(self, content: Content | None) -> asyncssh.SFTPAttrs:
        return asyncssh.SFTPAttrs(
            size=content.size if content else 4096,
            permissions=_FILE_MODE if content else _FOLDER_MODE,
            uid=0, gid=0, nlink=1, atime=self._service.time, mtime=self._service.time,
        )

    def realpath(self, path: bytes) -> bytes:
        return os.path.normpath(b"/" + path.lstrip(b"/"))

    def _deny(self, *_: Any) -> None:
        raise asyncssh.SFTPPermissionDenied("Permission denied")

    setstat = fsetstat = write = remove = mkdir = rmdir = rename = posix_rename = _deny
    symlink = link = readlink = statvfs = fstatvfs = fsync = _deny


def _outcome(answer: SftpAnswer, exists: bool) -> str:
    """The word in the record."""
    if answer.hang or answer.cut:
        return "none"
    return answer.error or ("ok" if exists else "no such file")


async def serve_sftp(
    address: str, port: int, settings: SftpSettings, accounts: dict[str, Account],
    machine: Machine, record: RequestRecord, folder: Path,
) -> SftpPort:
    """Serves until the process ends. `accounts`: the BMC's own by the words of the settings."""
    tree = Tree(settings, machine, folder / _STORE)
    tree.write_facts(folder / _FACTS_FILE)
    allowed = {accounts[a] if isinstance(a, str) else a for a in settings.accounts}
    service = _Service(settings, allowed, tree, machine, record)
    key = _host_key(folder / _KEY_FILE)
    listening = _silent(address, port) if settings.silent else _answering(address, port, service, key)
    try:
        server = await listening
    except OSError as error:
        raise OSError(error.errno, f"SFTP on {address} port {port}: {_why(error, port)}") from error
    number = server.sockets[0].getsockname()[1]
    fingerprint = None if settings.silent else key.get_fingerprint()
    return SftpPort(number, fingerprint, folder / _FACTS_FILE)


def _answering(
    address: str, port: int, service: _Service, key: asyncssh.SSHKey
) -> Awaitable[Any]:
    return asyncssh.listen(
        address, port, config=[], server_host_keys=[key], server_version="BMC",
        server_factory=lambda: _Login(service),
        sftp_factory=lambda channel: _Files(channel, service),
        kbdint_auth=False, public_key_auth=False, host_based_auth=False, gss_host=None,
        agent_forwarding=False, allow_pty=False, reuse_address=True,
    )


def _silent(address: str, port: int) -> Awaitable[Any]:
    async def say_nothing(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        while await reader.read(65536):
            pass
        writer.close()

    return asyncio.start_server(say_nothing, address, port, reuse_address=True)


def _host_key(file: Path) -> asyncssh.SSHKey:
    """Kept where the BMC's state is kept: clients remember it, and distrust a new one."""
    if file.exists():
        return asyncssh.read_private_key(str(file))
    key = asyncssh.generate_private_key("ssh-ed25519")
    file.touch(mode=0o600)
    key.write_private_key(str(file))
    return key


def _why(error: OSError, port: int) -> str:
    reason = os.strerror(error.errno) if error.errno else str(error)
    if isinstance(error, PermissionError):
        return f"{reason}; tools/private-net runs a command where port {port} may be taken"
    return reason
