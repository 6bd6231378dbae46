# SPDX-License-Identifier: Apache-2.0
"""Uploads an archive to where the export asked for: curl does it, as a BMC's firmware would.

The target and its credentials go to curl in a configuration on its standard input, so that they
never stand in the process list.
"""

from __future__ import annotations

import asyncio
import os
from dataclasses import dataclass
from pathlib import Path
from urllib.parse import urlsplit

SCHEMES = ("sftp", "tftp", "https")
_SECONDS = 900
_ESCAPES = {"\\": "\\\\", '"': '\\"', "\n": "\\n", "\r": "\\r", "\t": "\\t", "\v": "\\v"}
_RUNNING: set[asyncio.subprocess.Process] = set()


@dataclass(frozen=True)
class UploadFailure:
    """Why an upload failed."""

    code: int  # curl's exit code
    http_status: int  # of the target's answer; 0: there was none, or it speaks no HTTP
    reason: str  # curl's own words

    def __str__(self) -> str:
        return f"{self.reason} (curl ended with {self.code})"


def usable_uri(uri: str) -> bool:
    """Whether `uri` names a host and a way that the BMC knows."""
    if any(ord(c) < 33 or ord(c) == 127 for c in uri):
        return False
    try:
        parts = urlsplit(uri)
        return parts.scheme.lower() in SCHEMES and bool(parts.hostname) and parts.port != 0
    except ValueError:
        return False


def store_of(uri: str) -> str:
    """Scheme, host and port, as messages may show them: without path and without credentials."""
    parts = urlsplit(uri)
    return f"{parts.scheme}://{parts.netloc.rpartition('@')[2]}"


async def upload(file: Path, uri: str, user: str, password: str) -> UploadFailure | None:
    """Uploads and returns None, or why it failed. A URI that ends in "/" names a folder."""
    process = await asyncio.create_subprocess_exec(
        "curl", "--disable", "--config", "-",
        stdin=asyncio.subprocess.PIPE,
        stdout=asyncio.subprocess.PIPE,
        stderr=asyncio.subprocess.PIPE,
        env=_environment(),
    )
    _RUNNING.add(process)
    try:
        status, errors = await process.communicate(configuration(file, uri, user, password).encode())
    finally:
        _RUNNING.discard(process)
    if process.returncode == 0:
        return None
    reason = errors.decode("utf-8", "replace").strip().splitlines()
    http_status = int(status) if status.isdigit() else 0
    return UploadFailure(process.returncode, http_status, reason[-1] if reason else "no reason given")


def stop_uploads() -> None:
    """Ends what still runs; the process is about to end."""
    for process in list(_RUNNING):
        try:
            process.kill()
        except ProcessLookupError:
            pass


def configuration(file: Path, uri: str, user: str, password: str) -> str:
    """curl's options, one a line. The BMC knows neither host keys nor certificates of the target."""
    lines = [
        "silent", "show-error", "fail", "globoff", "path-as-is", "insecure",
        'output = "/dev/null"', 'write-out = "%{response_code}"',
        f"proto = {quoted('=' + ','.join(SCHEMES))}",
        'noproxy = "*"',
        "connect-timeout = 15",
        f"max-time = {_SECONDS}",
        f"upload-file = {quoted(str(file))}",
        f"url = {quoted(uri)}",
    ]
    if user or password:
        lines.append(f"user = {quoted(user + ':' + password)}")
    return "\n".join(lines) + "\n"


def quoted(text: str) -> str:
    """A value that stays one value: a line break in a password is no new option."""
    return '"' + "".join(_ESCAPES.get(c, c) for c in text) + '"'


def _environment() -> dict[str, str]:
    kept = ("PATH", "HOME", "LANG", "LC_ALL", "LD_LIBRARY_PATH")
    return {name: os.environ[name] for name in kept if name in os.environ}
