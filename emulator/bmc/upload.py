# SPDX-License-Identifier: Apache-2.0
"""Uploads an archive to where the export asked for: curl does it, as a BMC's firmware would.

The target and its credentials go to curl in a configuration on its standard input, so that they
never stand in the process list.
"""

from __future__ import annotations

import asyncio
import os
from pathlib import Path
from urllib.parse import urlsplit

SCHEMES = ("sftp", "tftp", "https")
_SECONDS = 900
_ESCAPES = {"\\": "\\\\", '"': '\\"', "\n": "\\n", "\r": "\\r", "\t": "\\t", "\v": "\\v"}
_RUNNING: set[asyncio.subprocess.Process] = set()


def usable_uri(uri: str) -> bool:
    """Whether `uri` names a host and a way that the BMC knows."""
    if any(ord(c) < 33 or ord(c) == 127 for c in uri):
        return False
    try:
        parts = urlsplit(uri)
        return parts.scheme.lower() in SCHEMES and bool(parts.hostname) and parts.port != 0
    except ValueError:
        return False


async def upload(file: Path, uri: str, user: str, password: str) -> str | None:
    """Uploads and returns None, or the reason why it failed. A URI that ends in "/" names a folder."""
    process = await asyncio.create_subprocess_exec(
        "curl", "--disable", "--config", "-",
        stdin=asyncio.subprocess.PIPE,
        stdout=asyncio.subprocess.DEVNULL,
        stderr=asyncio.subprocess.PIPE,
        env=_environment(),
    )
    _RUNNING.add(process)
    try:
        _, errors = await process.communicate(configuration(file, uri, user, password).encode())
    finally:
        _RUNNING.discard(process)
    if process.returncode == 0:
        return None
    reason = errors.decode("utf-8", "replace").strip().splitlines()
    return f"{reason[-1] if reason else 'no reason given'} (curl ended with {process.returncode})"


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
