# SPDX-License-Identifier: Apache-2.0
"""Service-data archives: real .tar.gz files, made once at start, of any size asked for.

To hit a size to the byte, the gzip stream is laid out by hand: the readable members are deflated,
an incompressible member follows in stored blocks (which cost no time to speak of), and a comment in
the gzip header takes up the last few hundred bytes.
"""

from __future__ import annotations

import functools
import hashlib
import json
import os
import struct
import tarfile
import zlib
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Iterator

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

from bmc.machine import Machine, iso

FULL, MINI = "full", "mini"
REMOTE_FOLDER = "/download/ffdc/"
LARGEST = 4 * 1024**3 - 1  # above it a gzip trailer no longer tells the length

_PIECE = 4 * 1024 * 1024
_LEVEL = 1  # of deflate: a BMC's start waits for it, and nobody for the last third of the size
_BLOCK = 65535  # the largest stored block of deflate
_BLOCK_LENGTHS = 4  # bytes: a stored block's length, twice
_TAR_END = bytes(1024)
_BASE_HEADER = 10
_TRAILER = 8


class ArchiveError(Exception):
    """The archive cannot be made as asked."""


@dataclass(frozen=True)
class Archive:
    """A finished archive on this machine's disk."""

    kind: str
    name: str
    file: Path
    size: int
    sha256: str
    content_type: str = "application/gzip"
    tells_digest: bool = False  # an answer with it has Repr-Digest (RFC 9530)

    @property
    def remote_path(self) -> str:
        """Where a client finds it on the BMC."""
        return REMOTE_FOLDER + self.name


@dataclass(frozen=True)
class ArchivePlan:
    """An archive that is known to be possible and still has to be made."""

    kind: str
    name: str
    layout: "_Layout | None"  # None: no bytes at all
    key: bytes
    damaged: bool = False

    def later(self) -> "ArchivePlan":
        """Another archive of the same name and size: what a later export leaves in its place."""
        layout = replace(self.layout, time=self.layout.time + 3600) if self.layout else None
        return replace(self, layout=layout, key=self.key[::-1])

    def make(self, folder: Path) -> Archive:
        folder.mkdir(mode=0o700, exist_ok=True)
        file = folder / self.name
        if self.layout is None:
            file.write_bytes(b"")
            digest = hashlib.sha256(b"").hexdigest()
        else:
            digest = self.layout.write(file, self.key)
            if self.damaged:
                digest = _damage(file, self.layout.middle_block())
        return Archive(self.kind, self.name, file, file.stat().st_size, digest)


def plan_archives(
    machine: Machine, size: int | None, mini_size: int | None, name: str | None, damaged: bool = False
) -> dict[str, ArchivePlan]:
    """Plans both kinds; a size of None leaves an archive as large as its plausible content."""
    stamp = machine.now.strftime("%Y%m%d-%H%M%S")
    names = {
        FULL: name or f"ffdc_{machine.label}_{stamp}.tar.gz",
        MINI: f"ffdc_mini_{machine.label}_{stamp}.tar.gz",
    }
    if names[FULL] == names[MINI]:
        raise ArchiveError(f"archive name {name!r} is the mini archive's")
    sizes = {FULL: size, MINI: mini_size}
    return {
        kind: plan_archive(machine, kind, names[kind], sizes[kind], "redfish.archive", damaged)
        for kind in (FULL, MINI)
    }


def plan_archive(
    machine: Machine, kind: str, name: str, size: int | None, member: str, damaged: bool = False
) -> ArchivePlan:
    """Plans one; `member` names the part of the scenario that the size is from."""
    layout = _layout(machine, kind, size, member)
    return ArchivePlan(kind, name, layout, machine.random.randbytes(16), damaged)


def _layout(machine: Machine, kind: str, size: int | None, member: str) -> "_Layout | None":
    """As many of the members as fit, and then exactly `size` bytes."""
    if size == 0:
        return None
    members, time = list(_members(machine, kind)), int(machine.now.timestamp())
    smallest = _Layout.fit(members[:1], time, None)
    while members:
        layout = _Layout.fit(members, time, size)
        if layout is not None:
            return layout
        members.pop()
    raise ArchiveError(
        f"{member}: no archive fits into {size} bytes; the smallest has {smallest.size()}, or 0"
    )


def _members(machine: Machine, kind: str) -> Iterator[tuple[str, bytes]]:
    """Name and content of each readable file, the most telling ones first."""
    full = kind == FULL
    yield "manifest.json", _json({
        "Collection": "ProcessorDump" if full else "Mini-log",
        "Created": iso(machine.now),
        "Model": machine.model,
        "SerialNumber": machine.serial,
        "UUID": machine.uuid,
    })
    yield "event_log/events.txt", _lines(machine.event_lines if full else machine.recent_event_lines)
    yield "sensors/readings.json", _json(
        {"TemperaturesCelsius": machine.temperatures, "FansRPM": machine.fans, "PowerWatts": machine.watts}
    )
    yield "inventory/system.json", _json({"Processors": machine.processors, "Memory": machine.memory})
    if not full:
        return
    yield "event_log/events.json", _event_objects(machine)
    yield "network/interfaces.txt", _lines(
        [f"eth0  {machine.mac}  up  1000 full", "usb0  02:00:5e:00:53:01  up  host interface"]
    )
    yield "console/host_console.log", _lines(machine.console_lines(600))
    for processor in range(len(machine.processors)):
        yield f"dumps/processor{processor + 1}_registers.txt", _lines(machine.registers(processor, 400))


@functools.lru_cache(maxsize=1)  # a BMC makes its archives one after the other
def _event_objects(machine: Machine) -> bytes:
    return _json([
        {"Id": event.number, "Created": iso(event.time), "Severity": event.severity, "Message": event.text}
        for event in machine.events
    ])


def _json(value: object) -> bytes:
    return (json.dumps(value, indent=2) + "\n").encode()


def _lines(lines: Iterator[str] | list[str]) -> bytes:
    return ("\n".join(lines) + "\n").encode()


@dataclass
class _Layout:
    """The layout of one gzip file: header comment, deflated text, stored rest."""

    text: bytes  # tar members before compression
    deflated: bytes
    flushes: list[int]  # where in `deflated` the lengths of empty blocks stand, one behind each member
    time: int
    padding: int  # bytes of the incompressible member; 0: it is left out
    comment: int  # bytes of the header's comment with its final 0; 0: no comment

    @classmethod
    def fit(cls, members: list[tuple[str, bytes]], time: int, size: int | None) -> "_Layout | None":
        """A layout of exactly `size` bytes; None where the members alone are larger."""
        text, deflated, flushes = b"", b"", []
        for name, data in members:
            member, packed = _packed(name, data, time)
            text += member
            deflated += packed
            flushes.append(len(deflated) - _BLOCK_LENGTHS)
        layout = cls(text, deflated, flushes, time, 0, 0)
        if size is None or layout.size() == size:
            return layout
        if layout.size() > size:
            return None
        layout._pad_to(size)
        return layout

    def _pad_to(self, size: int) -> None:
        """Whole tar blocks first, then the comment for what is left of one."""
        blocks = max(0, size - self.size()) // 512
        self.padding = blocks * 512
        while self.padding > 0 and self.size() > size:  # the member's own header, the block headers
            excess = self.size() - size
            self.padding = max(0, self.padding - (excess + 511) // 512 * 512)
        self.comment = size - self.size()

    def _rest(self) -> int:
        """Bytes in stored blocks: the padding member and the end of the tar."""
        return (512 + self.padding if self.padding else 0) + len(_TAR_END)

    def size(self) -> int:
        blocks = -(-self._rest() // _BLOCK)
        return _BASE_HEADER + self.comment + len(self.deflated) + 5 * blocks + self._rest() + _TRAILER

    def middle_block(self) -> int:
        """Where, next to the middle of the file, the lengths of a block without compression stand."""
        start = _BASE_HEADER + self.comment
        places = [start + place for place in self.flushes]
        stored = start + len(self.deflated) + 1
        places += range(stored, stored + self._rest(), _BLOCK + 5)
        return min(places, key=lambda place: abs(place - self.size() // 2))

    def write(self, file: Path, key: bytes) -> str:
        """Writes the file and returns its SHA-256; hashing runs beside the rest."""
        crc, length = zlib.crc32(self.text), len(self.text)
        digest = hashlib.sha256()
        with open(file, "wb", opener=_private) as out, ThreadPoolExecutor(1) as hasher:
            hashed = hasher.submit(digest.update, b"")

            def put(data: bytes) -> None:
                nonlocal hashed
                hashed.result()  # at most one piece waits
                hashed = hasher.submit(digest.update, data)
                out.write(data)

            put(self._header() + self.deflated)
            left = self._rest()
            for piece in _stored_pieces(self._rest_bytes(key)):
                crc = zlib.crc32(piece, crc)
                length += len(piece)
                left -= len(piece)
                put(_stored(piece, last=left == 0))
            put(struct.pack("<II", crc, length & 0xFFFFFFFF))
        return digest.hexdigest()

    def _header(self) -> bytes:
        flags = 16 if self.comment else 0
        header = struct.pack("<4sIBB", b"\x1f\x8b\x08" + bytes([flags]), self.time, 0, 3)
        return header + (b" " * (self.comment - 1) + b"\0" if self.comment else b"")

    def _rest_bytes(self, key: bytes) -> Iterator[bytes]:
        if self.padding:
            yield _tar_member("dumps/memory_image.bin", self.padding, self.time)
            yield from _noise(key, self.padding)
        yield _TAR_END


def _damage(file: Path, place: int) -> str:
    """Spoils the lengths of a block, so that unpacking fails there and then; the new SHA-256."""
    with open(file, "r+b") as data:
        data.seek(place)
        data.write(b"\xff" * _BLOCK_LENGTHS)
        data.seek(0)
        digest = hashlib.sha256()
        while piece := data.read(_PIECE):
            digest.update(piece)
    return digest.hexdigest()


def _noise(key: bytes, size: int) -> Iterator[bytes]:
    """Bytes that do not compress; a cipher in counter mode makes them at memory speed."""
    cipher = Cipher(algorithms.AES(key), modes.CTR(bytes(16))).encryptor()
    zeros = bytes(_PIECE)
    for start in range(0, size, _PIECE):
        yield cipher.update(zeros[: min(_PIECE, size - start)])


def _stored_pieces(source: Iterator[bytes]) -> Iterator[bytes]:
    """The same bytes cut into pieces of whole stored blocks, the last piece as it comes."""
    whole = _BLOCK * (_PIECE // _BLOCK)
    held = b""
    for data in source:
        held += data
        while len(held) > whole:
            yield held[:whole]
            held = held[whole:]
    if held:
        yield held


def _stored(data: bytes, last: bool) -> bytes:
    """Deflate's stored blocks around `data`."""
    parts = []
    for start in range(0, len(data), _BLOCK):
        block = data[start : start + _BLOCK]
        final = last and start + _BLOCK >= len(data)
        parts += [struct.pack("<BHH", final, len(block), len(block) ^ 0xFFFF), block]
    return b"".join(parts)


@functools.lru_cache(maxsize=16)  # archives of one BMC have most members in common
def _packed(name: str, data: bytes, time: int) -> tuple[bytes, bytes]:
    """A file in tar, as it is and deflated, with an empty block behind it: what follows knows nothing of it."""
    packer = zlib.compressobj(_LEVEL, zlib.DEFLATED, -15)
    member = _tar_member(name, len(data), time) + _filled(data)
    return member, packer.compress(member) + packer.flush(zlib.Z_FULL_FLUSH)


def _tar_member(name: str, size: int, time: int) -> bytes:
    info = tarfile.TarInfo("ffdc/" + name)
    info.size, info.mtime, info.mode = size, time, 0o640
    info.uname = info.gname = "root"
    return info.tobuf(tarfile.GNU_FORMAT)


def _filled(data: bytes) -> bytes:
    """Tar's blocks have 512 bytes."""
    return data + bytes(-len(data) % 512)


def _private(path: str, flags: int) -> int:
    return os.open(path, flags, 0o600)
