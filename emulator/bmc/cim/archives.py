# SPDX-License-Identifier: Apache-2.0
"""The archives of data objects: small .tar.gz files that say which object they belong to."""

from __future__ import annotations

import gzip
import hashlib
import io
import json
import os
import tarfile
from pathlib import Path
from typing import BinaryIO, Mapping

from bmc.archive import FULL, Archive
from bmc.machine import Machine, iso

_PIECE = 1 << 20


def make_archive(
    machine: Machine, file: Path, facts: Mapping[str, str], size: int | None
) -> Archive:
    """Makes it; with a size a member that does not compress brings it to about so many bytes."""
    manifest = {"Created": iso(machine.now), "Model": machine.model, "SerialNumber": machine.serial, **facts}
    events = "\n".join([*machine.event_lines, ""])
    with open(file, "wb", opener=lambda path, flags: os.open(path, flags, 0o600)) as raw:
        with gzip.GzipFile("", "wb", 1, raw, machine.now.timestamp()) as packed:
            with tarfile.open(fileobj=packed, mode="w|", format=tarfile.GNU_FORMAT) as tar:
                _add(tar, machine, "manifest.json", (json.dumps(manifest, indent=2) + "\n").encode())
                _add(tar, machine, "event_log/events.txt", events.encode())
                packed.flush()
                if size:
                    _add_noise(tar, machine, max(0, size - raw.tell()))
    return Archive(FULL, file.name, file, file.stat().st_size, _digest(file))


def _add(tar: tarfile.TarFile, machine: Machine, name: str, data: bytes) -> None:
    tar.addfile(_info(machine, name, len(data)), io.BytesIO(data))


def _add_noise(tar: tarfile.TarFile, machine: Machine, size: int) -> None:
    tar.addfile(_info(machine, "dumps/memory_image.bin", size), _Noise(machine))  # type: ignore[arg-type]


def _info(machine: Machine, name: str, size: int) -> tarfile.TarInfo:
    info = tarfile.TarInfo("ffdc/" + name)
    info.size, info.mtime, info.mode = size, int(machine.now.timestamp()), 0o640
    return info


class _Noise:
    """A file without an end, of bytes that do not compress."""

    def __init__(self, machine: Machine) -> None:
        self._machine = machine

    def read(self, size: int) -> bytes:
        return self._machine.random.randbytes(size)


def _digest(file: Path) -> str:
    digest = hashlib.sha256()
    with open(file, "rb") as data:
        _feed(digest, data)
    return digest.hexdigest()


def _feed(digest: "hashlib._Hash", data: BinaryIO) -> None:
    while piece := data.read(_PIECE):
        digest.update(piece)
